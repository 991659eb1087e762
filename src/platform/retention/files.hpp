// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace tavrisk::retention {

/** An open file or directory, closed with the instance. */
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_{number} {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : number_{std::exchange(other.number_, -1)} {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(std::exchange(other.number_, -1));
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    explicit operator bool() const { return number_ >= 0; }
    int get() const { return number_; }
    void reset(int number = -1) {
        if (number_ >= 0) {
            close(number_);
        }
        number_ = number;
    }

private:
    int number_ = -1;
};

/** Which file it is and what is in it, as far as can be told without reading it. */
struct Identity {
    ino_t inode;
    off_t size;
    std::int64_t seconds;
    std::int64_t nanoseconds;

    explicit Identity(const struct stat& status)
        : inode{status.st_ino},
          size{status.st_size},
          seconds{status.st_mtim.tv_sec},
          nanoseconds{status.st_mtim.tv_nsec} {}
    bool operator==(const Identity&) const = default;
};

/** What a file of this size takes of most file systems: whole pages. */
constexpr std::uint64_t occupied(off_t size) {
    constexpr std::uint64_t page = 4096;
    return (static_cast<std::uint64_t>(size) + page - 1) / page * page;
}

/** A file of a directory. Peers choose the names; they are handed on as they are. */
struct File {
    std::string name;
    Identity identity;
};

/** Raises std::system_error with the present errno and what was being done. */
[[noreturn]] void raiseErrno(const std::string& doing);

/** Whether it is one that goes away with some more room. */
bool isFull(const std::system_error& error);

/** The descriptor that a call has returned; raises std::system_error for a negative one. */
Descriptor opened(int number, const std::string& doing);

/** What has this name in the directory, links not followed; nothing when there is none. */
std::optional<struct stat> statusOf(int directory, const char* name);
struct stat statusOf(const Descriptor& file);

/** Opens a file for reading without waiting for whatever it is; the descriptor is negative when it
 *  cannot be opened. */
Descriptor openToRead(int directory, const std::string& name);

/** Opens a directory of ours in the given one, and makes it first. A file in its place is removed:
 *  names that begin with a full stop are nobody else's. Negative when it cannot be had. */
Descriptor openOwnDirectory(int parent, const char* name);

} // namespace tavrisk::retention
