// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <sys/resource.h>

#include <csignal>
#include <string_view>

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

constexpr auto service = "com.vorn.bmc.tavrisk";
constexpr auto path = "/com/vorn/bmc/tavrisk";

using Daemon = World;

/** "[main:42]" as "[main:N]": source lines differ from build to build. */
Lines withoutSourceLines(Lines lines) {
    for (auto& line : lines) {
        if (const auto start = line.find("[main:"); start != std::string::npos) {
            line.replace(start, line.find(']') + 1 - start, "[main:N]");
        }
    }
    return lines;
}

void eraseAll(std::string& text, const std::string& part) {
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at)) {
        text.erase(at, part.size());
    }
}

bool ownsTheName(Peer& peer, const Peer& owner) {
    sd_bus_creds* creds = nullptr;
    const char* ownerName = nullptr;
    const char* busName = nullptr;
    sd_bus_get_unique_name(const_cast<Peer&>(owner).bus(), &busName);
    const bool owned =
        sd_bus_get_name_creds(peer.bus(), service, SD_BUS_CREDS_UNIQUE_NAME, &creds) >= 0 &&
        sd_bus_creds_get_unique_name(creds, &ownerName) >= 0 && std::string{ownerName} == busName;
    sd_bus_creds_unref(creds);
    return owned;
}

/** Subscribes to a signal and keeps the body of each, written out. */
std::unique_ptr<Lines> subscribe(Peer& peer, const std::string& match) {
    auto seen = std::make_unique<Lines>();
    sd_bus_add_match(
        peer.bus(), nullptr, ("type='signal'," + match).c_str(),
        [](sd_bus_message* message, void* context, sd_bus_error*) {
            char* text = nullptr;
            std::size_t size = 0;
            auto* dump = open_memstream(&text, &size);
            sd_bus_message_dump(message, dump, SD_BUS_MESSAGE_DUMP_SUBTREE_ONLY);
            fclose(dump);
            static_cast<Lines*>(context)->emplace_back(text);
            std::free(text);
            return 0;
        },
        seen.get());
    return seen;
}

TEST_F(Daemon, AnnouncesItsObjectWithStartValues) {
    Peer peer;
    const auto added =
        subscribe(peer, "member='InterfacesAdded',interface='org.freedesktop.DBus.ObjectManager'");
    startDaemon();
    ASSERT_TRUE(eventually([&] {
        peer.process();
        return added->size() >= 2;
    }));
    for (const auto& announced : *added) {
        EXPECT_THAT(announced, AllOf(HasSubstr("OBJECT_PATH \"/com/vorn/bmc/tavrisk\""),
                                     HasSubstr("STRING \"com.vorn.bmc.tavrisk\""),
                                     HasSubstr("STRING \"Disabled\""), HasSubstr("BYTE 10")));
    }
    EXPECT_THAT(withoutSourceLines(recordedOnBusThread()),
                ElementsAre("log 3 349 wuxmonitor_start : No Monitoring yet!, rc = 1 \\n",
                            "log 5 349 [main:N] Requesting com.vorn.bmc.tavrisk"));
    EXPECT_EQ(peer.stringProperty("SystemLEDSetting"), "Disabled");
    EXPECT_EQ(peer.byteProperty("RetentionSizeInMB"), 10);
    EXPECT_EQ(peer.byteProperty("RetentionIntervalInMinutes"), 10);
    EXPECT_EQ(peer.stringProperty("WUXDataLocation"), "/mmc1/hmc");
    EXPECT_EQ(peer.stringProperty("WUXDataCacheLocation"), "/var/run/hmc");

    sd_bus_message* reply = nullptr;
    EXPECT_GE(sd_bus_call_method(peer.bus(), service, "/", "org.freedesktop.DBus.ObjectManager",
                                 "GetManagedObjects", nullptr, &reply, ""),
              0);
    EXPECT_GT(sd_bus_message_enter_container(reply, 'a', "{oa{sa{sv}}}"), 0);
    EXPECT_GT(sd_bus_message_enter_container(reply, 'e', "oa{sa{sv}}"), 0);
    const char* managed = "";
    EXPECT_GT(sd_bus_message_read_basic(reply, 'o', &managed), 0);
    EXPECT_STREQ(managed, path);
    sd_bus_message_unref(reply);
}

