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

/**
 * Hands the event to a worker of its own, which runs the above.
 *
 * When no thread is to be had it tries again for a second at most; after that, and until a worker
 * has ended, it tries once. Then it raises std::system_error, or std::bad_alloc for want of memory:
 * the event is dropped.
 */
void startWorker(std::vector<std::uint8_t> eventData);
