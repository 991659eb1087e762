// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "allocation.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

// Shared by the libraries that stand in for the platform's. They live in a private world, so their
// paths are fixed: what was called goes to /run/record, one line a call, in order; a call whose
// name is a file below /run/fail answers with the number in it.

inline void record(const std::string& call) {
    const OfAStandIn ours;
    auto line = std::to_string(gettid()) + ' ';
    for (const char c : call) {
        line += c == '\n' ? std::string{"\\n"} : std::string{c};
    }
    line += '\n';
    const int file = open("/run/record", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    [[maybe_unused]] const auto written = write(file, line.data(), line.size());
    close(file);
}

inline std::int32_t failure(const std::string& call) {
    const OfAStandIn ours;
    std::int32_t code = 0;
    std::ifstream{"/run/fail/" + call} >> code;
    return code;
}

inline std::int32_t recorded(const std::string& name, const std::string& arguments = {}) {
    record(name + arguments);
    return failure(name);
}
