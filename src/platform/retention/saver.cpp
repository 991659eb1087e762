// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/saver.hpp"

#include "platform/retention/save.hpp"

#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace tavrisk::retention {
namespace {

/** Each holds a descriptor. */
constexpr std::size_t filesPerBatch = 128;

std::string unsavedIn(const Drawer& drawer, const std::string& why) {
    return "not everything in " + drawer.path + " could be saved: " + why;
}

/** Why it cannot be copied, or nothing. */
const char* hindrance(const struct stat& status) {
    return !S_ISREG(status.st_mode) ? "there is something that is no file"
           : static_cast<std::uint64_t>(status.st_size) > Shelf::most
               ? "its files have more than 200 MB"
               : nullptr;
}

} // namespace

Saver::Saver(int store, std::vector<Drawer> drawers)
    : store_{store}, drawers_{std::move(drawers)}, pace_{store} {}

bool Saver::run() {
    constexpr int rounds = 6;
    constexpr useconds_t pause = 100'000;
    for (int round = 0; round < rounds; ++round) {
        const auto unsaved = lookForUnsaved();
        if (unsaved.empty()) {
            pace_.sync(); // The names.
            return std::ranges::none_of(drawers_, &Drawer::refused);
        }
        usleep(round > 1 ? pause : 0);
        std::ranges::for_each(unsaved, [this](const auto& each) { save(each); });
        flush();
    }
    throw std::runtime_error{"not everything could be saved: files keep changing"};
}

std::vector<Saver::Unsaved> Saver::lookForUnsaved() {
    std::vector<Unsaved> unsaved;
    bytesLeft_ = 0;
    for (auto& drawer : drawers_) {
        auto plan = look(drawer.cache.get());
        if (refuses(drawer, plan)) {
            continue;
        }
        for (auto& file : plan.files) {
            if (!drawer.shelf->has(file, drawer.cache.get())) {
                bytesLeft_ += occupied(file.identity.size);
                unsaved.push_back({&drawer, std::move(file)});
            }
        }
    }
    filesLeft_ = unsaved.size();
    return unsaved;
}

bool Saver::refuses(Drawer& drawer, const Plan& plan) {
    // A clearing would remove them too.
    const auto* const why = plan.hasOthers             ? "there is something that is no file"
                            : plan.bytes > Shelf::most ? "its files have more than 200 MB"
                                                       : nullptr;
    if (why != nullptr && !drawer.refused) {
        complain(unsavedIn(drawer, why));
        drawer.refused = true;
    }
    return drawer.refused;
}

void Saver::save(const Unsaved& unsaved) {
    const auto bytes = occupied(unsaved.file.identity.size);
    try {
        withRoomFor(bytes, [&] { copy(unsaved); });
    } catch (const std::exception& error) {
        throw std::runtime_error{unsavedIn(*unsaved.drawer, error.what())};
    }
    bytesLeft_ -= bytes;
    --filesLeft_;
}

void Saver::copy(const Unsaved& unsaved) {
    const auto source = openToRead(unsaved.drawer->cache.get(), unsaved.file.name);
    if (!source) {
        if (errno != ENOENT) {
            raiseErrno("opening a file");
        }
        return; // It has vanished and needs no saving.
    }
    const auto status = statusOf(source);
    if (const auto* const why = hindrance(status)) {
        throw std::runtime_error{why};
    }
    const File file{unsaved.file.name, Identity{status}};
    const auto bytes = static_cast<std::uint64_t>(file.identity.size);
    if (batch_.size() >= filesPerBatch || batchBytes_ + bytes > Pace::most) {
        flush();
    }
    auto copy = std::make_unique<Copy>(unsaved.drawer->shelf->directory(), file);
    copy->fill(source, pace_);
    // One that has changed meanwhile has its turn in the next round.
    if (Identity{statusOf(source)} == file.identity) {
        batch_.emplace_back(unsaved.drawer->shelf.get(), std::move(copy));
        batchBytes_ += bytes;
    }
}

void Saver::flush() {
    const auto batch = std::exchange(batch_, {});
    batchBytes_ = 0;
    if (batch.empty()) {
        return;
    }
    pace_.sync();
    for (const auto& [shelf, copy] : batch) {
        copy->checkWritten();
    }
    for (const auto& [shelf, copy] : batch) {
        withRoomFor(0, [&shelf = *shelf, &copy = *copy] { shelf.put(copy); });
    }
}

void Saver::withRoomFor(std::uint64_t bytes, const std::function<void()>& write) {
    for (;;) {
        try {
            return write();
        } catch (const std::system_error& error) {
            if (!isFull(error)) {
                throw;
            }
        }
        makeRoom(bytes);
    }
}

/** For this many bytes at least and, as every time takes a sync, for what comes soon as well. */
void Saver::makeRoom(std::uint64_t bytes) {
    if (!batch_.empty()) {
        return flush(); // What it replaces may be room enough.
    }
    const auto free = freeSpace();
    const auto files = free.files == 0 ? std::min<std::uint64_t>(filesLeft_, filesPerBatch) : 1;
    const auto wanted = std::max(bytes, std::min<std::uint64_t>(bytesLeft_, Pace::most));
    if (bytes > free.bytes + removable() ||
        !removeOldest(files, wanted - std::min(wanted, free.bytes))) {
        throw std::runtime_error{
            "no room in the store for " + std::to_string(bytes) +
            " bytes: " + std::to_string(free.bytes) + " bytes and " + std::to_string(free.files) +
            " inodes are free, older copies have " + std::to_string(removable()) + " bytes"};
    }
    pace_.sync(); // Many file systems give blocks back no sooner.
}

/** Removes at least that many files with that many bytes, of whatever directory, if there are as
 *  many. False when there is none at all. */
bool Saver::removeOldest(std::uint64_t files, std::uint64_t bytes) {
    std::uint64_t removed = 0;
    for (std::uint64_t freed = 0; removed < files || freed < bytes;) {
        auto* const shelf = withOldest();
        if (shelf == nullptr) {
            break;
        }
        const auto size = shelf->oldest()->identity.size;
        if (shelf->removeOldest()) {
            ++removed;
            freed += occupied(size);
        }
    }
    return removed > 0;
}

Shelf* Saver::withOldest() {
    Shelf* found = nullptr;
    for (const auto& drawer : drawers_) {
        const auto* const candidate = drawer.shelf->oldest();
        if (candidate != nullptr && (found == nullptr || isOlder(*candidate, *found->oldest()))) {
            found = drawer.shelf.get();
        }
    }
    return found;
}

std::uint64_t Saver::removable() const {
    std::uint64_t bytes = 0;
    for (const auto& drawer : drawers_) {
        bytes += drawer.shelf->removable();
    }
    return bytes;
}

Saver::Space Saver::freeSpace() const {
    struct statvfs free {};
    if (fstatvfs(store_, &free) != 0) {
        raiseErrno("looking at the store");
    }
    return {.bytes = std::uint64_t{free.f_bavail} * free.f_frsize, .files = free.f_favail};
}

} // namespace tavrisk::retention
