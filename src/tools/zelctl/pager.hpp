// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

namespace tavrisk::tools {

/** While it is there, what is put out goes through the user's pager: $PAGER, or else less, where
 *  there is one. */
class Pager {
public:
    Pager();
    /** Waits until the user has left it. */
    ~Pager();
    Pager(const Pager&) = delete;
    Pager& operator=(const Pager&) = delete;

private:
    pid_t pid_ = -1;
    int terminal_ = -1;
};

} // namespace tavrisk::tools
