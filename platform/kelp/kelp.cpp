#include <kelp.h>
int32_t kelpc_initialize(void** handle, const void*) {
    *handle = nullptr;
    return 0;
}
int32_t kelpc_destroy(void*) {
    return 0;
}
