// SPDX-License-Identifier: Apache-2.0
#include "daemon/service/tavriskmain.hpp"

#include "contract/names.hpp"
#include "daemon/retention/monitor.hpp"
#include "log/diag_log.hpp"

#include <sdbusplus/exception.hpp>
#include <systemd/sd-bus.h>

#include <memory>

Tavrisk* tavrisk_object = nullptr;

namespace {

/** sd-bus sends InterfacesAdded only below an object manager, so that peers can learn of the object
 *  and ask for it with GetManagedObjects. It stays for the life of the connection. */
void addObjectManager(sdbusplus::bus::bus& bus) {
    const int result = sd_bus_add_object_manager(bus.get(), nullptr, "/");
    if (result < 0) {
        throw sdbusplus::exception::SdBusError(-result, "sd_bus_add_object_manager");
    }
}

} // namespace

int tavriskmain_init(sdbusplus::bus::bus& bus) {
    try {
        addObjectManager(bus);
        auto object = std::make_unique<Tavrisk>(bus, tavrisk::objectPath);
        // Peers know the object from here on: it stays, whatever happens in the steps left.
        tavrisk_object = object.release();
        wuxmonitor_start(tavrisk_object);
        tavrisk_object->emit_added();
        return 0;
    } catch (...) {
        diag_log(LOG_USER, LOG_WARNING, "%s : init or object store exception", "tavriskmain_init");
        return 1;
    }
}
