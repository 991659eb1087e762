// SPDX-License-Identifier: Apache-2.0
#include "daemon/events/raise_event.hpp"

#include "contract/platform/mosslink.h"
#include "log/diag_log.hpp"
#include "records/catalogue.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
};
using OwnedText = std::unique_ptr<char, Free>;

/** Heap copies of the arguments in the array form that the library takes. */
class ArgumentCopies {
public:
    /** False when an allocation failed; the copies are then incomplete. */
    bool make(const std::vector<std::string>& arguments) {
        for (const auto& argument : arguments) {
            const auto size = argument.size() + 1;
            OwnedText copy{static_cast<char*>(std::malloc(size))};
            if (!copy) {
                return false;
            }
            std::snprintf(copy.get(), size, "%s", argument.c_str());
            pointers_.push_back(copy.get());
            copies_.push_back(std::move(copy));
        }
        return true;
    }

    char** data() { return pointers_.data(); }
    [[nodiscard]] std::uint32_t size() const {
        return static_cast<std::uint32_t>(pointers_.size());
    }

private:
    std::vector<OwnedText> copies_;
    std::vector<char*> pointers_;
};

/** Owns a list from its creation on; what a handle looks like is the library's business. */
class TLVList {
public:
    explicit TLVList(void* created) : list_{created} {}
    ~TLVList() { MOSSLINKFreeTLVList(list_); }
    TLVList(const TLVList&) = delete;
    TLVList& operator=(const TLVList&) = delete;

    [[nodiscard]] void* get() const { return list_; }

private:
    void* list_;
};

using tavrisk::messageArgumentsCapacity;
constexpr std::uint16_t messageArgumentsTag = 6;

/** Packs the arguments, wraps them in a TLV list and submits that; 0 or the failed call's code. */
std::int32_t submit(const std::string& messageId, ArgumentCopies& arguments,
                    std::uint32_t severity) {
    std::array<char, messageArgumentsCapacity> buffer{};
    std::uint32_t length = messageArgumentsCapacity;
    if (const auto status = MOSSLINKBuildMsgArgsBuffer(arguments.data(), arguments.size(),
                                                       buffer.data(), &length)) {
        diag_log(8, 4, "MOSSLINKBuildMsgArgsBuffer returned [%d]", status);
        return status;
    }

    void* created = nullptr;
    if (const auto status = MOSSLINKCreateTLVList(&created)) {
        // The call's name is deliberately shortened here.
        diag_log(8, 4, "APCreateTLVList returned [%d]", status);
        return status;
    }
    const TLVList list{created};

    if (const auto status = MOSSLINKAddTLVToList(
            messageArgumentsTag, static_cast<std::uint16_t>(length), buffer.data(), list.get())) {
        diag_log(8, 4, "MOSSLINKAddTLVToList returned [%d]", status);
        return status;
    }

    // The first two values are the library's own.
    const auto status = MOSSLINKSubmitEvent(66, 1, static_cast<std::uint16_t>(severity),
                                            messageId.c_str(), nullptr, nullptr, list.get());
    if (status == 0) {
        diag_log(8, 7, "ZEL event submitted successfully");
    } else {
        // At debug level, unlike the failures above; the caller's warning names the event.
        diag_log(8, 7, "Failed to log ZEL event [%d]", status);
    }
    return status;
}

} // namespace

std::int32_t tavrisk_raise_event(const std::string& messageId, const std::string& /*messageText*/,
                                 const std::vector<std::string>& arguments,
                                 std::uint32_t severity) {
    diag_log(8, 7, "Log the event.\n");

    std::int32_t status = -2;
    if (!arguments.empty()) {
        ArgumentCopies copies;
        // Running out of memory here is deliberately not reported.
        status = copies.make(arguments) ? submit(messageId, copies, severity) : 0;
    }

    if (status != 0) {
        diag_log(8, 7, "Event raise failed: [%s], status: [%d]", messageId.c_str(), status);
    } else {
        diag_log(8, 7, "Event raise successfully: [%s], status: [%d]", messageId.c_str(), status);
    }
    return status;
}

void tavrisk_mchars_callback(const char* text, std::int32_t status, void* clientOpaqueData,
                             void* userData) {
    diag_log(8, 7, "%s(): entering.\n", __func__);
    if (userData != nullptr) {
        diag_log(8, 4,
                 "[%s]: mchars callback function for %s - status %d cli_opq_data = %p "
                 "user_data = %p\n",
                 __func__, text, status, clientOpaqueData, userData);
    }
    diag_log(8, 7, "%s(): exiting.\n", __func__);
}
