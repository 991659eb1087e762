// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/retention/files.hpp"

#include <cstdint>

namespace tavrisk::retention {

/**
 * Removes files of a directory, but only those that still are what was seen of them.
 *
 * The kernel removes names, whatever has them by then. So a file first moves, under its name, into
 * a directory ".removing" where nobody replaces it, and is looked at there; what has come into its
 * place goes back. What a killed run leaves there goes back as well. Where it cannot move, because
 * another run works in the directory or the file system is too full for one more directory, the
 * look comes just before the removal.
 */
class Remover {
public:
    /** Does not own the directory. */
    explicit Remover(int directory);
    ~Remover();
    Remover(const Remover&) = delete;
    Remover& operator=(const Remover&) = delete;

    /** False when it is not removed: it has gone or been replaced, or cannot be removed. */
    bool remove(const File& file);

private:
    bool isStill(int directory, const File& file) const;
    bool moveAside(const File& file);
    void putBack(const char* name) const;
    void putAllBack();

    int directory_;
    bool alone_;
    bool mayMove_;
    Descriptor aside_;
};

/** Removes the oldest files until what is left has no more than this many bytes. False when it
 *  still has more. Raises std::system_error when the directory cannot be read. */
bool trim(int directory, std::uint64_t limit);

} // namespace tavrisk::retention
