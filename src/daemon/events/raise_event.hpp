// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/**
 * Submits one registry message to the platform event log (ZEL). Only `messageId`, the arguments
 * (each up to its first NUL byte) and the low 16 bits of `severity` reach it; `messageText` is not
 * used.
 *
 * Returns 0 when the log has accepted the event, -2 for an empty argument list, otherwise the code
 * of the library call that failed. Nothing is retried.
 */
std::int32_t tavrisk_raise_event(const std::string& messageId, const std::string& messageText,
                                 const std::vector<std::string>& arguments, std::uint32_t severity);

/** A completion callback in the library's shape: logs what it is told. Deliberately not registered:
 *  submissions name no callback. */
void tavrisk_mchars_callback(const char* text, std::int32_t status, void* clientOpaqueData,
                             void* userData);
