// SPDX-License-Identifier: Apache-2.0
#include "contract/platform/mosslink.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <string>

// Preloaded into the daemon: writes the device of every event down that the event log has taken,
// once it has said so.

namespace {

thread_local std::string device;

template <typename Function>
Function* next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

int32_t MOSSLINKBuildMsgArgsBuffer(char** args, uint32_t count, void* buffer, uint32_t* length) {
    device = count > 0 ? args[0] : "";
    return next<decltype(MOSSLINKBuildMsgArgsBuffer)>("MOSSLINKBuildMsgArgsBuffer")(args, count,
                                                                                    buffer, length);
}

int32_t MOSSLINKSubmitEvent(uint32_t first, uint32_t second, uint16_t severity,
                            const char* message_id, MOSSLINKCallback callback, void* user_data,
                            void* list) {
    const auto result = next<decltype(MOSSLINKSubmitEvent)>("MOSSLINKSubmitEvent")(
        first, second, severity, message_id, callback, user_data, list);
    if (result == 0) {
        const auto line = device + '\n';
        const int file = open("/run/submitted", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        [[maybe_unused]] const auto written = write(file, line.data(), line.size());
        close(file);
    }
    return result;
}
