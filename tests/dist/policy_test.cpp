// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <grp.h>
#include <pwd.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

namespace {

constexpr auto service = "com.vorn.bmc.tavrisk";
constexpr auto path = "/com/vorn/bmc/tavrisk";

/** What a system bus lets everybody do before any package has a say. */
const std::string systemBusPolicy = R"(
  <policy context="default">
    <allow user="*"/>
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
  </policy>
)";

/** Lets a copy of the table, with `lines` added, hide the machine's in this private root. */
void extendTable(const std::string& table, const std::string& lines) {
    const auto copy = "/var/tmp/" + std::filesystem::path{table}.filename().string();
    writeFile(copy, readFile(table) + lines);
    ASSERT_EQ(mount(copy.c_str(), table.c_str(), nullptr, MS_BIND, nullptr), 0);
}

/** What `body` returns, done under the identity of another user: whoever it connects to sees that
 *  user, also later. */
template <typename Body>
auto as(const std::string& user, Body body) {
    const auto* entry = getpwnam(user.c_str());
    EXPECT_EQ(initgroups(user.c_str(), entry->pw_gid), 0);
    EXPECT_EQ(setegid(entry->pw_gid), 0);
    EXPECT_EQ(seteuid(entry->pw_uid), 0);
    auto result = body();
    EXPECT_EQ(seteuid(0), 0);
    EXPECT_EQ(setegid(0), 0);
    EXPECT_EQ(setgroups(0, nullptr), 0);
    return result;
}

/** What runs a program as another user, who can reach it even below a closed home directory. */
Lines programAs(const std::string& user) {
    return {"setpriv",
            "--reuid=" + user,
            "--regid=" + user,
            "--init-groups",
            "--inh-caps=+dac_read_search",
            "--ambient-caps=+dac_read_search"};
}

/** The daemon under its own user on a bus with the given policy. */
class OnBusWith : public World {
protected:
    static void SetUpTestSuite() {
        const std::string group = std::getenv("TAVRISK_BUS_GROUP");
        extendTable("/etc/passwd", "tavrisk:x:961:961::/:/bin/sh\n"
                                   "member:x:962:962::/:/bin/sh\n"
                                   "outsider:x:963:963::/:/bin/sh\n");
        extendTable("/etc/group",
                    "tavrisk:x:961:\nmember:x:962:\noutsider:x:963:\n" + group + ":x:964:member\n");
    }
    static void TearDownTestSuite() {
        umount("/etc/passwd");
        umount("/etc/group");
    }

    explicit OnBusWith(const std::string& policy) : World{policy} {}

    void SetUp() override {
        if (setegid(961) != 0) {
            GTEST_SKIP() << "this namespace has no other users: run the tests as root";
        }
        setegid(0);
        for (const auto* directory : {"/run", "/run/hmc", "/run/hmc/dump"}) {
            ASSERT_EQ(chown(directory, 961, 961), 0);
        }
        startDaemon(programAs("tavrisk"));
    }

    /** The error with which the bus or the daemon answers, or "". */
    static std::string callError(Peer& peer, const char* interface, const char* member,
                                 const char* types = "", const char* first = nullptr,
                                 const char* second = nullptr) {
        sd_bus_error failed{};
        sd_bus_call_method(peer.bus(), service, path, interface, member, &failed, nullptr, types,
                           first, second);
        std::string name = failed.name != nullptr ? failed.name : "";
        sd_bus_error_free(&failed);
        return name;
    }

    /** What the client says when `user` calls it. */
    static std::string saidByClient(const std::string& user, const std::string& arguments) {
        auto command = programAs(user);
        command.insert(command.end(),
                       {"sh", "-c",
                        "$TAVRISK_CTL --bus=unix:path=/run/test-bus " + arguments + " 2>/run/err"});
        writeFile("/run/err", "");
        std::filesystem::permissions("/run/err", std::filesystem::perms::all);
        EXPECT_EQ(Process{command}.wait(), 1);
        return readFile("/run/err");
    }

    std::vector<std::pair<std::string, Peer>> peers() {
        std::vector<std::pair<std::string, Peer>> all;
        for (const auto* user : {"root", "member", "outsider"}) {
            all.emplace_back(user, as(user, [] { return Peer{}; }));
        }
        return all;
    }
};

