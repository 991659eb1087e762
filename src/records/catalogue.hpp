// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tavrisk {

/** A message of the OSKA registry: its key in the event log, and its text, a printf format with
 *  one "%s" for the device name. */
struct CatalogueMessage {
    std::int32_t event;
    const char* messageId;
    const char* text;
};

/** The catalogue, one row per event number. */
extern const std::array<CatalogueMessage, 8> catalogue;

/** The message's text with the device's name filled in. */
std::string messageAbout(const CatalogueMessage& message, std::string_view device);

/** What the packed arguments of a message may take in the event log, in bytes, each with its
 *  terminating zero. */
constexpr std::size_t messageArgumentsCapacity = 1024;

/** The row of an event number, or null for a number that is not in the catalogue. */
const CatalogueMessage* findMessage(std::int32_t event);

/** The row of a message ID, or null for one that is not in the catalogue. */
const CatalogueMessage* findMessage(std::string_view messageId);

} // namespace tavrisk
