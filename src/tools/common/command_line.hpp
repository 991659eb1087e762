// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/failure.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tavrisk::tools {

/** What the command line says: which options there are and what they mean is the table's and the
 *  command's. */
struct Arguments {
    std::string command;
    std::vector<std::string> operands;
    /** By long name, with the values that each was given. */
    std::map<std::string, std::vector<std::string>, std::less<>> options;

    [[nodiscard]] bool has(std::string_view option) const { return options.contains(option); }
    [[nodiscard]] bool json() const { return has("json"); }
    /** Of an option that is repeated, the last. */
    [[nodiscard]] std::optional<std::string> value(std::string_view option) const;
    [[nodiscard]] std::vector<std::string> values(std::string_view option) const;
};

struct OptionRow {
    const char* name;
    /** A short form, or 0. */
    char letter;
    /** What stands for its value in the help; null when it takes none. */
    const char* value;
    const char* help;
    /** Whether also commands take it that make nothing of it, so that a script may always give it.
     */
    bool everywhere = false;
};

struct CommandRow {
    const char* name;
    const char* operands;
    std::size_t fewestOperands;
    std::size_t mostOperands;
    /** The names of the options that it makes something of, with blanks between. */
    std::string_view options;
    /** What can be done with it, as a sentence that begins behind a "To". */
    const char* summary;
    /** More for its own help; lines, or nothing. */
    const char* notes;
    Exit (*run)(const Arguments&);
};

/** All of a program that its command line tells. It has --help and --version without rows. */
struct Program {
    const char* name;
    const char* purpose;
    std::span<const CommandRow> commands;
    std::span<const OptionRow> options;
    /** More for the help of the program; lines, or nothing. */
    const char* notes;
    /** What its exit status means. */
    const char* exitStatus;
};

/** What is left of main(): reads the command line, runs the command and tells why it failed.
 *  Output that nobody reads ends it without a word. The exit status. */
int run(const Program& program, int argc, char** argv);

/** The number that the text is, from `least` to `most`. Raises Failure with Exit::usage for any
 *  other text, in which `what` is the option or operand. */
std::int64_t toNumber(std::string_view what, const std::string& text, std::int64_t least,
                      std::int64_t most = INT64_MAX);

} // namespace tavrisk::tools
