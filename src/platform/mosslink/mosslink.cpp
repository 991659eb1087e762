// SPDX-License-Identifier: Apache-2.0
#include "contract/platform/mosslink.h"

#include "platform/mosslink/event_log.hpp"
#include "platform/mosslink/mosslink_errors.h"
#include "zel/json_text.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::uint16_t messageArgumentsTag = 6;

struct TLV {
    std::uint16_t tag;
    std::string value;
};
using TLVList = std::vector<TLV>;

/** Runs one call of the interface; no exception leaves the library. */
template <typename Call>
std::int32_t guarded(Call call) noexcept {
    try {
        return call();
    } catch (const std::bad_alloc&) {
        return MOSSLINK_OUT_OF_MEMORY;
    } catch (...) {
        return MOSSLINK_INTERNAL;
    }
}

/** Takes apart what MOSSLINKBuildMsgArgsBuffer has packed; false when it is something else. The
 *  views are into `packed`. */
bool unpack(std::string_view packed, std::vector<std::string_view>& arguments) {
    while (!packed.empty()) {
        const auto end = packed.find('\0');
        if (end == std::string_view::npos) {
            return false;
        }
        arguments.push_back(packed.substr(0, end));
        packed.remove_prefix(end + 1);
    }
    return true;
}

} // namespace

// Packed arguments are the strings one after the other, each with its terminating NUL.
int32_t MOSSLINKBuildMsgArgsBuffer(char** args, uint32_t count, void* buffer, uint32_t* length) {
    if ((args == nullptr && count != 0) || buffer == nullptr || length == nullptr) {
        return MOSSLINK_INVALID_ARGUMENT;
    }
    const std::span<char> room{static_cast<char*>(buffer), *length};
    std::size_t packed = 0;
    for (const auto* argument : std::span{args, count}) {
        if (argument == nullptr) {
            return MOSSLINK_INVALID_ARGUMENT;
        }
        const auto size = std::strlen(argument) + 1;
        if (size > room.size() - packed) {
            return MOSSLINK_BUFFER_TOO_SMALL;
        }
        std::copy_n(argument, size, room.subspan(packed).begin());
        packed += size;
    }
    *length = static_cast<std::uint32_t>(packed);
    return MOSSLINK_OK;
}

int32_t MOSSLINKCreateTLVList(void** list) {
    if (list == nullptr) {
        return MOSSLINK_INVALID_ARGUMENT;
    }
    return guarded([list] {
        *list = new TLVList;
        return MOSSLINK_OK;
    });
}

// Keeps a copy of the value. Entries of all tags are taken; only the message arguments are
// recorded.
int32_t MOSSLINKAddTLVToList(uint16_t tag, uint16_t length, const void* value, void* list) {
    if (value == nullptr || list == nullptr) {
        return MOSSLINK_INVALID_ARGUMENT;
    }
    return guarded([=] {
        static_cast<TLVList*>(list)->push_back({tag, {static_cast<const char*>(value), length}});
        return MOSSLINK_OK;
    });
}

// The first two values mean nothing to this log.
int32_t MOSSLINKSubmitEvent(uint32_t /*unused*/, uint32_t /*unused*/, uint16_t severity,
                            const char* message_id, MOSSLINKCallback callback, void* user_data,
                            void* list) {
    if (message_id == nullptr || *message_id == '\0' || list == nullptr) {
        return MOSSLINK_INVALID_ARGUMENT;
    }
    const auto result = guarded([=] {
        std::vector<std::string_view> arguments;
        for (const auto& tlv : *static_cast<const TLVList*>(list)) {
            if (tlv.tag == messageArgumentsTag && !unpack(tlv.value, arguments)) {
                return MOSSLINK_INVALID_ARGUMENT;
            }
        }
        return tavrisk::zel::EventLog::instance().submit(
            {.time = {},
             .messageId = tavrisk::zel::toUtf8(message_id),
             .severity = severity,
             .arguments = tavrisk::zel::toJsonArray(arguments)});
    });
    if (callback != nullptr) {
        callback(message_id, result, nullptr, user_data);
    }
    return result;
}

int32_t MOSSLINKFreeTLVList(void* list) {
    if (list == nullptr) {
        return MOSSLINK_INVALID_ARGUMENT;
    }
    delete static_cast<TLVList*>(list);
    return MOSSLINK_OK;
}
