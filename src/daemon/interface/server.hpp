// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/interface/common.hpp"
#include "daemon/interface/stored_property.hpp"

#include <sdbusplus/bus.hpp>
#include <sdbusplus/server.hpp>
#include <sdbusplus/vtable.hpp>
#include <systemd/sd-bus.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace sdbusplus::server::com::vorn::bmc {

/**
 * Server binding of interface "com.vorn.bmc.tavrisk": the member table, the property store with
 * its change signals, and the D-Bus side of every method. A derived class supplies the methods.
 *
 * Everything runs on the bus thread. The getters of the two retention settings may be called from
 * any thread.
 *
 * A setter called with the stored value does nothing. A new value is announced with
 * PropertiesChanged unless `skipSignal` is set. Every setter returns the value now stored.
 */
class Tavrisk : public sdbusplus::common::com::vorn::bmc::Tavrisk {
public:
    using PropertiesVariant = std::variant<std::string, std::uint8_t>;

    /** Registers the interface on `path`; raises SdBusError when the bus refuses it. */
    Tavrisk(sdbusplus::bus::bus& bus, const char* path);
    virtual ~Tavrisk();

    Tavrisk(const Tavrisk&) = delete;
    Tavrisk& operator=(const Tavrisk&) = delete;

    /** Takes in an event record. 0 accepted, 2 an argument was empty, 1 any other failure. */
    virtual std::int32_t log(std::string validationString,
                             std::vector<std::uint8_t> logDataBuffer) = 0;
    /** Keeps opaque data under the given name. 0 kept, otherwise 1. */
    virtual std::int32_t save(std::string validationString,
                              std::vector<std::uint8_t> logDataBuffer) = 0;
    /** Takes in a UEFI CPER. Results as for log(). */
    virtual std::int32_t cPERlog(std::string validationString,
                                 std::vector<std::uint8_t> logDataBuffer) = 0;
    /** Saves the data cache and empties it. 0 saved, 1 saving failed and nothing was cleared. */
    virtual std::int32_t saveAndClearCache() = 0;

    [[nodiscard]] virtual std::string systemLEDSetting() const { return systemLEDSetting_.get(); }
    virtual std::string systemLEDSetting(std::string value, bool skipSignal) {
        return store(systemLEDSetting_, std::move(value), skipSignal);
    }
    virtual std::string systemLEDSetting(std::string value) {
        return systemLEDSetting(std::move(value), false);
    }

    /** Size limit of each data directory, in MB. */
    [[nodiscard]] virtual std::uint8_t retentionSizeInMB() const {
        return retentionSizeInMB_.get();
    }
    virtual std::uint8_t retentionSizeInMB(std::uint8_t value, bool skipSignal) {
        return store(retentionSizeInMB_, value, skipSignal);
    }
    virtual std::uint8_t retentionSizeInMB(std::uint8_t value) {
        return retentionSizeInMB(value, false);
    }

    /** Time between two retention runs, in minutes. */
    [[nodiscard]] virtual std::uint8_t retentionIntervalInMinutes() const {
        return retentionIntervalInMinutes_.get();
    }
    virtual std::uint8_t retentionIntervalInMinutes(std::uint8_t value, bool skipSignal) {
        return store(retentionIntervalInMinutes_, value, skipSignal);
    }
    virtual std::uint8_t retentionIntervalInMinutes(std::uint8_t value) {
        return retentionIntervalInMinutes(value, false);
    }

    [[nodiscard]] virtual std::string wUXDataLocation() const { return wUXDataLocation_.get(); }
    virtual std::string wUXDataLocation(std::string value, bool skipSignal) {
        return store(wUXDataLocation_, std::move(value), skipSignal);
    }
    virtual std::string wUXDataLocation(std::string value) {
        return wUXDataLocation(std::move(value), false);
    }

    [[nodiscard]] virtual std::string wUXDataCacheLocation() const {
        return wUXDataCacheLocation_.get();
    }
    virtual std::string wUXDataCacheLocation(std::string value, bool skipSignal) {
        return store(wUXDataCacheLocation_, std::move(value), skipSignal);
    }
    virtual std::string wUXDataCacheLocation(std::string value) {
        return wUXDataCacheLocation(std::move(value), false);
    }

    /** Sets a property by its D-Bus name. An unknown name changes nothing; a value of the wrong
     *  type raises std::bad_variant_access. */
    void setPropertyByName(const std::string& name, const PropertiesVariant& value,
                           bool skipSignal = false);

    /** The property with this D-Bus name; an empty string for an unknown one. */
    [[nodiscard]] PropertiesVariant getPropertyByName(const std::string& name) const;

    /** Sends InterfacesAdded for this interface, once in the object's life. */
    void emit_added();

    // The member table's callbacks, called by libsystemd with the object as context.
    static int _callback_Log(sd_bus_message*, void*, sd_bus_error*);
    static int _callback_Save(sd_bus_message*, void*, sd_bus_error*);
    static int _callback_CPERlog(sd_bus_message*, void*, sd_bus_error*);
    static int _callback_SaveAndClearCache(sd_bus_message*, void*, sd_bus_error*);

    using PropertyCallback = int(sd_bus*, const char* path, const char* interface,
                                 const char* property, sd_bus_message*, void* context,
                                 sd_bus_error*);
    static PropertyCallback _callback_get_SystemLEDSetting;
    static PropertyCallback _callback_set_SystemLEDSetting;
    static PropertyCallback _callback_get_RetentionSizeInMB;
    static PropertyCallback _callback_set_RetentionSizeInMB;
    static PropertyCallback _callback_get_RetentionIntervalInMinutes;
    static PropertyCallback _callback_set_RetentionIntervalInMinutes;
    static PropertyCallback _callback_get_WUXDataLocation;
    static PropertyCallback _callback_get_WUXDataCacheLocation;

private:
    /** Stores the value and announces the change, as told above. */
    template <typename Property>
    typename Property::Value store(Property& property, typename Property::Value value,
                                   bool skipSignal) {
        if (property.replace(std::move(value)) && !skipSignal) {
            interface_.property_changed(property.name());
        }
        return property.get();
    }

    /** The four methods, every property, and what the table begins and ends with. */
    using MemberTable =
        std::array<sdbusplus::vtable::vtable_t, 1 + 4 + tavrisk::properties.size() + 1>;
    static const MemberTable memberTable;

    tavrisk::StoredProperty<tavrisk::systemLEDSetting> systemLEDSetting_;
    // Read by the retention monitor while the bus thread stores.
    tavrisk::StoredProperty<tavrisk::retentionSizeInMB> retentionSizeInMB_;
    tavrisk::StoredProperty<tavrisk::retentionIntervalInMinutes> retentionIntervalInMinutes_;
    tavrisk::StoredProperty<tavrisk::wUXDataLocation> wUXDataLocation_;
    tavrisk::StoredProperty<tavrisk::wUXDataCacheLocation> wUXDataCacheLocation_;

    // Last, so that no callback can come before the values above are there.
    sdbusplus::server::interface::interface interface_;
};

} // namespace sdbusplus::server::com::vorn::bmc
