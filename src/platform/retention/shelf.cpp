// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/shelf.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

namespace tavrisk::retention {
namespace {

bool haveSameContents(const Descriptor& one, const Descriptor& other) {
    static std::array<char, 64 * 1024> buffer;
    static std::array<char, buffer.size()> otherBuffer;
    off_t at = 0;
    for (;;) {
        const auto count = pread(one.get(), buffer.data(), buffer.size(), at);
        const auto otherCount = pread(other.get(), otherBuffer.data(), otherBuffer.size(), at);
        if (count < 0 || count != otherCount ||
            !std::equal(buffer.begin(), buffer.begin() + count, otherBuffer.begin())) {
            return false;
        }
        if (count == 0) {
            return true;
        }
        at += count;
    }
}

/** Makes the copy as young as the file that it turned out to be one of. */
void giveTimes(const Descriptor& copy, const struct stat& of) {
    const std::array times{of.st_atim, of.st_mtim};
    futimens(copy.get(), times.data());
}

} // namespace

Shelf::Shelf(Descriptor directory, int store)
    : directory_{std::move(directory)}, remover_{directory_.get()} {
    see();
    takeOver(store);
    see(); // Copies of the stage are as good as any other.
    limit();
}

void Shelf::see() {
    before_ = look(directory_.get());
    next_ = 0;
    bytes_ = before_.bytes;
}

void Shelf::takeOver(int store) {
    for (;;) {
        try {
            return Stage{directory_.get()}.recover(store);
        } catch (const std::system_error& error) {
            // A directory that is full needs room for names, too.
            if (!isFull(error) || oldest() == nullptr) {
                throw;
            }
            removeOldest();
        }
    }
}

bool Shelf::has(const File& file, int cache) {
    const auto copy = openToRead(directory_.get(), file.name);
    if (!copy) {
        return false;
    }
    const auto status = statusOf(copy);
    if (const auto saved = saved_.find(status.st_ino); saved != saved_.end()) {
        return saved->second == file.identity;
    }
    if (!S_ISREG(status.st_mode) || status.st_size != file.identity.size) {
        return false;
    }
    const auto original = openToRead(cache, file.name);
    if (!original || !haveSameContents(original, copy) ||
        Identity{statusOf(original)} != file.identity) {
        return false;
    }
    giveTimes(copy, statusOf(original));
    saved_.emplace(status.st_ino, file.identity);
    return true;
}

void Shelf::put(Copy& copy) {
    const auto replaced = statusOf(directory_.get(), copy.source().name.c_str());
    copy.place();
    if (replaced && S_ISREG(replaced->st_mode)) {
        bytes_ -= static_cast<std::uint64_t>(replaced->st_size);
        saved_.erase(replaced->st_ino);
    }
    bytes_ += static_cast<std::uint64_t>(copy.source().identity.size);
    saved_.emplace(copy.inode(), copy.source().identity);
    limit();
}

void Shelf::limit() {
    while (bytes_ > most && oldest() != nullptr) {
        removeOldest();
    }
}

const File* Shelf::oldest() {
    while (next_ < before_.files.size() && saved_.contains(before_.files[next_].identity.inode)) {
        ++next_;
    }
    return next_ < before_.files.size() ? &before_.files[next_] : nullptr;
}

bool Shelf::removeOldest() {
    const auto& file = before_.files[next_++];
    if (!remover_.remove(file)) {
        return false;
    }
    bytes_ -= static_cast<std::uint64_t>(file.identity.size);
    return true;
}

std::uint64_t Shelf::removable() const {
    std::uint64_t bytes = 0;
    for (auto i = next_; i < before_.files.size(); ++i) {
        const auto& identity = before_.files[i].identity;
        bytes += saved_.contains(identity.inode) ? 0 : occupied(identity.size);
    }
    return bytes;
}

} // namespace tavrisk::retention
