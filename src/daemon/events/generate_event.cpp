// SPDX-License-Identifier: Apache-2.0
#include "daemon/events/generate_event.hpp"

#include "daemon/events/raise_event.hpp"
#include "log/diag_log.hpp"
#include "records/catalogue.hpp"

namespace {

constexpr auto logName = "tavrisk_generate_event";

void submit(const tavrisk::CatalogueMessage& message, const char* device,
            const std::vector<std::string>& arguments, std::uint32_t severity) {
    const auto status = tavrisk_raise_event(message.messageId, message.text, arguments, severity);
    if (status != 0) {
        // The leading blank is part of the message.
        diag_log(8, 4, " %s: Failed to log OSKA Message %d (rc = %d)\n", logName, message.event,
                 status);
    }
    diag_log(8, 7, message.text, device);
}

} // namespace

std::int32_t tavrisk_generate_event(std::int32_t event, void* /*handle*/, const char* device,
                                    std::uint32_t severity) {
    diag_log(8, 7, "%s(): entering.\n", logName);
    if (device == nullptr) {
        diag_log(8, 4, "%s: Invalid device name: %s\n", logName, "(null)");
        return -1;
    }

    const std::vector<std::string> arguments{device};
    if (const auto* message = tavrisk::findMessage(event)) {
        submit(*message, device, arguments, severity);
    } else {
        diag_log(8, 2, "TAVRISK:Not reporting unknown event to OSKA\n");
    }

    const auto status = tavrisk_post_event_hook(arguments, severity);
    diag_log(8, 7, "Event logged for event = %d , rc = %d\n", event, status);
    return status;
}

std::int32_t tavrisk_post_event_hook(const std::vector<std::string>& /*arguments*/,
                                     std::uint32_t /*severity*/) {
    return 0;
}
