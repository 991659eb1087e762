// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>

/** Severity codes, as the event log takes them. */
constexpr std::uint32_t severityCritical = 1;
constexpr std::uint32_t severityWarning = 2;
constexpr std::uint32_t severityOther = 3;

/**
 * Decides whether a JSON event record (of DMTF Redfish's Event and LogEntry shape, or the summary
 * of a CPER) is to be reported, and as what.
 *
 * Returns 1 for a reportable event and sets all three outputs: `event` to the catalogue number,
 * `device` to the name of the device the message is about, a `strdup`ed string that the caller
 * releases with `free`, and `severity` to a severity code.
 *
 * Returns 0 for everything else, whatever the bytes hold; `event` and `device` then keep their
 * values, and so does `severity` when the bytes are no JSON at all.
 *
 * Takes memory for what is read of the record only. Raises `std::bad_alloc` when there is none.
 */
int checkRedfishData(std::span<const std::uint8_t> record, std::int32_t& event, char*& device,
                     std::uint32_t& severity);

namespace tavrisk {

/** The same, and with a result of 0 says why in `reason`, in words for a person. */
int explainRedfishData(std::span<const std::uint8_t> record, std::int32_t& event, char*& device,
                       std::uint32_t& severity, std::string& reason);

} // namespace tavrisk
