// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/output.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace tavrisk::zelctl {
namespace {

void check(bool written) {
    if (written) {
        return;
    }
    if (errno == EPIPE) {
        throw NobodyReads{};
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    throw Problem{std::string{"standard output: "} + std::strerror(errno)};
}

} // namespace

void putLine(std::string_view line) {
    check(std::fwrite(line.data(), 1, line.size(), stdout) == line.size() &&
          std::fputc('\n', stdout) != EOF);
}

void flushLines() {
    check(std::fflush(stdout) == 0);
}

} // namespace tavrisk::zelctl
