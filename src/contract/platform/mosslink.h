/* SPDX-License-Identifier: Apache-2.0
 *
 * libmosslink.so.9: client of the persistent platform event log (ZEL).
 * Every call returns 0 on success, otherwise the library's own code, and may come from
 * several threads at once, each on its own list.
 */
#pragma once

/* NOLINTBEGIN(modernize-*): a C header */
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Completion callback of a submission; both pointers belong to whoever registered it. */
typedef void (*MOSSLINKCallback)(const char* text, int32_t status, void* cli_opq_data,
                                 void* user_data);

/** Packs `count` NUL-terminated strings into `buffer`. `length` holds the buffer's capacity in
 *  bytes on entry and the packed length on return. */
int32_t MOSSLINKBuildMsgArgsBuffer(char** args, uint32_t count, void* buffer, uint32_t* length);

/** Creates an empty list; the caller releases it with MOSSLINKFreeTLVList. */
int32_t MOSSLINKCreateTLVList(void** list);

/** Appends one tag-length-value entry; `value` must live until the list is freed. */
int32_t MOSSLINKAddTLVToList(uint16_t tag, uint16_t length, const void* value, void* list);

/** Records the event `message_id` with the list's arguments in the ZEL. The meaning of the first
 * two values is the platform's. */
int32_t MOSSLINKSubmitEvent(uint32_t first, uint32_t second, uint16_t severity,
                            const char* message_id, MOSSLINKCallback callback, void* user_data,
                            void* list);

int32_t MOSSLINKFreeTLVList(void* list);

#ifdef __cplusplus
}
#endif
/* NOLINTEND(modernize-*) */
