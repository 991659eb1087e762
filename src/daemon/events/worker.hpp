// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

/**
 * The life of one event on its own thread: classifies the JSON record and, when it is to be
 * reported, submits it to the event log within a data store connection of its own. Every failure
 * is logged and drops the event; no exception leaves the function.
 */
void zel_wux_fault_logging_thread(std::vector<std::uint8_t> eventData);