struct OnBusWithInstalledPolicy : OnBusWith {
    OnBusWithInstalledPolicy()
        : OnBusWith{systemBusPolicy + "<include>" + std::getenv("TAVRISK_POLICY") + "</include>"} {}
};

TEST_F(OnBusWithInstalledPolicy, OnlyRootAndTheGroupCallMethods) {
    const Bytes data = bytes("{}");
    for (auto& [user, peer] : peers()) {
        SCOPED_TRACE(user);
        const bool served = user != "outsider";
        const auto expectReply = [served, &peer = peer](std::optional<int> reply, int expected) {
            EXPECT_EQ(reply, served ? std::optional{expected} : std::nullopt);
            EXPECT_EQ(peer.error, served ? "" : SD_BUS_ERROR_ACCESS_DENIED);
        };
        expectReply(peer.call("Log", digest(data), data), 0);
        expectReply(peer.call("CPERlog", digest(data), data), 1);
        expectReply(peer.call("Save", "of-" + user, data), 0);
        expectReply(peer.call("SaveAndClearCache"), 1);
        EXPECT_EQ(std::filesystem::exists("/run/hmc/dump/of-" + user), served);
    }
    const std::string denied =
        ": permission denied: the bus's policy or the daemon does not let this user do that\n";
    EXPECT_EQ(saidByClient("outsider", "log /etc/passwd"), "tavriskctl: /etc/passwd" + denied);
    EXPECT_EQ(saidByClient("member", "set SystemLEDSetting x"),
              "tavriskctl: SystemLEDSetting" + denied);
}

TEST_F(OnBusWithInstalledPolicy, EverybodyLooksAndOnlyRootSets) {
    constexpr auto properties = "org.freedesktop.DBus.Properties";
    for (auto& [user, peer] : peers()) {
        SCOPED_TRACE(user);
        EXPECT_EQ(peer.byteProperty("RetentionSizeInMB"), 10);
        EXPECT_EQ(callError(peer, properties, "GetAll", "s", service), "");
        EXPECT_EQ(callError(peer, "org.freedesktop.DBus.Introspectable", "Introspect"), "");
        // The daemon refuses that, which has them at another path, and not the bus.
        EXPECT_EQ(callError(peer, "org.freedesktop.DBus.ObjectManager", "GetManagedObjects"),
                  SD_BUS_ERROR_UNKNOWN_METHOD);

        const bool isRoot = user == "root";
        EXPECT_EQ(peer.set("SystemLEDSetting", "s", user.c_str()), isRoot ? 0 : -EACCES);
        // Refused by the bus itself: the daemon would have said that there is no such property.
        EXPECT_EQ(peer.set("Unknown", "s", ""), isRoot ? -EBADR : -EACCES);
        EXPECT_EQ(peer.stringProperty("SystemLEDSetting"), "root");
    }
}

TEST_F(OnBusWithInstalledPolicy, OnlyRootAndTheServiceUserOwnTheName) {
    for (const auto& [user, expected] : std::vector<std::pair<std::string, int>>{
             {"member", -EACCES}, {"outsider", -EACCES}, {"root", 1}, {"tavrisk", 1}}) {
        SCOPED_TRACE(user);
        SCOPED_TRACE(user);
        auto peer = as(user, [] { return Peer{}; });
        EXPECT_EQ(sd_bus_request_name(peer.bus(), service,
                                      SD_BUS_NAME_REPLACE_EXISTING | SD_BUS_NAME_ALLOW_REPLACEMENT),
                  expected);
    }
}

struct OnBusWithoutLimits : OnBusWith {
    OnBusWithoutLimits() : OnBusWith{World::openPolicy} {}
};

TEST_F(OnBusWithoutLimits, TheBusLibraryKeepsPropertyWritesForRoot) {
    for (auto& [user, peer] : peers()) {
        SCOPED_TRACE(user);
        EXPECT_EQ(peer.call("Save", "x", {}), 0);
        EXPECT_EQ(peer.set("SystemLEDSetting", "s", user.c_str()), user == "root" ? 0 : -EACCES);
        EXPECT_EQ(peer.set("RetentionSizeInMB", 1), user == "root" ? 0 : -EACCES);
        EXPECT_EQ(peer.stringProperty("SystemLEDSetting"), "root");
    }
}

} // namespace
