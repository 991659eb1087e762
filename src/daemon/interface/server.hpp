// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/properties.hpp"
#include "daemon/interface/common.hpp"

#include <sdbusplus/bus.hpp>
#include <sdbusplus/server.hpp>
#include <sdbusplus/vtable.hpp>
#include <systemd/sd-bus.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
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
    virtual ~Tavrisk() = default;

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

    [[nodiscard]] virtual std::string systemLEDSetting() const;
    virtual std::string systemLEDSetting(std::string value, bool skipSignal);
    virtual std::string systemLEDSetting(std::string value);

    /** Size limit of each data directory, in MB. */
    [[nodiscard]] virtual std::uint8_t retentionSizeInMB() const;
    virtual std::uint8_t retentionSizeInMB(std::uint8_t value, bool skipSignal);
    virtual std::uint8_t retentionSizeInMB(std::uint8_t value);

    /** Time between two retention runs, in minutes. */
    [[nodiscard]] virtual std::uint8_t retentionIntervalInMinutes() const;
    virtual std::uint8_t retentionIntervalInMinutes(std::uint8_t value, bool skipSignal);
    virtual std::uint8_t retentionIntervalInMinutes(std::uint8_t value);

    [[nodiscard]] virtual std::string wUXDataLocation() const;
    virtual std::string wUXDataLocation(std::string value, bool skipSignal);
    virtual std::string wUXDataLocation(std::string value);

    [[nodiscard]] virtual std::string wUXDataCacheLocation() const;
    virtual std::string wUXDataCacheLocation(std::string value, bool skipSignal);
    virtual std::string wUXDataCacheLocation(std::string value);

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

    static int _callback_get_SystemLEDSetting(sd_bus*, const char*, const char*, const char*,
                                              sd_bus_message*, void*, sd_bus_error*);
    static int _callback_set_SystemLEDSetting(sd_bus*, const char*, const char*, const char*,
                                              sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_RetentionSizeInMB(sd_bus*, const char*, const char*, const char*,
                                               sd_bus_message*, void*, sd_bus_error*);
    static int _callback_set_RetentionSizeInMB(sd_bus*, const char*, const char*, const char*,
                                               sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_RetentionIntervalInMinutes(sd_bus*, const char*, const char*,
                                                        const char*, sd_bus_message*, void*,
                                                        sd_bus_error*);
    static int _callback_set_RetentionIntervalInMinutes(sd_bus*, const char*, const char*,
                                                        const char*, sd_bus_message*, void*,
                                                        sd_bus_error*);
    static int _callback_get_WUXDataLocation(sd_bus*, const char*, const char*, const char*,
                                             sd_bus_message*, void*, sd_bus_error*);
    static int _callback_get_WUXDataCacheLocation(sd_bus*, const char*, const char*, const char*,
                                                  sd_bus_message*, void*, sd_bus_error*);

private:
    /** Stores `value` in `property` and announces the change of `name`, as told above. */
    template <typename Stored, typename Value>
    Value store(Stored& property, Value value, const char* name, bool skipSignal);

    template <typename Value>
    static Value start(const tavrisk::PropertyRow& row) {
        return std::get<Value>(row.start);
    }

    static const std::array<sdbusplus::vtable::vtable_t, 11> memberTable;

    std::string systemLEDSetting_{start<std::string_view>(tavrisk::systemLEDSetting)};
    // Read by the retention monitor while the bus thread stores.
    std::atomic<std::uint8_t> retentionSizeInMB_{start<std::uint8_t>(tavrisk::retentionSizeInMB)};
    std::atomic<std::uint8_t> retentionIntervalInMinutes_{
        start<std::uint8_t>(tavrisk::retentionIntervalInMinutes)};
    std::string wUXDataLocation_{start<std::string_view>(tavrisk::wUXDataLocation)};
    std::string wUXDataCacheLocation_{start<std::string_view>(tavrisk::wUXDataCacheLocation)};

    // Last, so that no callback can come before the values above are there.
    sdbusplus::server::interface::interface interface_;
};

} // namespace sdbusplus::server::com::vorn::bmc
