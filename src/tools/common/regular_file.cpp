// SPDX-License-Identifier: Apache-2.0
#include "tools/common/regular_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tavrisk::tools {

RegularFile::RegularFile(const std::string& path)
    : RegularFile{open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)} {}

RegularFile::RegularFile(int descriptor) : file_{descriptor} {
    if (file_ < 0 || fstat(file_, &status_) != 0) {
        isMissing_ = errno == ENOENT;
        problem_ = errno == ELOOP ? "a symbolic link"
                                  : std::strerror(errno); // NOLINT(concurrency-mt-unsafe)
    } else if (!S_ISREG(status_.st_mode)) {
        problem_ = "no regular file";
    }
}

RegularFile::~RegularFile() {
    if (file_ >= 0) {
        close(file_);
    }
}

std::size_t RegularFile::read(std::span<char> room) {
    std::size_t done = 0;
    while (done < room.size() && problem_.empty()) {
        const auto count = ::read(file_, room.data() + done, room.size() - done);
        if (count < 0 && errno != EINTR) {
            problem_ = std::strerror(errno); // NOLINT(concurrency-mt-unsafe): there is one thread
        }
        if (count == 0) {
            break;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return done;
}

bool RegularFile::hasChanged() const {
    struct stat now {};
    return fstat(file_, &now) != 0 || now.st_size != status_.st_size ||
           now.st_mtim.tv_sec != status_.st_mtim.tv_sec ||
           now.st_mtim.tv_nsec != status_.st_mtim.tv_nsec;
}

} // namespace tavrisk::tools
