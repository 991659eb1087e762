// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/save.hpp"

#include "contract/places.hpp"
#include "platform/retention/saver.hpp"

#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace tavrisk::retention {
namespace {

constexpr auto cachePath = tavrisk::dataRoot;
constexpr auto storePath = tavrisk::savedRoot;
/** Below both. */
constexpr std::array directories{"", tavrisk::dumpDirectory, tavrisk::rawCperDirectory};

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr mode_t asUsual = 0777; // Less what the umask says.

Descriptor openStore() {
    if (mkdir(storePath, asUsual) != 0 && errno != EEXIST) {
        raiseErrno(std::string{"making "} + storePath);
    }
    auto store = opened(open(storePath, directoryFlags), std::string{"opening "} + storePath);
    // Until an earlier save is done; how long that may take is not decided here.
    while (flock(store.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            raiseErrno(std::string{"locking "} + storePath);
        }
    }
    return store;
}

/** Negative for a subdirectory that is not there, and so has nothing to be saved. */
Descriptor openCache(const char* directory) {
    const auto path = std::string{cachePath} + directory;
    Descriptor cache{open(path.c_str(), directoryFlags)};
    if (!cache && (*directory == '\0' || errno != ENOENT)) {
        raiseErrno("opening " + path);
    }
    return cache;
}

/** Makes room for it with the copies that are in the directories before it. */
void makeDirectory(const std::string& path, std::span<const Drawer> before) {
    while (mkdir(path.c_str(), asUsual) != 0 && errno != EEXIST) {
        const std::system_error error{errno, std::generic_category(), "making " + path};
        const auto full = std::ranges::find_if(
            before, [](const auto& each) { return each.shelf->oldest() != nullptr; });
        if (!isFull(error) || full == before.end()) {
            throw error;
        }
        full->shelf->removeOldest();
    }
}

/** The store's directory of this name; the store itself has the lock that goes with it. */
Descriptor openShelf(const Descriptor& store, const char* directory,
                     std::span<const Drawer> before) {
    if (*directory == '\0') {
        return opened(fcntl(store.get(), F_DUPFD_CLOEXEC, 0), "opening the store");
    }
    const auto path = std::string{storePath} + directory;
    makeDirectory(path, before);
    return opened(open(path.c_str(), directoryFlags), "opening " + path);
}

/** When nothing is mounted at /mmc1, the store is somewhere else: the cache's own memory does not
 *  keep anything, the root file system does. */
void checkPlace(const Descriptor& store, const Descriptor& cache) {
    if (statusOf(store).st_dev == statusOf(cache).st_dev) {
        throw std::runtime_error{std::string{storePath} + " is on the file system of " + cachePath +
                                 ", nothing was saved: is nothing mounted at /mmc1?"};
    }
}

void warnOfRoot(const Descriptor& store) {
    struct stat root {};
    if (stat("/", &root) == 0 && root.st_dev == statusOf(store).st_dev) {
        complain(std::string{storePath} +
                 " is on the root file system: is nothing mounted at /mmc1?");
    }
}

std::vector<Drawer> openDrawers(const Descriptor& store) {
    std::vector<Drawer> drawers;
    for (const auto* directory : directories) {
        if (auto cache = openCache(directory)) {
            checkPlace(store, cache);
            auto shelf = std::make_unique<Shelf>(openShelf(store, directory, drawers), store.get());
            drawers.push_back(
                {std::string{cachePath} + directory, std::move(cache), std::move(shelf)});
        }
    }
    return drawers;
}

} // namespace

void complain(const std::string& sentence) {
    std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, sentence.c_str());
}

bool save() {
    const auto store = openStore();
    auto drawers = openDrawers(store);
    warnOfRoot(store);
    return Saver{store.get(), std::move(drawers)}.run();
}

} // namespace tavrisk::retention
