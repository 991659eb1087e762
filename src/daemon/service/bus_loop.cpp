// SPDX-License-Identifier: Apache-2.0
#include "daemon/service/bus_loop.hpp"

#include "daemon/interface/carried_exception.hpp"
#include "log/diag_log.hpp"

#include <unistd.h>

#include <cstdint>

namespace tavrisk {
namespace {

// The loop's messages go under the name of the function whose body it is.
constexpr auto loopLogName = "main";

} // namespace

void serveUntilFailureBudgetIsSpent(sdbusplus::bus::bus& bus) {
    std::uint8_t budget = 10;
    while (budget != 0) {
        try {
            bus.process_discard();
            rethrowCarriedException();
            bus.wait();
        } catch (...) {
            dropCarriedException();
            diag_log(LOG_USER, LOG_DEBUG, "[%s:%d] failed processing messages [%d]", loopLogName,
                     __LINE__, budget);
            sleep(1);
            --budget;
        }
    }
    diag_log(LOG_USER, LOG_WARNING, "[%s:%d] failed processing messages [%d], exiting", loopLogName,
             __LINE__, budget);
}

} // namespace tavrisk
