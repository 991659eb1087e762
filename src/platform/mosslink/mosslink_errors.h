/* SPDX-License-Identifier: Apache-2.0
 *
 * The codes of the bundled libmosslink. Another library under that name has its own.
 */
#pragma once

enum MOSSLINKError {
    MOSSLINK_OK = 0,
    MOSSLINK_INVALID_ARGUMENT = 1, /* a null pointer, or an argument list that is malformed */
    MOSSLINK_OUT_OF_MEMORY = 2,
    MOSSLINK_BUFFER_TOO_SMALL = 3, /* the packed arguments exceed the capacity */
    MOSSLINK_CANNOT_OPEN = 4,      /* no database, and none could be made */
    MOSSLINK_BUSY = 5,             /* other processes kept the database locked for too long */
    MOSSLINK_NO_SPACE = 6,
    MOSSLINK_STORAGE_FAILED = 7,   /* the file system refused a read or a write */
    MOSSLINK_DATABASE_DAMAGED = 8, /* and could not be replaced */
    MOSSLINK_DATABASE_NEWER = 9,   /* written by a later version; left as it is */
    MOSSLINK_INTERNAL = 10,
    MOSSLINK_NO_SHARED_MAPS = 11 /* the file system lets no file be mapped for several processes */
};
