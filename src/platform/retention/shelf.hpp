// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/retention/copy.hpp"
#include "platform/retention/plan.hpp"
#include "platform/retention/trim.hpp"

#include <cstdint>
#include <unordered_map>

namespace tavrisk::retention {

/**
 * One directory of the store: what this save has put there, and what was there before. It never has
 * more than 200 MB, but for the copies of this save.
 *
 * All operations raise std::system_error.
 */
class Shelf {
public:
    /** Twice what the greatest retention size leaves in a directory of the cache, so that there is
     *  always room for a save and some history. */
    static constexpr std::uint64_t most = 200 * bytesPerMB;

    /** Takes over what a run that was killed has left. */
    Shelf(Descriptor directory, int store);

    int directory() const { return directory_.get(); }
    /** Whether this file of the cache is here: from now on, the copy belongs to this save. */
    bool has(const File& file, int cache);
    /** Gives a copy its name, and makes older ones go if there are more than fit. */
    void put(Copy& copy);

    /** The oldest copy that is not of this save, or null. */
    const File* oldest();
    /** Removes that one; false when it has gone already or cannot be removed. */
    bool removeOldest();
    /** What the copies that are not of this save have taken on the medium, at most. */
    std::uint64_t removable() const;

private:
    void takeOver(int store);
    void see();
    void limit();

    Descriptor directory_;
    Remover remover_;
    Plan before_;
    std::size_t next_ = 0;
    std::uint64_t bytes_ = 0;
    /** By the inode number of the copy: what it is a copy of. */
    std::unordered_map<ino_t, Identity> saved_;
};

} // namespace tavrisk::retention
