// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace tavrisk::retention {

/**
 * Saves the cache to the store: each of its three directories to the one of the same name. One save
 * at a time; a second waits.
 *
 * True when everything is saved and on the medium. Otherwise it has complained, or raises an
 * exception whose text says what went wrong; what was saved by then stays.
 */
bool save();

/** One line on standard error. */
void complain(const std::string& sentence);

} // namespace tavrisk::retention
