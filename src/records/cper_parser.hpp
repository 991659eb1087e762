// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper_section.hpp"
#include "records/cper_text.hpp"

#include <json/forwards.h>

#include <cstdint>
#include <vector>

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
