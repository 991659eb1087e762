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
#include <utility>

namespace tavrisk::tools {
namespace {

[[noreturn]] void fail(const std::string& path) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    throw Failure{Exit::failed, path + ": " + std::strerror(errno)};
}

void syncDirectory(const std::string& path) {
    const auto directory = std::filesystem::path{path}.parent_path();
    const int opened =
        open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
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
    beside_ = path_ + ".XXXXXX";
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

void Draft::finish() {
    if (file_ < 0) {
        return;
    }
    if (fchmod(file_, mode_) != 0 || fsync(file_) != 0 ||
        rename(beside_.c_str(), path_.c_str()) != 0) {
        fail(path_);
    }
    beside_.clear();
    syncDirectory(path_);
}

} // namespace tavrisk::tools
