// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/retention/files.hpp"

namespace tavrisk::retention {

/**
 * Where copies wait for their place in a directory of the store: ".saving" in it, in that a
 * directory for each final size, and in those the copies under their own names. So a later run can
 * tell a whole one, and where it belongs, from one that a kill has cut short.
 */
class Stage {
public:
    /** Does not own the directory. */
    explicit Stage(int directory) : directory_{directory} {}

    /** The directory for copies of this size, made when there is none. */
    Descriptor enter(off_t size) const;
    /** Removes that directory, and the stage, unless there are other copies in them. */
    void leave(off_t size) const;
    /** Gives whole copies of a run that was killed their places and removes the others. The store's
     *  top directory is for the sync before that. */
    void recover(int store) const;

private:
    int directory_;
};

} // namespace tavrisk::retention
