// SPDX-License-Identifier: Apache-2.0
#include "zel/guard.hpp"

#include "zel/room.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <system_error>
#include <utility>

namespace tavrisk::zel {
namespace {

/** The beginning of the `-shm` file, as SQLite documents it: twice the same header, then how many
 *  pages of the write-ahead log have come into the database. */
struct IndexHeader {
    std::uint32_t version; // of the format
    std::uint32_t unused, change;
    std::uint8_t isInitialised, bigEndianChecksums;
    std::uint16_t pageSize;
    std::uint32_t pagesInLog, pagesOfDatabase;
    std::array<std::uint32_t, 2> lastChecksum;
    std::array<unsigned char, 8> salt; // as it stands in the log
    std::array<std::uint32_t, 2> checksum;
};
struct Index {
    IndexHeader header, copy;
    std::uint32_t checkpointed;
};
static_assert(sizeof(IndexHeader) == 48);
constexpr std::uint32_t indexVersion = 3'007'000;

constexpr off_t logHeaderSize = 32;
constexpr off_t frameHeaderSize = 24;

std::uint32_t bigEndian(const unsigned char* bytes) {
    return (std::uint32_t{bytes[0]} << 24U) | (std::uint32_t{bytes[1]} << 16U) |
           (std::uint32_t{bytes[2]} << 8U) | bytes[3];
}

bool operator==(const IndexHeader& one, const IndexHeader& other) {
    return std::memcmp(&one, &other, sizeof one) == 0;
}

/** What a checkpoint leaves as it is in the header of a database; all but its change counter and
 *  its pages. */
bool sameKind(std::span<const unsigned char> one, std::span<const unsigned char> other) {
    constexpr std::array<std::pair<std::size_t, std::size_t>, 2> parts{{{0, 24}, {40, 52}}};
    return std::all_of(parts.begin(), parts.end(), [=](auto part) {
        const auto [at, size] = part;
        return std::memcmp(&one[at], &other[at], size) == 0;
    });
}

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error{errno, std::generic_category(), what};
}

} // namespace

Guard::File::File(std::string path)
    : path_{std::move(path)}, descriptor_{open(path_.c_str(), O_RDWR | O_CLOEXEC)} {
    if (descriptor_ < 0) {
        fail(path_);
    }
    opened_ = status();
}

Guard::File::~File() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

struct stat Guard::File::status() const {
    struct stat status {};
    fstat(descriptor_, &status);
    return status;
}

struct stat Guard::File::named() const {
    struct stat status {};
    if (stat(path_.c_str(), &status) != 0) {
        status = {};
    }
    return status;
}

bool Guard::File::hasItsName() const {
    const auto there = named();
    return opened_.st_dev == there.st_dev && opened_.st_ino == there.st_ino;
}

bool Guard::File::read(void* to, std::size_t size, off_t at) const {
    return pread(descriptor_, to, size, at) == static_cast<ssize_t>(size);
}

void Guard::File::putBack() const {
    const auto made = path_ + ".putting-back";
    const int copy = open(made.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    off_t at = 0;
    const auto size = status().st_size;
    while (copy >= 0 && at < size) {
        std::array<char, 65536> part; // NOLINT(*-member-init): read in the next line
        const auto got = pread(descriptor_, part.data(), part.size(), at);
        if (got <= 0 || write(copy, part.data(), static_cast<std::size_t>(got)) != got) {
            break;
        }
        at += got;
    }
    const bool whole = copy >= 0 && at >= size && fsync(copy) == 0;
    const int reason = errno;
    if (copy >= 0) {
        close(copy);
    }
    if (!whole || rename(made.c_str(), path_.c_str()) != 0) {
        unlink(made.c_str());
        errno = reason;
        fail(path_);
    }
}

Guard::Guard(const std::string& path)
    : database_{path}, log_{path + "-wal"}, index_{path + "-shm"} {
    growSharedMemory();
    status_ = database_.status();
    static_cast<void>(database_.read(header_.data(), header_.size(), 0));
}

void Guard::growSharedMemory() {
    const auto size = index_.status().st_size;
    if (size < sharedMemory_ && ftruncate(index_.descriptor(), sharedMemory_) == 0) {
        // What is left of it must not be believed: without a header, SQLite makes it anew.
        constexpr std::array<char, sizeof(Index)> nothing{};
        static_cast<void>(pwrite(index_.descriptor(), nothing.data(), nothing.size(), 0));
    }
    sharedMemory_ = std::max(sharedMemory_, size);
}

// SQLite takes a log that ends with zeros as one that ends before them.
void Guard::reserveLog(off_t size) const {
    takeRoom(log_.descriptor(), size);
}

Guard::State Guard::look() {
    for (const auto state : {lookAtNames(), lookAtDatabase(), lookAtLog()}) {
        if (state != State::sound) {
            return state;
        }
    }
    return State::sound;
}

Guard::State Guard::lookAtNames() const {
    if (!database_.hasItsName()) {
        return database_.named().st_size != 0     ? State::replaced
               : database_.status().st_nlink != 0 ? State::moved
                                                  : State::removed;
    }
    return !log_.hasItsName()    ? State::removed
           : index_.hasItsName() ? State::sound
                                 : State::doubtful;
}

/** A checkpoint does not count the changes back, and takes no page and no block away. */
Guard::State Guard::lookAtDatabase() {
    Header header{};
    const auto status = database_.status();
    if (!database_.read(header.data(), header.size(), 0)) {
        return State::damaged;
    }
    if (!sameKind(header, header_) || bigEndian(&header[24]) < bigEndian(&header_[24]) ||
        status.st_size < status_.st_size || status.st_blocks < status_.st_blocks) {
        return State::doubtful;
    }
    header_ = header;
    status_ = status;
    return State::sound;
}

/** The index knows the log's header, and the checksum over all of it up to the last page. */
Guard::State Guard::lookAtLog() {
    Index index{};
    for (Index before{}; index_.read(&index, sizeof index, 0); before = index) {
        pagesInLog_ = index.header.pagesInLog;
        isCheckpointed_ = index.header.isInitialised != 0 && index.checkpointed >= pagesInLog_;
        const off_t pageSize = index.header.pageSize == 1 ? 65536 : index.header.pageSize;
        std::array<unsigned char, logHeaderSize> head{};
        std::array<unsigned char, frameHeaderSize> last{};
        const bool matches =
            index.header == index.copy &&
            (pagesInLog_ == 0 ||
             (log_.read(head.data(), head.size(), 0) &&
              log_.read(last.data(), last.size(),
                        logHeaderSize + (pagesInLog_ - 1) * (pageSize + frameHeaderSize)) &&
              std::memcmp(&head[16], index.header.salt.data(), index.header.salt.size()) == 0 &&
              std::memcmp(&last[8], index.header.salt.data(), index.header.salt.size()) == 0 &&
              bigEndian(&last[16]) == index.header.lastChecksum[0] &&
              bigEndian(&last[20]) == index.header.lastChecksum[1]));
        if (matches) {
            return State::sound;
        }
        if (index.header == before.header && index.copy == before.copy) {
            const bool isIndex = index.header == index.copy && index.header.version == indexVersion;
            return isIndex ? State::damaged : State::doubtful;
        }
    }
    return State::doubtful;
}

void Guard::putBack() const {
    for (const auto* file : {&log_, &database_}) {
        if (!file->hasItsName()) {
            file->putBack();
        }
    }
}

} // namespace tavrisk::zel
