#include <mosslink.h>
int32_t MOSSLINKBuildMsgArgsBuffer(char**, uint32_t, void*, uint32_t*) {
    return 0;
}
int32_t MOSSLINKCreateTLVList(void**) {
    return 0;
}
int32_t MOSSLINKAddTLVToList(uint16_t, uint16_t, const void*, void*) {
    return 0;
}
int32_t MOSSLINKSubmitEvent(uint32_t, uint32_t, uint16_t, const char*, MOSSLINKCallback, void*,
                            void*) {
    return 0;
}
int32_t MOSSLINKFreeTLVList(void*) {
    return 0;
}
