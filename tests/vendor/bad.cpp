// SPDX-License-Identifier: Apache-2.0
// Libraries as a vendor had better not make them: FAULTS are those of this one, of two libraries.
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

enum Fault : unsigned { crash = 1, deep = 2, signals = 4, threads = 8, locked = 16 };

bool has(Fault fault) {
    return (FAULTS & fault) != 0;
}

__attribute__((noinline)) void goDeep() {
    volatile char frame[400 * 1024];
    std::memset(const_cast<char*>(frame), 1, sizeof frame);
}

const int loaded = [] {
    if (has(signals)) {
        std::signal(SIGURG, SIG_IGN);
    }
    if (has(threads)) {
        std::thread{[] { pause(); }}.detach();
    }
    return 0;
}();

std::mutex lock;

} // namespace

extern "C" {

#ifdef MOSSLINK
int32_t MOSSLINKBuildMsgArgsBuffer(char**, uint32_t, void*, uint32_t* length) {
    *length = 0;
    return 0;
}
int32_t MOSSLINKCreateTLVList(void**) {
    return 0;
}
int32_t MOSSLINKAddTLVToList(uint16_t, uint16_t, const void*, void*) {
    return 0;
}
int32_t MOSSLINKSubmitEvent(uint32_t, uint32_t, uint16_t, const char*, void*, void*, void*) {
    if (has(deep)) {
        goDeep();
    }
    if (has(crash)) {
        std::abort();
    }
    return 0;
}
#ifndef CALL_MISSING
int32_t MOSSLINKFreeTLVList(void*) {
    return 0;
}
#endif
#else
void whelk_vprintf(uint8_t, int, const char*, va_list) {
    if (has(locked)) {
        const std::lock_guard guard{lock};
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
}
#ifdef NAME_TAKEN
void openlog(const char*, int, int) {}
#endif
#endif
}
