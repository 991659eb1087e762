// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/**
 * Submits the catalogue message of `event` (1 to 8) about `device` to the event log. `handle`, the
 * data store connection, is not used. `severity` goes with the message unchanged.
 *
 * Returns -1 for a null device name, otherwise the result of the post-event hook. An event number
 * that is not in the catalogue and a failed submission are logged and do not change the result.
 */
std::int32_t tavrisk_generate_event(std::int32_t event, void* handle, const char* device,
                                    std::uint32_t severity);

/** Called once per event with a device name, after its submission. Does nothing yet; returns 0. */
std::int32_t tavrisk_post_event_hook(const std::vector<std::string>& arguments,
                                     std::uint32_t severity);

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