TEST_F(Daemon, AnnouncesChangesOfPropertiesOnly) {
    startDaemon();
    Peer peer;
    const auto changes = subscribe(peer, "member='PropertiesChanged'");
    EXPECT_EQ(peer.set("RetentionSizeInMB", 10), 0); // As it is.
    EXPECT_EQ(peer.set("RetentionSizeInMB", 255), 0);
    EXPECT_EQ(peer.set("RetentionIntervalInMinutes", std::uint8_t{0}), 0);
    EXPECT_EQ(peer.set("SystemLEDSetting", "s", ""), 0);
    EXPECT_LT(peer.set("WUXDataLocation", "s", "/tmp"), 0);
    EXPECT_LT(peer.set("RetentionSizeInMB", "s", "10"), 0);
    ASSERT_TRUE(eventually([&] {
        peer.process();
        return changes->size() >= 3;
    }));
    EXPECT_THAT(*changes, ElementsAre(AllOf(HasSubstr("RetentionSizeInMB"), HasSubstr("BYTE 255")),
                                      AllOf(HasSubstr("RetentionInterval"), HasSubstr("BYTE 0")),
                                      AllOf(HasSubstr("SystemLED"), HasSubstr("STRING \"\""))));
    EXPECT_EQ(peer.byteProperty("RetentionSizeInMB"), 255);
    EXPECT_EQ(peer.stringProperty("WUXDataLocation"), "/mmc1/hmc");
}

TEST_F(Daemon, IntrospectsAsDocumented) {
    startDaemon();
    Peer peer;
    sd_bus_message* reply = nullptr;
    ASSERT_GE(sd_bus_call_method(peer.bus(), service, path, "org.freedesktop.DBus.Introspectable",
                                 "Introspect", nullptr, &reply, ""),
              0);
    const char* xml = "";
    sd_bus_message_read_basic(reply, 's', &xml);
    auto documented = readFile(std::getenv("TAVRISK_SOURCE") +
                               std::string{"/src/contract/com.vorn.bmc.tavrisk.xml"});
    documented.erase(0, documented.find("<interface"));
    documented.erase(documented.find("</node>"));
    // libsystemd neither writes comments nor the names of arguments.
    for (const auto* name : {"validationString", "logDataBuffer", "result"}) {
        eraseAll(documented, std::string{" name=\""} + name + "\"");
    }
    for (auto start = documented.find("<!--"); start != std::string::npos;
         start = documented.find("<!--")) {
        documented.erase(start, documented.find("-->") + 3 - start);
    }
    std::string introspected{xml};
    for (const auto* space : {" ", "\n"}) {
        eraseAll(introspected, space);
        eraseAll(documented, space);
    }
    EXPECT_THAT(introspected, HasSubstr(documented));
    sd_bus_message_unref(reply);
}

TEST_F(Daemon, ServesOnWithoutAnObjectWhenItCannotBeRegistered) {
    fail("sd_bus_add_object_vtable", ENOMEM);
    startDaemon();
    EXPECT_THAT(recorded(),
                Contains("log 3 349 tavriskmain_init : init or object store exception"));
    Peer peer;
    EXPECT_EQ(peer.call("SaveAndClearCache"), std::nullopt);
    EXPECT_EQ(peer.error, SD_BUS_ERROR_UNKNOWN_OBJECT);
}

TEST_F(Daemon, KeepsTheObjectWhenALaterStepFails) {
    fail("pthread_create", EAGAIN);
    startDaemon();
    EXPECT_THAT(recorded(),
                Contains("log 3 349 tavriskmain_init : init or object store exception"));
    EXPECT_EQ(Peer{}.byteProperty("RetentionSizeInMB"), 10);
}

/** Lets a process take `bytes` more of address space than it has now; nothing lifts the limit. */
void limitAddressSpace(pid_t pid, std::optional<rlim_t> bytes) {
    rlimit limit{RLIM_INFINITY, RLIM_INFINITY};
    if (bytes) {
        const auto status = readFile("/proc/" + std::to_string(pid) + "/status");
        constexpr std::string_view label{"VmSize:"};
        limit.rlim_cur =
            *bytes + 1024 * std::stoull(status.substr(status.find(label) + label.size()));
    }
    ASSERT_EQ(prlimit(pid, RLIMIT_AS, &limit, nullptr), 0);
}

