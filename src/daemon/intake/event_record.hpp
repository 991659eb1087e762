// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/**
 * What becomes of an event record that passed the integrity check: it is kept as /var/run/hmc/ +
 * `validationString` + "." + seconds since the epoch, mode 0774, and handed to a detached fault
 * logging worker that owns the bytes from then on.
 *
 * Returns the file's result, 0, -2 or -3 as SaveData() does; the worker runs all the same. -1 when
 * an exception came up or the worker could not be started: then there is none.
 */
int tavrisk_daemon_thread(std::vector<std::uint8_t> logDataBuffer, std::string validationString);
