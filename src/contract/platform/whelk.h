/* SPDX-License-Identifier: Apache-2.0
 *
 * libwhelk.so.9: the platform debug log.
 */
#pragma once

/* NOLINTBEGIN(modernize-*): a C header */
#include <stdarg.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Logs one message; borrows the argument list. Never waits for another thread, so that it may be
 *  called in a child between fork and execve. */
void whelk_vprintf(uint8_t level, int component, const char* format, va_list args)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 0)))
#endif
    ;

#ifdef __cplusplus
}
#endif
/* NOLINTEND(modernize-*) */
