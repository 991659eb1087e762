// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/retention/files.hpp"

#include <cstdint>
#include <span>
#include <vector>

namespace tavrisk::retention {

constexpr std::uint64_t bytesPerMB = 1048576;

/** What is in a directory: regular files with names that do not begin with a full stop, which are
 *  what `rm -f *` removes when the daemon clears the cache after a save. */
struct Plan {
    std::vector<File> files; // The oldest first.
    std::uint64_t bytes = 0;
    /** There also is something that is neither a file nor a directory. */
    bool hasOthers = false;
};

/** Raises std::system_error when the directory cannot be read: that is not an empty one. */
Plan look(int directory);

/** The directories in a directory, but those whose names begin with a full stop. */
std::vector<std::string> directoriesIn(int directory);

/** The files that have to go so that what is left has no more than this many bytes. */
std::span<const File> excess(const Plan& plan, std::uint64_t limit);

/** By time of modification; files of the same one in the order in which they were made, as far as
 *  the inode numbers tell. */
bool isOlder(const File& one, const File& other);

} // namespace tavrisk::retention
