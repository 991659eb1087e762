// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/severity.hpp"

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace tavrisk {

/** What is reported of a record. */
struct Event {
    /** In the catalogue. */
    std::int32_t number = 0;
    /** What the message is about; ends before the first NUL of the record's text. */
    std::string device;
};

struct Verdict {
    /** Nothing when the record is not to be reported. */
    std::optional<Event> event;
    /** Critical or warning for an event, and known without one as soon as the bytes are JSON. */
    std::optional<Severity> severity;
    /** Without an event: why, in words for a person. */
    std::string reason;
};

/**
 * Decides whether a JSON event record (of DMTF Redfish's Event and LogEntry shape, or the summary
 * of a CPER) is to be reported, and as what.
 *
 * Takes memory for what is read of the record only. Raises `std::bad_alloc` when there is none.
 */
Verdict classify(std::span<const std::uint8_t> record);

/** The parser's words for why bytes that are no JSON are none. It sees all of them for that, and
 *  may take memory for many times their size. */
std::string whyNotJson(std::span<const std::uint8_t> record);

} // namespace tavrisk

/**
 * classify() in the form that others are promised.
 *
 * Returns 1 for a reportable event and sets all three outputs: `event` to the catalogue number,
 * `device` to the name of the device, a `strdup`ed string that the caller releases with `free`, and
 * `severity` to a severity code.
 *
 * Returns 0 for everything else, whatever the bytes hold; `event` and `device` then keep their
 * values, and so does `severity` when the bytes are no JSON at all.
 */
int checkRedfishData(std::span<const std::uint8_t> record, std::int32_t& event, char*& device,
                     std::uint32_t& severity);
