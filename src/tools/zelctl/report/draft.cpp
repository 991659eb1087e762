// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/draft.hpp"

#include "tools/common/failure.hpp"
#include "tools/common/output.hpp"
#include "zel/files.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tavrisk::tools {
namespace {

[[noreturn]] void fail(const std::string& path) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    throw Failure{Exit::failed, path + ": " + std::strerror(errno)};
}

} // namespace

Draft::Draft(std::string path) : path_{std::move(path)} {
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

void Draft::finish() {
    if (file_ < 0) {
        return;
    }
    if (fsync(file_) != 0 || rename(beside_.c_str(), path_.c_str()) != 0) {
        fail(path_);
    }
    beside_.clear();
    zel::Directory{std::filesystem::path{path_}.parent_path()}.sync();
}

} // namespace tavrisk::tools
