// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/retention/copy.hpp"
#include "platform/retention/shelf.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tavrisk::retention {

/** A directory of the cache and the one of the store that it is saved to. */
struct Drawer {
    std::string path; // Of the cache's, for a person.
    Descriptor cache;
    std::unique_ptr<Shelf> shelf;
    bool refused = false;
};

/** Copies what is in the cache and not in the store yet, again until there is nothing left: files
 *  may come, change and go meanwhile. Copies get their names in batches, after one sync for all. */
class Saver {
public:
    Saver(int store, std::vector<Drawer> drawers);

    /** True when everything is saved, false when it has complained; raises an exception when there
     *  is no use in going on. */
    bool run();

private:
    struct Unsaved {
        Drawer* drawer;
        File file;
    };
    struct Space {
        std::uint64_t bytes;
        std::uint64_t files;
    };

    std::vector<Unsaved> lookForUnsaved();
    bool refuses(Drawer& drawer, const Plan& plan);
    void save(const Unsaved& unsaved);
    void copy(const Unsaved& unsaved);
    void flush();

    void withRoomFor(std::uint64_t bytes, const std::function<void()>& write);
    void makeRoom(std::uint64_t bytes);
    bool removeOldest(std::uint64_t files, std::uint64_t bytes);
    Shelf* withOldest();
    std::uint64_t removable() const;
    Space freeSpace() const;

    int store_;
    std::vector<Drawer> drawers_;
    Pace pace_;
    std::vector<std::pair<Shelf*, std::unique_ptr<Copy>>> batch_;
    std::uint64_t batchBytes_ = 0;
    /** Of this round, not copied yet. */
    std::uint64_t bytesLeft_ = 0;
    std::uint64_t filesLeft_ = 0;
};

} // namespace tavrisk::retention
