// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log.hpp"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace tavrisk::zelctl {

/** A command line that asks for nothing this program does; the text says what is wrong with it. */
class UsageError final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Command { list, follow, show, stats, verify, clear, help, version };

struct Options {
    Command command = Command::help;
    std::int64_t sequence = 0;           // of the entry to show
    std::optional<std::string> database; // as given; the built-in path otherwise
    Filter filter;
    std::optional<std::int64_t> limit;
    bool reverse = false;
    bool json = false;
    bool yes = false;
};

/** Reads a command line. Raises UsageError. */
Options parseOptions(int argc, char** argv);

extern const char* const helpText;

} // namespace tavrisk::zelctl
