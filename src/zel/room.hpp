// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/sqlite.hpp"

#include <sys/types.h>

#include <cstdint>

/** Space that is taken while there is some, so that a full disk loses nothing. */
namespace tavrisk::zel {

/** Makes a file so long, or by half of what the disk has left, and has the disk keep that for it.
 *  Some file systems can do no such thing. False when the file is no longer than before. */
bool takeRoom(int file, off_t size);

/** Makes the tables of an empty database, with pages for that many bytes among its free ones, or
 * for a quarter of what the disk has left. To be called in a mode without a write-ahead log,
 * through which they would go. Raises SqliteError. */
void makeWithRoom(const Connection& connection, std::int64_t bytes);

/** Frees the pages where whoever made them could not any more. */
void finishRoom(const Connection& connection);

} // namespace tavrisk::zel
