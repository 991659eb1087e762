// SPDX-License-Identifier: Apache-2.0
#include "daemon/interface/server.hpp"

#include "daemon/interface/carried_exception.hpp"

#include <sdbusplus/exception.hpp>
#include <sdbusplus/message.hpp>

#include <algorithm>
#include <cerrno>
#include <string_view>
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

/** Tells sd-bus that a method call was handled, so that it sends no reply of its own. */
constexpr int noReply = 1;

/** sd-bus itself answers whoever reads or writes a property. Unless the callback returns an error,
 *  the peer gets half a value, or learns that a value was stored which was not. */
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

template <const tavrisk::PropertyRow& row>
using Get = tavrisk::PropertyValue<row> (Tavrisk::*)() const;
template <const tavrisk::PropertyRow& row>
using Set = tavrisk::PropertyValue<row> (Tavrisk::*)(tavrisk::PropertyValue<row>);
template <const tavrisk::PropertyRow& row>
using SetByName = tavrisk::PropertyValue<row> (Tavrisk::*)(tavrisk::PropertyValue<row>, bool);

template <const tavrisk::PropertyRow& row, Get<row> get>
int getProperty(sd_bus_message* reply, void* context, sd_bus_error* error) {
    return guarded(error, noValue, [&] {
        sdbusplus::message::message{reply}.append((self(context).*get)());
        return 1;
    });
}

template <const tavrisk::PropertyRow& row, Set<row> set>
int setProperty(sd_bus_message* message, void* context, sd_bus_error* error) {
    return guarded(error, noValue, [&] {
        tavrisk::PropertyValue<row> value{};
        sdbusplus::message::message{message}.read(value);
        (self(context).*set)(std::move(value));
        return 1;
    });
}

template <const tavrisk::PropertyRow& row>
constexpr auto signature = tavrisk::isText<row> ? "s" : "y";

template <const tavrisk::PropertyRow& row>
constexpr vtable::vtable_t readOnly(sd_bus_property_get_t get) {
    static_assert(!row.writable);
    return vtable::property(row.name.data(), signature<row>, get, vtable::property_::emits_change);
}

template <const tavrisk::PropertyRow& row>
constexpr vtable::vtable_t writable(sd_bus_property_get_t get, sd_bus_property_set_t set) {
    static_assert(row.writable);
    return vtable::property(row.name.data(), signature<row>, get, set,
                            vtable::property_::emits_change);
}

} // namespace

const Tavrisk::MemberTable Tavrisk::memberTable = std::to_array<vtable::vtable_t>({
    vtable::start(),
    vtable::method("Log", "say", "i", _callback_Log, vtable::common_::unprivileged),
    vtable::method("Save", "say", "i", _callback_Save, vtable::common_::unprivileged),
    vtable::method("CPERlog", "say", "i", _callback_CPERlog, vtable::common_::unprivileged),
    vtable::method("SaveAndClearCache", "", "i", _callback_SaveAndClearCache,
                   vtable::common_::unprivileged),
    writable<tavrisk::systemLEDSetting>(_callback_get_SystemLEDSetting,
                                        _callback_set_SystemLEDSetting),
    writable<tavrisk::retentionSizeInMB>(_callback_get_RetentionSizeInMB,
                                         _callback_set_RetentionSizeInMB),
    writable<tavrisk::retentionIntervalInMinutes>(_callback_get_RetentionIntervalInMinutes,
                                                  _callback_set_RetentionIntervalInMinutes),
    readOnly<tavrisk::wUXDataLocation>(_callback_get_WUXDataLocation),
    readOnly<tavrisk::wUXDataCacheLocation>(_callback_get_WUXDataCacheLocation),
    vtable::end(),
});

Tavrisk::Tavrisk(sdbusplus::bus::bus& bus, const char* path)
    : interface_{bus, path, interface, memberTable.data(), this} {}

Tavrisk::~Tavrisk() = default;

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

int Tavrisk::_callback_get_SystemLEDSetting(sd_bus*, const char*, const char*, const char*,
                                            sd_bus_message* reply, void* context,
                                            sd_bus_error* error) {
    return getProperty<tavrisk::systemLEDSetting, &Tavrisk::systemLEDSetting>(reply, context,
                                                                              error);
}

int Tavrisk::_callback_set_SystemLEDSetting(sd_bus*, const char*, const char*, const char*,
                                            sd_bus_message* value, void* context,
                                            sd_bus_error* error) {
    return setProperty<tavrisk::systemLEDSetting, &Tavrisk::systemLEDSetting>(value, context,
                                                                              error);
}

