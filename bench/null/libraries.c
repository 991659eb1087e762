/* SPDX-License-Identifier: Apache-2.0
 *
 * The platform's three libraries, doing nothing: what is measured is the daemon. One source for
 * all.
 */
#include "contract/platform/kelp.h"
#include "contract/platform/mosslink.h"
#include "contract/platform/whelk.h"

int32_t MOSSLINKBuildMsgArgsBuffer(char** args, uint32_t count, void* buffer, uint32_t* length) {
    (void)args, (void)count, (void)buffer;
    *length = 0;
    return 0;
}

int32_t MOSSLINKCreateTLVList(void** list) {
    *list = 0;
    return 0;
}

int32_t MOSSLINKAddTLVToList(uint16_t tag, uint16_t length, const void* value, void* list) {
    (void)tag, (void)length, (void)value, (void)list;
    return 0;
}

int32_t MOSSLINKSubmitEvent(uint32_t first, uint32_t second, uint16_t severity,
                            const char* message_id, MOSSLINKCallback callback, void* user_data,
                            void* list) {
    (void)first, (void)second, (void)severity, (void)message_id, (void)callback, (void)user_data;
    (void)list;
    return 0;
}

int32_t MOSSLINKFreeTLVList(void* list) {
    (void)list;
    return 0;
}

int32_t kelpc_initialize(void** handle, const void* init_block) {
    (void)init_block;
    *handle = 0;
    return 0;
}

int32_t kelpc_destroy(void* handle) {
    (void)handle;
    return 0;
}

void whelk_vprintf(uint8_t level, int component, const char* format, va_list args) {
    (void)level, (void)component, (void)format, (void)args;
}
