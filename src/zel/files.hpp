// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

namespace tavrisk::zel {

/** A directory, opened; or not, where that is not possible. */
class Directory {
public:
    explicit Directory(const std::filesystem::path& path)
        : file_{open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)} {}
    ~Directory() {
        if (file_ >= 0) {
            close(file_);
        }
    }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    /** Has the names in it on the disk. */
    void sync() const { fsync(file_); }

    /** Keeps other processes that ask for the same out, until it is closed. False while another
     *  one does. */
    [[nodiscard]] bool tryLock() const { return flock(file_, LOCK_EX | LOCK_NB) == 0; }

private:
    int file_;
};

} // namespace tavrisk::zel
