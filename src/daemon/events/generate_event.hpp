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
