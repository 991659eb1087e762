// SPDX-License-Identifier: Apache-2.0
#include "contract/platform/kelp.h"
#include "contract/platform/mosslink.h"
#include "contract/platform/whelk.h"
#include "record.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>

// The three platform libraries in one source. The packed layout here: the strings, each with its
// terminating zero.

int32_t MOSSLINKBuildMsgArgsBuffer(char** args, uint32_t count, void* buffer, uint32_t* length) {
    const OfAStandIn ours;
    std::string packed;
    for (uint32_t i = 0; i < count; ++i) {
        packed.append(args[i], std::strlen(args[i]) + 1);
    }
    const auto capacity = *length;
    *length = static_cast<uint32_t>(std::min<std::size_t>(packed.size(), capacity));
    std::memcpy(buffer, packed.data(), *length);
    return recorded("build", " " + std::to_string(count) + " of " + std::to_string(capacity));
}

int32_t MOSSLINKCreateTLVList(void** list) {
    const OfAStandIn ours;
    // Null as a handle is this library's right.
    *list = nullptr;
    return recorded("create");
}

int32_t MOSSLINKAddTLVToList(uint16_t tag, uint16_t length, const void* value, void*) {
    const OfAStandIn ours;
    return recorded("add", " " + std::to_string(tag) + " " + std::to_string(length) + " " +
                               std::string{static_cast<const char*>(value), length}.c_str());
}

int32_t MOSSLINKSubmitEvent(uint32_t first, uint32_t second, uint16_t severity,
                            const char* message_id, MOSSLINKCallback callback, void* user_data,
                            void*) {
    const OfAStandIn ours;
    while (failure("stall") != 0) {
        usleep(10'000);
    }
    return recorded("submit", " " + std::to_string(first) + " " + std::to_string(second) + " " +
                                  std::to_string(severity) + " " + message_id +
                                  (callback || user_data ? " callback" : ""));
}

int32_t MOSSLINKFreeTLVList(void*) {
    const OfAStandIn ours;
    return recorded("free");
}

int32_t kelpc_initialize(void** handle, const void* init_block) {
    const OfAStandIn ours;
    std::array<unsigned char, 104> block{};
    std::memcpy(block.data(), init_block, block.size());
    const unsigned char* client = nullptr;
    std::memcpy(&client, block.data(), sizeof client);
    const char* name = nullptr;
    std::memcpy(&name, client, sizeof name);

    std::string text = std::string{" "} + name + " ";
    const auto appendHex = [&text](unsigned byte) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    };
    std::for_each(client + 8, client + 16, appendHex);
    text += " ";
    std::for_each(block.begin() + 8, block.end(), appendHex);
    *handle = nullptr;
    return recorded("kelpc_initialize", text);
}

int32_t kelpc_destroy(void*) {
    const OfAStandIn ours;
    return recorded("kelpc_destroy");
}

void whelk_vprintf(uint8_t level, int component, const char* format, va_list args) {
    const OfAStandIn ours;
    std::array<char, 4096> text{};
    std::vsnprintf(text.data(), text.size(), format, args);
    if (std::strcmp(text.data(), "hang") == 0) {
        for (record("hangs"); failure("hang") != 0;) {
            usleep(1000);
        }
    }
    // A vendor's library may well hold a lock, and a child find it locked.
    static std::mutex lock;
    const std::lock_guard guard{lock};
    record("log " + std::to_string(level) + " " + std::to_string(component) + " " + text.data());
}
