// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/**
 * What runs behind the D-Bus methods Log and CPERlog: refuses empty input, checks the buffer
 * against its validation string and hands it on, as an event record or as a UEFI CPER. Both are
 * taken by value so that a caller who is done with them can move them in.
 *
 * Return 0 when the data was accepted and handed on, 2 for an empty argument, otherwise the
 * non-zero result of the step that failed.
 */
int LogEvent(std::string validationString, std::vector<std::uint8_t> logDataBuffer);
int LogCPEREvent(std::string validationString, std::vector<std::uint8_t> logDataBuffer);
