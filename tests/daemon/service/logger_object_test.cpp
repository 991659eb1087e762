// SPDX-License-Identifier: Apache-2.0
#include "daemon/service/logger_object.hpp"
#include "tests/world.hpp"

namespace {

using LoggerObject = World;

TEST_F(LoggerObject, SetsAndGetsPropertiesByName) {
    Peer peer;
    sdbusplus::bus::bus bus{peer.bus()};
    Tavrisk object{bus, "/object", Tavrisk::action::emit_no_signals};
    const std::vector<std::pair<std::string, Tavrisk::PropertiesVariant>> values{
        {"SystemLEDSetting", "Enabled"},
        {"RetentionSizeInMB", std::uint8_t{1}},
        {"RetentionIntervalInMinutes", std::uint8_t{2}},
        {"WUXDataLocation", "/a"},
        {"WUXDataCacheLocation", "/b"}};
    for (const auto& [name, value] : values) {
        SCOPED_TRACE(name);
        EXPECT_NE(object.getPropertyByName(name), value);
        object.setPropertyByName(name, value);
        EXPECT_EQ(object.getPropertyByName(name), value);
    }
    object.setPropertyByName("Unknown", "x");
    EXPECT_EQ(object.getPropertyByName("Unknown"), Tavrisk::PropertiesVariant{});
    EXPECT_THROW(object.setPropertyByName("RetentionSizeInMB", "1"), std::bad_variant_access);
}

/** Makes and destroys an object, and counts the signals of that name which a peer sees. */
int signalsSeen(const char* signal, Tavrisk::action action) {
    int seen = 0;
    Peer observer;
    sd_bus_add_match(
        observer.bus(), nullptr, ("type='signal',member='" + std::string{signal} + "'").c_str(),
        [](sd_bus_message*, void* count, sd_bus_error*) {
            ++*static_cast<int*>(count);
            return 0;
        },
        &seen);
    Peer peer;
    sd_bus_add_object_manager(peer.bus(), nullptr, "/");
    sdbusplus::bus::bus bus{peer.bus()};
    {
        Tavrisk object{bus, "/object", action};
        object.setPropertyByName("RetentionSizeInMB", std::uint8_t{1}, true);
        object.retentionSizeInMB(2);
    }
    // After a round trip of each, all signals of before have arrived.
    peer.ping();
    observer.ping();
    observer.process();
    return seen;
}

TEST_F(LoggerObject, AnnouncesItsLifeUnlessToldNotTo) {
    using enum Tavrisk::action;
    EXPECT_EQ(signalsSeen("InterfacesAdded", emit_object_added), 1);
    EXPECT_EQ(signalsSeen("InterfacesRemoved", emit_object_added), 1);
    EXPECT_EQ(signalsSeen("PropertiesChanged", emit_object_added), 1);
    EXPECT_EQ(signalsSeen("InterfacesAdded", emit_no_signals), 0);
    EXPECT_EQ(signalsSeen("InterfacesRemoved", emit_no_signals), 0);
}

} // namespace
