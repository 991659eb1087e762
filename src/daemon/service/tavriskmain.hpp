// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/service/logger_object.hpp"

#include <sdbusplus/bus.hpp>

/** The logger object, once tavriskmain_init() has announced it; lives until the process ends. */
extern Tavrisk* tavrisk_object;

/**
 * Creates and announces the logger object on `bus` and starts the retention monitor. Called once.
 *
 * Returns 0, or 1 when a step threw. A failure before the object was announced leaves no object; a
 * later one leaves it registered and served.
 */
int tavriskmain_init(sdbusplus::bus::bus& bus);
