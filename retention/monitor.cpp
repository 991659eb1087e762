// SPDX-License-Identifier: Apache-2.0
#include "retention/monitor.hpp"

#include "service/diag_log.hpp"

void wuxmonitor_start(RetentionSettings) {
    diag_log(8, 4, "%s : No Monitoring yet!, rc = %d \n", __func__, 1);
}
