// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper_text.hpp"

#include <json/forwards.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

/** A UEFI CPER section descriptor: tells where in a record a section lies and what is in it. GUIDs
 *  stand in record byte order. */
struct CperSectionDescriptor {
    std::uint32_t sectionOffset = 0;
    std::uint32_t sectionLength = 0;
    std::uint16_t revision = 0;
    std::uint8_t validationBits = 0;
    std::uint8_t reserved = 0;
    std::uint32_t flags = 0;
    std::array<std::uint8_t, 16> sectionType{};
    std::array<std::uint8_t, 16> fruId{};
    std::uint32_t sectionSeverity = 0;
    std::array<char, 20> fruText{};
};
static_assert(sizeof(CperSectionDescriptor) == 72);
static_assert(offsetof(CperSectionDescriptor, sectionType) == 16);
static_assert(offsetof(CperSectionDescriptor, sectionSeverity) == 48);

/**
 * The section types that a summary names, each as the hexadecimal digits of its GUID in record byte
 * order: the default type (not one of UEFI's), platform memory error, PCI Express error and ARM
 * processor error.
 */
extern const std::array<std::string, 4> knownSectionTypes;

/** What an event record calls the CPER severities recoverable, fatal, corrected and
 *  informational. */
extern const std::map<std::int32_t, std::string> cperSeverityNames;

/**
 * Summarises a UEFI CPER as an event record: sets the members SectionType, MessageSeverity,
 * Timestamp, CPER (an object with NotificationType), EventType and MessageId of `summary`, a null
 * value or an object.
 *
 * The record may have four bytes in front of it. Of a record only the first 96 bytes are read, and
 * whatever they hold is taken as it is.
 *
 * Returns 0, or -1 when the record ends before its 96th byte; `summary` then keeps its value.
 */
int nvCperParse(const std::vector<std::uint8_t>& record, Json::Value& summary);

namespace tavrisk {

/** The event record that stands for a CPER, of the summary above: JSON on one line, with its end.
 */
std::string cperEventRecord(const Json::Value& summary);

} // namespace tavrisk
