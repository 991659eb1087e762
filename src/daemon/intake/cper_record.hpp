// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/**
 * What becomes of a UEFI CPER that passed the integrity check: its summary is made and logged, the
 * raw record kept as /var/run/hmc/rawCPER/ + `validationString` + "." + the record's time stamp,
 * and the summary's JSON text handed to a detached fault logging worker.
 *
 * Returns 0 when the worker was started, whether or not the raw file could be written; the parser's
 * result when the record was refused; -1 when an exception came up while the file was written.
 * A worker that cannot be started raises std::system_error.
 */
int createLogServiceEntry(std::vector<std::uint8_t> logDataBuffer, std::string validationString);
