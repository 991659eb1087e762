// SPDX-License-Identifier: Apache-2.0
#include "daemon/interface/server.hpp"

#include "daemon/interface/carried_exception.hpp"

#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>

#include <cerrno>
#include <utility>

namespace sdbusplus::server::com::vorn::bmc {
namespace {

/** The one place where C++ meets sd-bus's C frames: everything of ours that can throw runs in here.
 *  The binding's own exceptions become an error reply. Every other is carried to the bus loop, and
 *  sd-bus gets `whenCarried`. */
template <typename Body>
int guarded(sd_bus_error* error, int whenCarried, Body&& body) noexcept {
    try {
        return body();
    } catch (const sdbusplus::exception::internal_exception& e) {
        return sd_bus_error_set(error, e.name(), e.description());
    } catch (...) {
        tavrisk::carryException();
        return whenCarried;
    }
}

/** A call whose exception was carried has been dealt with: it gets no reply. */
constexpr int noReply = 1;

/** sd-bus answers accesses to properties by itself, with what the callback left in the reply. Only
 *  an error keeps it from sending half a value, or that a value was stored which was not. */
constexpr int noValue = -ENOMEM;

Tavrisk& self(void* context) {
    return *static_cast<Tavrisk*>(context);
}

// In one piece: element by element, a large buffer would cost a call per byte.
std::vector<std::uint8_t> readBytes(const sdbusplus::message::message& message) {
    const void* data = nullptr;
    std::size_t size = 0;
    const int result = sd_bus_message_read_array(message.get(), 'y', &data, &size);
    if (result < 0) {
        throw sdbusplus::exception::SdBusError(-result, "sd_bus_message_read_array");
    }
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    return {bytes, bytes + size};
}

template <typename Operation>
int answer(const sdbusplus::message::message& call, Operation&& operation) {
    auto reply = call.new_method_return();
    reply.append(std::int32_t{operation()});
    reply.method_return();
    return 1;
}

using DataOperation = std::int32_t (Tavrisk::*)(std::string, std::vector<std::uint8_t>);

int dataMethod(sd_bus_message* raw, void* context, sd_bus_error* error, DataOperation operation) {
    return guarded(error, noReply, [&] {
        sdbusplus::message::message call{raw};
        std::string validationString;
        call.read(validationString);
        auto logDataBuffer = readBytes(call);
        return answer(call, [&] {
            return (self(context).*operation)(std::move(validationString),
                                              std::move(logDataBuffer));
        });
    });
}

template <typename Getter>
int getProperty(sd_bus_message* raw, sd_bus_error* error, Getter&& getter) {
    return guarded(error, noValue, [&] {
        sdbusplus::message::message{raw}.append(getter());
        return 1;
    });
}

template <typename Value, typename Setter>
int setProperty(sd_bus_message* raw, sd_bus_error* error, Setter&& setter) {
    return guarded(error, noValue, [&] {
        Value value{};
        sdbusplus::message::message{raw}.read(value);
        setter(std::move(value));
        return 1;
    });
}

} // namespace

const std::array<sdbusplus::vtable::vtable_t, 11> Tavrisk::memberTable{
    vtable::start(),
    vtable::method("Log", "say", "i", _callback_Log, vtable::common_::unprivileged),
    vtable::method("Save", "say", "i", _callback_Save, vtable::common_::unprivileged),
    vtable::method("CPERlog", "say", "i", _callback_CPERlog, vtable::common_::unprivileged),
    vtable::method("SaveAndClearCache", "", "i", _callback_SaveAndClearCache,
                   vtable::common_::unprivileged),
    vtable::property("SystemLEDSetting", "s", _callback_get_SystemLEDSetting,
                     _callback_set_SystemLEDSetting, vtable::property_::emits_change),
    vtable::property("RetentionSizeInMB", "y", _callback_get_RetentionSizeInMB,
                     _callback_set_RetentionSizeInMB, vtable::property_::emits_change),
    vtable::property("RetentionIntervalInMinutes", "y", _callback_get_RetentionIntervalInMinutes,
                     _callback_set_RetentionIntervalInMinutes, vtable::property_::emits_change),
    vtable::property("WUXDataLocation", "s", _callback_get_WUXDataLocation,
                     vtable::property_::emits_change),
    vtable::property("WUXDataCacheLocation", "s", _callback_get_WUXDataCacheLocation,
                     vtable::property_::emits_change),
    vtable::end(),
};

Tavrisk::Tavrisk(sdbusplus::bus::bus& bus, const char* path)
    : interface_{bus, path, interface, memberTable.data(), this} {}

void Tavrisk::emit_added() {
    interface_.emit_added();
}

// Methods

int Tavrisk::_callback_Log(sd_bus_message* call, void* context, sd_bus_error* error) {
    return dataMethod(call, context, error, &Tavrisk::log);
}

int Tavrisk::_callback_Save(sd_bus_message* call, void* context, sd_bus_error* error) {
    return dataMethod(call, context, error, &Tavrisk::save);
}

int Tavrisk::_callback_CPERlog(sd_bus_message* call, void* context, sd_bus_error* error) {
    return dataMethod(call, context, error, &Tavrisk::cPERlog);
}

int Tavrisk::_callback_SaveAndClearCache(sd_bus_message* raw, void* context, sd_bus_error* error) {
    return guarded(error, noReply, [&] {
        const sdbusplus::message::message call{raw};
        return answer(call, [&] { return self(context).saveAndClearCache(); });
    });
}

// Properties

template <typename Stored, typename Value>
Value Tavrisk::store(Stored& property, Value value, const char* name, bool skipSignal) {
    if (property != value) {
        property = value;
        if (!skipSignal) {
            interface_.property_changed(name);
        }
    }
    return property;
}

std::string Tavrisk::systemLEDSetting() const {
    return systemLEDSetting_;
}

std::string Tavrisk::systemLEDSetting(std::string value, bool skipSignal) {
    return store(systemLEDSetting_, std::move(value), "SystemLEDSetting", skipSignal);
}

std::string Tavrisk::systemLEDSetting(std::string value) {
    return systemLEDSetting(std::move(value), false);
}

int Tavrisk::_callback_get_SystemLEDSetting(sd_bus*, const char*, const char*, const char*,
                                            sd_bus_message* reply, void* context,
                                            sd_bus_error* error) {
    return getProperty(reply, error, [&] { return self(context).systemLEDSetting(); });
}

int Tavrisk::_callback_set_SystemLEDSetting(sd_bus*, const char*, const char*, const char*,
                                            sd_bus_message* value, void* context,
                                            sd_bus_error* error) {
    return setProperty<std::string>(
        value, error, [&](std::string text) { self(context).systemLEDSetting(std::move(text)); });
}

std::uint8_t Tavrisk::retentionSizeInMB() const {
    return retentionSizeInMB_;
}

std::uint8_t Tavrisk::retentionSizeInMB(std::uint8_t value, bool skipSignal) {
    return store(retentionSizeInMB_, value, "RetentionSizeInMB", skipSignal);
}

std::uint8_t Tavrisk::retentionSizeInMB(std::uint8_t value) {
    return retentionSizeInMB(value, false);
}

int Tavrisk::_callback_get_RetentionSizeInMB(sd_bus*, const char*, const char*, const char*,
                                             sd_bus_message* reply, void* context,
                                             sd_bus_error* error) {
    return getProperty(reply, error, [&] { return self(context).retentionSizeInMB(); });
}

int Tavrisk::_callback_set_RetentionSizeInMB(sd_bus*, const char*, const char*, const char*,
                                             sd_bus_message* value, void* context,
                                             sd_bus_error* error) {
    return setProperty<std::uint8_t>(
        value, error, [&](std::uint8_t size) { self(context).retentionSizeInMB(size); });
}

std::uint8_t Tavrisk::retentionIntervalInMinutes() const {
    return retentionIntervalInMinutes_;
}

std::uint8_t Tavrisk::retentionIntervalInMinutes(std::uint8_t value, bool skipSignal) {
    return store(retentionIntervalInMinutes_, value, "RetentionIntervalInMinutes", skipSignal);
}

std::uint8_t Tavrisk::retentionIntervalInMinutes(std::uint8_t value) {
    return retentionIntervalInMinutes(value, false);
}

int Tavrisk::_callback_get_RetentionIntervalInMinutes(sd_bus*, const char*, const char*,
                                                      const char*, sd_bus_message* reply,
                                                      void* context, sd_bus_error* error) {
    return getProperty(reply, error, [&] { return self(context).retentionIntervalInMinutes(); });
}

int Tavrisk::_callback_set_RetentionIntervalInMinutes(sd_bus*, const char*, const char*,
                                                      const char*, sd_bus_message* value,
                                                      void* context, sd_bus_error* error) {
    return setProperty<std::uint8_t>(value, error, [&](std::uint8_t minutes) {
        self(context).retentionIntervalInMinutes(minutes);
    });
}

std::string Tavrisk::wUXDataLocation() const {
    return wUXDataLocation_;
}

std::string Tavrisk::wUXDataLocation(std::string value, bool skipSignal) {
    return store(wUXDataLocation_, std::move(value), "WUXDataLocation", skipSignal);
}

std::string Tavrisk::wUXDataLocation(std::string value) {
    return wUXDataLocation(std::move(value), false);
}

int Tavrisk::_callback_get_WUXDataLocation(sd_bus*, const char*, const char*, const char*,
                                           sd_bus_message* reply, void* context,
                                           sd_bus_error* error) {
    return getProperty(reply, error, [&] { return self(context).wUXDataLocation(); });
}

std::string Tavrisk::wUXDataCacheLocation() const {
    return wUXDataCacheLocation_;
}

std::string Tavrisk::wUXDataCacheLocation(std::string value, bool skipSignal) {
    return store(wUXDataCacheLocation_, std::move(value), "WUXDataCacheLocation", skipSignal);
}

std::string Tavrisk::wUXDataCacheLocation(std::string value) {
    return wUXDataCacheLocation(std::move(value), false);
}

int Tavrisk::_callback_get_WUXDataCacheLocation(sd_bus*, const char*, const char*, const char*,
                                                sd_bus_message* reply, void* context,
                                                sd_bus_error* error) {
    return getProperty(reply, error, [&] { return self(context).wUXDataCacheLocation(); });
}

// Access by name

void Tavrisk::setPropertyByName(const std::string& name, const PropertiesVariant& value,
                                bool skipSignal) {
    if (name == "SystemLEDSetting") {
        systemLEDSetting(std::get<std::string>(value), skipSignal);
    } else if (name == "RetentionSizeInMB") {
        retentionSizeInMB(std::get<std::uint8_t>(value), skipSignal);
    } else if (name == "RetentionIntervalInMinutes") {
        retentionIntervalInMinutes(std::get<std::uint8_t>(value), skipSignal);
    } else if (name == "WUXDataLocation") {
        wUXDataLocation(std::get<std::string>(value), skipSignal);
    } else if (name == "WUXDataCacheLocation") {
        wUXDataCacheLocation(std::get<std::string>(value), skipSignal);
    }
}

Tavrisk::PropertiesVariant Tavrisk::getPropertyByName(const std::string& name) const {
    if (name == "SystemLEDSetting") {
        return systemLEDSetting();
    }
    if (name == "RetentionSizeInMB") {
        return retentionSizeInMB();
    }
    if (name == "RetentionIntervalInMinutes") {
        return retentionIntervalInMinutes();
    }
    if (name == "WUXDataLocation") {
        return wUXDataLocation();
    }
    if (name == "WUXDataCacheLocation") {
        return wUXDataCacheLocation();
    }
    return {};
}

} // namespace sdbusplus::server::com::vorn::bmc
