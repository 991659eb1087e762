// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/copy.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

namespace tavrisk::retention {
namespace {

/** Names of open files: the way to name a file without one that takes no capability. */
constexpr auto openFiles = "/proc/self/fd";

constexpr mode_t ownerOnly = 0600;
constexpr auto writingDone = "writing a copy";
constexpr auto namingDone = "giving a copy its name";

/** A file without a name. Negative where those cannot be had, or could not be named. */
Descriptor openUnnamed(int directory) {
    if (faccessat(AT_FDCWD, openFiles, X_OK, 0) != 0) {
        return {};
    }
    Descriptor file{openat(directory, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, ownerOnly)};
    // An old kernel takes it for the directory.
    if (!file && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
        raiseErrno("making a copy");
    }
    return file;
}

void writeAll(int file, const char* bytes, std::size_t count, off_t at) {
    while (count > 0) {
        const auto written = pwrite(file, bytes, count, at);
        if (written < 0 && errno != EINTR) {
            raiseErrno(writingDone);
        }
        const auto progress = std::max<ssize_t>(written, 0);
        bytes += progress;
        at += progress;
        count -= static_cast<std::size_t>(progress);
    }
}

} // namespace

void Pace::writing(std::size_t bytes) {
    if (unsynced_ + bytes > most) {
        sync();
    }
    unsynced_ += bytes;
}

void Pace::sync() {
    if (syncfs(store_) != 0) {
        raiseErrno("synchronising the store");
    }
    unsynced_ = 0;
}

Copy::Copy(int directory, File source)
    : directory_{directory},
      source_{std::move(source)},
      stage_{directory},
      file_{openUnnamed(directory)} {
    if (file_) {
        return;
    }
    staged_ = stage_.enter(source_.identity.size);
    const auto* const name = source_.name.c_str();
    unlinkat(staged_.get(), name, 0);
    file_.reset(
        openat(staged_.get(), name, O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, ownerOnly));
    if (!file_) {
        const int error = errno;
        leaveStage();
        throw std::system_error{error, std::generic_category(), "making a copy"};
    }
}

Copy::~Copy() {
    if (staged_) {
        unlinkat(staged_.get(), source_.name.c_str(), 0);
        leaveStage();
    }
}

void Copy::leaveStage() {
    staged_.reset();
    stage_.leave(source_.identity.size);
}

void Copy::fill(const Descriptor& source, Pace& pace) {
    const off_t size = source_.identity.size;
    off_t begin = lseek(source.get(), 0, SEEK_DATA);
    while (begin >= 0 && begin < size) {
        const off_t end = lseek(source.get(), begin, SEEK_HOLE);
        copyRange(source.get(), begin, end < 0 ? size : std::min(end, size), pace);
        begin = end < 0 ? end : lseek(source.get(), end, SEEK_DATA);
    }
    if (begin < 0 && errno != ENXIO) {
        raiseErrno("reading a file");
    }

    const auto status = statusOf(source);
    // Neither is for everybody, nor in every file system.
    [[maybe_unused]] const auto owned = fchown(file_.get(), status.st_uid, status.st_gid);
    fchmod(file_.get(), status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO));
    const std::array times{status.st_atim, status.st_mtim};
    // A hole at the end has not been written.
    if (ftruncate(file_.get(), size) != 0 || futimens(file_.get(), times.data()) != 0) {
        raiseErrno(writingDone);
    }
}

void Copy::copyRange(int source, off_t begin, off_t end, Pace& pace) const {
    static std::array<char, 256 * 1024> buffer;
    while (begin < end) {
        const auto most =
            std::min<std::size_t>(buffer.size(), static_cast<std::size_t>(end - begin));
        const auto count = pread(source, buffer.data(), most, begin);
        if (count < 0 && errno != EINTR) {
            raiseErrno("reading a file");
        }
        if (count == 0) {
            return; // It has become shorter, which its status tells.
        }
        if (count > 0) {
            pace.writing(static_cast<std::size_t>(count));
            writeAll(file_.get(), buffer.data(), static_cast<std::size_t>(count), begin);
            begin += count;
        }
    }
}

void Copy::checkWritten() const {
    // Old kernels' syncfs() tells nothing of failed writes; this waits for nothing any more.
    if (sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WAIT_BEFORE) != 0 && errno == EIO) {
        raiseErrno(writingDone);
    }
}

/** Into the directory or, where its name is taken, into the stage. True when that is all. */
bool Copy::link() {
    std::array<char, 32> open{};
    std::snprintf(open.data(), open.size(), "%s/%d", openFiles, file_.get());
    const auto* const name = source_.name.c_str();
    if (linkat(AT_FDCWD, open.data(), directory_, name, AT_SYMLINK_FOLLOW) == 0) {
        return true;
    }
    if (errno != EEXIST) {
        raiseErrno(namingDone);
    }
    auto stage = stage_.enter(source_.identity.size);
    unlinkat(stage.get(), name, 0);
    if (linkat(AT_FDCWD, open.data(), stage.get(), name, AT_SYMLINK_FOLLOW) != 0) {
        const int error = errno;
        stage_.leave(source_.identity.size);
        throw std::system_error{error, std::generic_category(), namingDone};
    }
    staged_ = std::move(stage);
    return false;
}

void Copy::place() {
    if (!staged_ && link()) {
        return;
    }
    const auto* const name = source_.name.c_str();
    if (renameat(staged_.get(), name, directory_, name) != 0) {
        raiseErrno(namingDone);
    }
    leaveStage();
}

} // namespace tavrisk::retention
