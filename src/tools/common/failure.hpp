// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

namespace tavrisk::tools {

/** The exit status, worst last: that of several requests is the worst of them. */
enum class Exit {
    done = 0,
    /** Something was refused, could not be read or written, or is not as it should be. */
    failed = 1,
    usage = 2,
    /** No bus, no daemon on it, or no reply. */
    unreachable = 3,
};

/** Why a command, or one of its requests, came to nothing: one sentence for the user, which fits
 *  behind the name of what it was about. */
class Failure : public std::runtime_error {
public:
    Failure(Exit status, const std::string& sentence)
        : std::runtime_error{sentence}, status_{status} {}

    [[nodiscard]] Exit status() const noexcept { return status_; }

private:
    Exit status_;
};

/** Raises Failure for a command line that cannot be understood. */
[[noreturn]] inline void failUsage(const std::string& sentence) {
    throw Failure{Exit::usage, sentence};
}

/** Thrown when whoever read our output has gone: there is nothing left to do, and nothing to say.
 */
class NobodyReads final {};

} // namespace tavrisk::tools
