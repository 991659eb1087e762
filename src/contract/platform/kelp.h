/* SPDX-License-Identifier: Apache-2.0
 *
 * libkelp.so: client of the platform data store. 0 on success, otherwise its own code.
 */
#pragma once

/* NOLINTBEGIN(modernize-*): a C header */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Opens a connection described by the 104-byte `init_block`; the caller closes the handle with
 *  kelpc_destroy. */
int32_t kelpc_initialize(void** handle, const void* init_block);

int32_t kelpc_destroy(void* handle);

#ifdef __cplusplus
}
#endif
/* NOLINTEND(modernize-*) */
