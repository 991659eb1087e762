// SPDX-License-Identifier: Apache-2.0
#include "contract/names.hpp"
#include "daemon/service/bus_loop.hpp"
#include "daemon/service/tavriskmain.hpp"
#include "log/diag_log.hpp"
#include "records/digest.hpp"

#include <sdbusplus/bus.hpp>
#include <systemd/sd-bus.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct UnrefBus {
    void operator()(sd_bus* bus) const noexcept { sd_bus_unref(bus); }
};

} // namespace

int main() {
    sd_bus* opened = nullptr;
    const int openResult = sd_bus_default(&opened);
    const std::unique_ptr<sd_bus, UnrefBus> connection{opened};
    if (openResult < 0) {
        diag_log(LOG_USER, LOG_WARNING, "[%s:%d] failed opening the default bus: %s", __func__,
                 __LINE__, std::strerror(-openResult));
        return EXIT_FAILURE;
    }
    sdbusplus::bus::bus bus{connection.get()};

    // Only a negative result would end the daemon, and there is none: after a failure, reported
    // as 1, it deliberately claims its name and serves the bus all the same.
    const int initResult = tavriskmain_init(bus);
    if (initResult < 0) {
        diag_log(LOG_USER, LOG_NOTICE, "[%s:%d] hmc ze logger init failed", __func__, __LINE__);
        return initResult;
    }

    diag_log(LOG_USER, LOG_DEBUG, "[%s:%d] Requesting %s", __func__, __LINE__, tavrisk::busName);
    try {
        bus.request_name(tavrisk::busName);
    } catch (...) {
        diag_log(LOG_USER, LOG_WARNING, "[%s:%d] failed requesting %s ", __func__, __LINE__,
                 tavrisk::busName);
        return EXIT_FAILURE;
    }

    // Here, where nobody is served yet: whoever waits for the name does not wait for this as well.
    tavrisk::prepareDigests();
    tavrisk::serveUntilFailureBudgetIsSpent(bus);
    return -1;
}
