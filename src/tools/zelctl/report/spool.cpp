// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/spool.hpp"

#include "tools/common/failure.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tavrisk::tools {
namespace {

[[noreturn]] void failSpooling(const std::string& what) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    throw Failure{Exit::failed, what + ": " + std::strerror(errno)};
}

std::string templateOf(const std::string& beside) {
    if (beside != "-") {
        return beside + ".XXXXXX";
    }
    const char* const chosen = std::getenv("TMPDIR"); // NOLINT(concurrency-mt-unsafe)
    const bool isSet = chosen != nullptr && *chosen != '\0';
    return std::string{isSet ? chosen : "/tmp"} + "/zelctl.XXXXXX";
}

} // namespace

Spool::Spool(const std::string& beside) {
    auto path = templateOf(beside);
    const int opened = mkostemp(path.data(), O_CLOEXEC);
    if (opened < 0) {
        failSpooling(path);
    }
    unlink(path.c_str());
    file_.reset(fdopen(opened, "w+"));
    if (!file_) {
        close(opened);
        failSpooling(path);
    }
}

void Spool::write(std::string_view bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
        failSpooling("a temporary file");
    }
}

int Spool::reopen() {
    const int copy = fcntl(fileno(file_.get()), F_DUPFD_CLOEXEC, 0);
    if (std::fflush(file_.get()) != 0 || copy < 0 || lseek(copy, 0, SEEK_SET) != 0) {
        failSpooling("a temporary file"); // The end of the program closes the copy.
    }
    return copy;
}

} // namespace tavrisk::tools