int Tavrisk::_callback_get_RetentionSizeInMB(sd_bus*, const char*, const char*, const char*,
                                             sd_bus_message* reply, void* context,
                                             sd_bus_error* error) {
    return getProperty<tavrisk::retentionSizeInMB, &Tavrisk::retentionSizeInMB>(reply, context,
                                                                                error);
}

int Tavrisk::_callback_set_RetentionSizeInMB(sd_bus*, const char*, const char*, const char*,
                                             sd_bus_message* value, void* context,
                                             sd_bus_error* error) {
    return setProperty<tavrisk::retentionSizeInMB, &Tavrisk::retentionSizeInMB>(value, context,
                                                                                error);
}

int Tavrisk::_callback_get_RetentionIntervalInMinutes(sd_bus*, const char*, const char*,
                                                      const char*, sd_bus_message* reply,
                                                      void* context, sd_bus_error* error) {
    return getProperty<tavrisk::retentionIntervalInMinutes, &Tavrisk::retentionIntervalInMinutes>(
        reply, context, error);
}

int Tavrisk::_callback_set_RetentionIntervalInMinutes(sd_bus*, const char*, const char*,
                                                      const char*, sd_bus_message* value,
                                                      void* context, sd_bus_error* error) {
    return setProperty<tavrisk::retentionIntervalInMinutes, &Tavrisk::retentionIntervalInMinutes>(
        value, context, error);
}

int Tavrisk::_callback_get_WUXDataLocation(sd_bus*, const char*, const char*, const char*,
                                           sd_bus_message* reply, void* context,
                                           sd_bus_error* error) {
    return getProperty<tavrisk::wUXDataLocation, &Tavrisk::wUXDataLocation>(reply, context, error);
}

int Tavrisk::_callback_get_WUXDataCacheLocation(sd_bus*, const char*, const char*, const char*,
                                                sd_bus_message* reply, void* context,
                                                sd_bus_error* error) {
    return getProperty<tavrisk::wUXDataCacheLocation, &Tavrisk::wUXDataCacheLocation>(
        reply, context, error);
}

// Access by name

namespace {

struct PropertyByName {
    std::string_view name;
    Tavrisk::PropertiesVariant (*get)(const Tavrisk&);
    void (*set)(Tavrisk&, const Tavrisk::PropertiesVariant&, bool skipSignal);
};

template <const tavrisk::PropertyRow& row, Get<row> get, SetByName<row> set>
constexpr PropertyByName byName() {
    return {row.name,
            [](const Tavrisk& object) -> Tavrisk::PropertiesVariant { return (object.*get)(); },
            [](Tavrisk& object, const Tavrisk::PropertiesVariant& value, bool skipSignal) {
                (object.*set)(std::get<tavrisk::PropertyValue<row>>(value), skipSignal);
            }};
}

constexpr std::array propertiesByName{
    byName<tavrisk::systemLEDSetting, &Tavrisk::systemLEDSetting, &Tavrisk::systemLEDSetting>(),
    byName<tavrisk::retentionSizeInMB, &Tavrisk::retentionSizeInMB, &Tavrisk::retentionSizeInMB>(),
    byName<tavrisk::retentionIntervalInMinutes, &Tavrisk::retentionIntervalInMinutes,
           &Tavrisk::retentionIntervalInMinutes>(),
    byName<tavrisk::wUXDataLocation, &Tavrisk::wUXDataLocation, &Tavrisk::wUXDataLocation>(),
    byName<tavrisk::wUXDataCacheLocation, &Tavrisk::wUXDataCacheLocation,
           &Tavrisk::wUXDataCacheLocation>(),
};
static_assert(propertiesByName.size() == tavrisk::properties.size());

const PropertyByName* findByName(std::string_view name) {
    const auto* row =
        std::find_if(propertiesByName.begin(), propertiesByName.end(),
                     [name](const PropertyByName& known) { return known.name == name; });
    return row == propertiesByName.end() ? nullptr : row;
}

} // namespace

void Tavrisk::setPropertyByName(const std::string& name, const PropertiesVariant& value,
                                bool skipSignal) {
    if (const auto* property = findByName(name)) {
        property->set(*this, value, skipSignal);
    }
}

Tavrisk::PropertiesVariant Tavrisk::getPropertyByName(const std::string& name) const {
    const auto* property = findByName(name);
    return property != nullptr ? property->get(*this) : PropertiesVariant{};
}

} // namespace sdbusplus::server::com::vorn::bmc
