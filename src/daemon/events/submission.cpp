// SPDX-License-Identifier: Apache-2.0
#include "daemon/events/submission.hpp"

#include "contract/platform/mosslink.h"
#include "log/diag_log.hpp"
#include "records/catalogue.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <utility>

namespace {

struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
};
using OwnedText = std::unique_ptr<char, Free>;

/** Heap copies of the arguments in the array form that the library takes. */
class ArgumentCopies {
public:
    /** False when an allocation failed; the copies are then incomplete. */
    bool make(std::span<const std::string> arguments) {
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

constexpr std::uint16_t messageArgumentsTag = 6;

struct Submission {
    const char* messageId;
    std::span<const std::string> arguments;
    std::uint16_t severity;
};

/** Packs the arguments, wraps them in a TLV list and submits that; 0 or the failed call's code. */
std::int32_t submit(const Submission& submission) {
    ArgumentCopies arguments;
    if (!arguments.make(submission.arguments)) {
        return 0; // Want of memory is deliberately not reported.
    }
    std::array<char, tavrisk::messageArgumentsCapacity> buffer{};
    std::uint32_t length = buffer.size();
    if (const auto status = MOSSLINKBuildMsgArgsBuffer(arguments.data(), arguments.size(),
                                                       buffer.data(), &length)) {
        diag_log(LOG_USER, LOG_WARNING, "MOSSLINKBuildMsgArgsBuffer returned [%d]", status);
        return status;
    }

    void* created = nullptr;
    if (const auto status = MOSSLINKCreateTLVList(&created)) {
        // The call's name is deliberately shortened here.
        diag_log(LOG_USER, LOG_WARNING, "APCreateTLVList returned [%d]", status);
        return status;
    }
    const TLVList list{created};

    if (const auto status = MOSSLINKAddTLVToList(
            messageArgumentsTag, static_cast<std::uint16_t>(length), buffer.data(), list.get())) {
        diag_log(LOG_USER, LOG_WARNING, "MOSSLINKAddTLVToList returned [%d]", status);
        return status;
    }

    // What 66 and 1 mean is the library's business.
    const auto status = MOSSLINKSubmitEvent(66, 1, submission.severity, submission.messageId,
                                            nullptr, nullptr, list.get());
    if (status == 0) {
        diag_log(LOG_USER, LOG_DEBUG, "ZEL event submitted successfully");
    } else {
        // At debug level, unlike the failures above: the warning that names the event follows.
        diag_log(LOG_USER, LOG_DEBUG, "Failed to log ZEL event [%d]", status);
    }
    return status;
}

constexpr auto submissionLogName = "tavrisk_generate_event";

void report(const tavrisk::CatalogueMessage& message, const char* device,
            const std::vector<std::string>& arguments, std::uint32_t severity) {
    const auto status = tavrisk_raise_event(message.messageId, message.text, arguments, severity);
    if (status != 0) {
        // The leading blank is part of the message.
        diag_log(LOG_USER, LOG_WARNING, " %s: Failed to log OSKA Message %d (rc = %d)\n",
                 submissionLogName, message.event, status);
    }
    diag_log(LOG_USER, LOG_DEBUG, message.text, device);
}

} // namespace

std::int32_t tavrisk_generate_event(std::int32_t event, void* /*handle*/, const char* device,
                                    std::uint32_t severity) {
    diag_log(LOG_USER, LOG_DEBUG, "%s(): entering.\n", submissionLogName);
    if (device == nullptr) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Invalid device name: %s\n", submissionLogName,
                 "(null)");
        return -1;
    }

    const std::vector<std::string> arguments{device};
    if (const auto* message = tavrisk::findMessage(event)) {
        report(*message, device, arguments, severity);
    } else {
        diag_log(LOG_USER, LOG_CRIT, "TAVRISK:Not reporting unknown event to OSKA\n");
    }

    const auto status = tavrisk_post_event_hook(arguments, severity);
    diag_log(LOG_USER, LOG_DEBUG, "Event logged for event = %d , rc = %d\n", event, status);
    return status;
}

std::int32_t tavrisk_post_event_hook(const std::vector<std::string>& /*arguments*/,
                                     std::uint32_t /*severity*/) {
    return 0;
}

std::int32_t tavrisk_raise_event(const std::string& messageId, const std::string& /*messageText*/,
                                 const std::vector<std::string>& arguments,
                                 std::uint32_t severity) {
    constexpr std::int32_t nothingToSay = -2;
    diag_log(LOG_USER, LOG_DEBUG, "Log the event.\n");
    const auto status =
        arguments.empty()
            ? nothingToSay
            : submit({messageId.c_str(), arguments, static_cast<std::uint16_t>(severity)});
    if (status != 0) {
        diag_log(LOG_USER, LOG_DEBUG, "Event raise failed: [%s], status: [%d]", messageId.c_str(),
                 status);
    } else {
        diag_log(LOG_USER, LOG_DEBUG, "Event raise successfully: [%s], status: [%d]",
                 messageId.c_str(), status);
    }
    return status;
}

void tavrisk_mchars_callback(const char* text, std::int32_t status, void* clientOpaqueData,
                             void* userData) {
    diag_log(LOG_USER, LOG_DEBUG, "%s(): entering.\n", __func__);
    if (userData != nullptr) {
        diag_log(LOG_USER, LOG_WARNING,
                 "[%s]: mchars callback function for %s - status %d cli_opq_data = %p "
                 "user_data = %p\n",
                 __func__, text, status, clientOpaqueData, userData);
    }
    diag_log(LOG_USER, LOG_DEBUG, "%s(): exiting.\n", __func__);
}
