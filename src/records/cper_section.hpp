// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

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
