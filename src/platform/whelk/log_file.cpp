// SPDX-License-Identifier: Apache-2.0
#include "platform/whelk/log_file.hpp"

#include "platform/config.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace tavrisk::platform {
namespace {

constexpr mode_t fileMode = 0640;
constexpr mode_t directoryMode = 0755;

constexpr std::string_view path = debugLogPath;

// Compile-time texts: nothing here may allocate, or need a constructor to have run.
template <std::size_t Length>
constexpr auto nameOf(std::string_view first, std::string_view second) {
    std::array<char, Length + 1> name{};
    std::size_t at = 0;
    for (const auto part : {first, second}) {
        for (const char c : part) {
            name[at++] = c;
        }
    }
    return name;
}
constexpr std::string_view rotatedSuffix = ".1";
constexpr auto rotatedPath = nameOf<path.size() + rotatedSuffix.size()>(path, rotatedSuffix);
constexpr auto directory = nameOf<path.rfind('/')>(path.substr(0, path.rfind('/')), "");

class Descriptor {
public:
    explicit Descriptor(int opened) : descriptor_{opened} {}
    ~Descriptor() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : descriptor_{std::exchange(other.descriptor_, -1)} {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return descriptor_; }

private:
    int descriptor_;
};

Descriptor openFile() {
    // Not blocking: whatever stands there in place of a file must not hold the caller up.
    constexpr int flags =
        O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    Descriptor file{open(path.data(), flags, fileMode)};
    if (file.get() < 0 && errno == ENOENT && mkdir(directory.data(), directoryMode) == 0) {
        file = Descriptor{open(path.data(), flags, fileMode)};
    }
    return file;
}

/** Whether `file` is still what the path leads to, and not the one that was renamed. */
bool isCurrent(const struct stat& file) {
    struct stat current {};
    return stat(path.data(), &current) == 0 && current.st_ino == file.st_ino &&
           current.st_dev == file.st_dev;
}

/** Leaves in `file` the one to write to: the same, or a fresh one when it was full. False when
 * there is none. */
bool makeRoom(Descriptor& file, std::size_t size) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        return false;
    }
    if (status.st_size + static_cast<off_t>(size) <= debugLogMaxBytes) {
        return true;
    }
    // Whoever has the lock on the full file renames it, and only while the path leads to it: a
    // file that another has just begun is not rotated away. Not having it is no reason to wait,
    // the line then goes to the file at hand. A child that inherited it drops it with execve.
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        return true;
    }
    if (isCurrent(status) && std::rename(path.data(), rotatedPath.data()) != 0) {
        return false;
    }
    file = openFile();
    return file.get() >= 0;
}

} // namespace

void appendToDebugLog(std::string_view line) noexcept {
    auto file = openFile();
    if (makeRoom(file, line.size())) {
        // A log that cannot be written has nobody to tell.
        [[maybe_unused]] const auto written = write(file.get(), line.data(), line.size());
    }
}

} // namespace tavrisk::platform
