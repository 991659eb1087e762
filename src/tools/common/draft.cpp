// SPDX-License-Identifier: Apache-2.0
#include "tools/common/draft.hpp"

#include "tools/common/failure.hpp"
#include "tools/common/output.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <utility>

namespace tavrisk::tools {
namespace {

[[noreturn]] void fail(const std::string& path) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    throw Failure{Exit::failed, path + ": " + std::strerror(errno)};
}

int openDirectory(const std::string& path, int flags) {
    const auto directory = std::filesystem::path{path}.parent_path();
    return open(directory.empty() ? "." : directory.c_str(), flags | O_CLOEXEC, 0600);
}

void syncDirectory(const std::string& path) {
    const int opened = openDirectory(path, O_RDONLY | O_DIRECTORY);
    if (opened < 0 || fsync(opened) != 0) {
        fail(path);
    }
    close(opened);
}

} // namespace

Draft::Draft(std::string path, mode_t mode) : path_{std::move(path)}, mode_{mode} {
    if (path_ == "-") {
        return;
    }
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        throw Failure{Exit::failed, path_ + " is no regular file"};
    }
    file_ = openDirectory(path_, O_TMPFILE | O_WRONLY);
    if (file_ >= 0) {
        return;
    }
    beside_ = path_ + ".XXXXXX"; // Not all file systems have files without a name.
    file_ = mkostemp(beside_.data(), O_CLOEXEC);
    if (file_ < 0) {
        beside_.clear();
        fail(path_);
    }
}

Draft::~Draft() {
    if (file_ >= 0) {
        close(file_);
    }
    if (!beside_.empty()) {
        unlink(beside_.c_str());
    }
}

void Draft::write(std::string_view bytes) {
    if (file_ < 0) {
        put(bytes);
        return;
    }
    while (!bytes.empty()) {
        const auto written = ::write(file_, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            fail(path_);
        }
        bytes.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
    }
}

int Draft::descriptor() const {
    return file_ < 0 ? STDOUT_FILENO : file_;
}

bool Draft::giveName() {
    if (!beside_.empty()) {
        return true;
    }
    const auto self = "/proc/self/fd/" + std::to_string(file_);
    auto name = path_ + "." + std::to_string(std::random_device{}());
    if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
        return false;
    }
    beside_ = std::move(name);
    return true;
}

void Draft::finish() {
    if (file_ < 0) {
        return;
    }
    if (fchmod(file_, mode_) != 0 || fsync(file_) != 0 || !giveName() ||
        rename(beside_.c_str(), path_.c_str()) != 0) {
        fail(path_);
    }
    beside_.clear();
    syncDirectory(path_);
}

} // namespace tavrisk::tools
