// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/**
 * Keeps the bytes as /var/run/hmc/dump/ + `validationString`, mode 0774. The name is used as it
 * stands, and the buffer is not checked against it.
 *
 * Returns 0 when written, -1 for an empty name or an exception, -2 when the file could not be
 * opened and -3 when the write failed.
 */
int SaveData(const std::string& validationString, const std::vector<std::uint8_t>& logDataBuffer);

/**
 * Keeps an event record as /var/run/hmc/ + `validationString` + "." + seconds since the epoch, mode
 * 0774, and starts a detached fault logging worker that owns the bytes from then on.
 *
 * Returns the file's result, 0, -2 or -3 as above; the worker runs all the same. -1 when an
 * exception came up or the worker could not be started: then there is none.
 */
int tavrisk_daemon_thread(std::vector<std::uint8_t> logDataBuffer, std::string validationString);
