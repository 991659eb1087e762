// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

namespace tavrisk {

/**
 * Has what the C library keeps of freed memory go back to the system once two seconds have passed
 * without a call as large as this one. While such calls come, their blocks stay: having each mapped
 * anew costs more than serving the call.
 *
 * To be told of every call with this many bytes of data. Does nothing for small ones.
 */
void giveBackMemoryAfter(std::size_t bytes) noexcept;

} // namespace tavrisk
