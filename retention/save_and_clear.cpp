// SPDX-License-Identifier: Apache-2.0
#include "retention/save_and_clear.hpp"

std::int32_t saveAndClearCache() {
    return 1;
}
