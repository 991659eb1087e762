/* SPDX-License-Identifier: Apache-2.0
 *
 * The codes of the bundled libkelp. Another library under that name has its own.
 */
#pragma once

enum KelpError {
    KELP_OK = 0,
    KELP_INVALID_ARGUMENT = 1, /* a null handle address, block or handle */
    KELP_NO_CLIENT = 2,        /* the block has no client descriptor */
    KELP_BAD_CLIENT_NAME = 3,  /* missing, empty, or longer than 63 bytes */
    KELP_BAD_VERSION = 4,      /* one of the two versions is not 17 */
    KELP_BAD_RESERVED = 5,     /* a reserved byte is not zero */
    KELP_OUT_OF_MEMORY = 6
};
