// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

namespace tavrisk::ctl {

/** The exit status, worst last: that of several requests is the worst of them. */
enum class Exit {
    accepted = 0,
    /** The daemon or the bus said no, or a file could not be read. */
    refused = 1,
    usage = 2,
    /** No bus, no daemon on it, or no reply. */
    unreachable = 3,
};

/** Why a request came to nothing: one sentence that fits behind the name of what was sent. */
class Failure : public std::runtime_error {
public:
    Failure(Exit status, const std::string& sentence)
        : std::runtime_error{sentence}, status_{status} {}

    [[nodiscard]] Exit status() const noexcept { return status_; }

private:
    Exit status_;
};

/** The bus ended the connection. */
class Disconnected : public Failure {
public:
    Disconnected() : Failure{Exit::unreachable, "the bus closed the connection"} {}
};

} // namespace tavrisk::ctl