TEST_F(Daemon, AnswersAPropertyForWhichThereIsNoMemoryWithAnErrorAndServesOn) {
    if (const auto* why = whyNoMemoryFigures()) {
        GTEST_SKIP() << why;
    }
    constexpr std::size_t mebibyte = std::size_t{1} << 20U;
    // Or what was freed before would serve.
    startDaemon({"env", "GLIBC_TUNABLES=glibc.malloc.mmap_threshold=131072"});
    Peer peer;
    const std::string large(24 * mebibyte, 'x');
    ASSERT_EQ(peer.set("SystemLEDSetting", "s", large.c_str()), 0);
    const auto isStored = [&] { return peer.stringProperty("SystemLEDSetting") == large; };
    const auto failedPasses = [] { return recordedWith("failed processing messages").size(); };
    ASSERT_TRUE(isStored());

    limitAddressSpace(daemon->pid(), mebibyte);
    EXPECT_FALSE(isStored()) << "not tried without memory";
    EXPECT_TRUE(eventually([&] { return failedPasses() == 1; }));

    // Enough to take the call in, not to store what it holds.
    limitAddressSpace(daemon->pid(), std::nullopt);
    limitAddressSpace(daemon->pid(), 30 * mebibyte);
    const std::string larger(26 * mebibyte, 'y');
    EXPECT_LT(peer.set("SystemLEDSetting", "s", larger.c_str()), 0);
    EXPECT_TRUE(eventually([&] { return failedPasses() == 2; }));

    limitAddressSpace(daemon->pid(), std::nullopt);
    EXPECT_TRUE(isStored());
    EXPECT_EQ(peer.set("SystemLEDSetting", "s", "On"), 0);
    EXPECT_EQ(peer.stringProperty("SystemLEDSetting"), "On");
    EXPECT_THAT(recordedWith("failed processing messages"),
                ElementsAre(HasSubstr("[10]"), HasSubstr("[9]")));
}

TEST_F(Daemon, TakesItsNameOverAndLetsItGo) {
    Peer before;
    ASSERT_GE(sd_bus_request_name(before.bus(), service, SD_BUS_NAME_ALLOW_REPLACEMENT), 0);
    launchDaemon();
    Peer after;
    ASSERT_TRUE(eventually([&] { return !ownsTheName(after, before); }));
    ASSERT_GE(sd_bus_request_name(after.bus(), service, SD_BUS_NAME_REPLACE_EXISTING), 0);
    EXPECT_TRUE(ownsTheName(before, after));
}

TEST_F(Daemon, ExitsWith1WhenItsNameIsRefused) {
    Peer owner;
    ASSERT_GE(sd_bus_request_name(owner.bus(), service, 0), 0);
    launchDaemon();
    EXPECT_EQ(daemon->wait(), 1);
    EXPECT_THAT(withoutSourceLines(recorded()),
                Contains("log 3 349 [main:N] failed requesting com.vorn.bmc.tavrisk "));
}

TEST_F(Daemon, ExitsWith1WithoutABus) {
    stopBus();
    launchDaemon();
    EXPECT_EQ(daemon->wait(), 1);
    EXPECT_THAT(withoutSourceLines(recordedOnBusThread()),
                ElementsAre(StartsWith("log 3 349 [main:N] failed opening the default bus: ")));
}

TEST_F(Daemon, ExitsWith255AfterTenFailedPasses) {
    startDaemon();
    forgetRecorded();
    stopBus();
    EXPECT_EQ(daemon->wait(), 255);
    Lines expected;
    for (int budget = 10; budget > 0; --budget) {
        expected.push_back("log 5 349 [main:N] failed processing messages [" +
                           std::to_string(budget) + "]");
        expected.push_back("sleep 1");
    }
    expected.push_back("log 3 349 [main:N] failed processing messages [0], exiting");
    EXPECT_EQ(withoutSourceLines(recordedOnBusThread()), expected);
}

} // namespace
