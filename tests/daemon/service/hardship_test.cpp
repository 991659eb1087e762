// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <atomic>
#include <filesystem>

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto service = "com.vorn.bmc.tavrisk";
constexpr auto path = "/com/vorn/bmc/tavrisk";
constexpr auto properties = "org.freedesktop.DBus.Properties";

const auto event = bytes(R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU0"],)"
                         R"("MessageId":"SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold"})");

using Message = std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)>;

Message newCall(Peer& peer, const char* interface, const char* method) {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(peer.bus(), &message, service, path, interface, method);
    return {message, sd_bus_message_unref};
}

Message newCall(Peer& peer, const char* method, const std::string& name, const Bytes& data) {
    auto message = newCall(peer, service, method);
    sd_bus_message_append_basic(message.get(), 's', name.c_str());
    sd_bus_message_append_array(message.get(), 'y', data.data(), data.size());
    return message;
}

/** With a result, and not with an error; others' calls may be long before it. */
bool isAnswered(Peer& peer, const Message& call) {
    return sd_bus_call(peer.bus(), call.get(), 300'000'000, nullptr, nullptr) >= 0;
}

/** Another peer, that asks for a property all the time and knows how long it ever waited. */
class Onlooker {
public:
    Onlooker()
        : thread_{[this](const std::stop_token& stop) {
              while (!stop.stop_requested()) {
                  ask();
              }
          }} {}

    /** Once it was served again; nothing when it was refused an answer. */
    std::optional<std::chrono::milliseconds> longestWait() {
        thread_.request_stop();
        thread_.join();
        ask();
        return served_ ? std::optional{duration_cast<std::chrono::milliseconds>(longest_)}
                       : std::nullopt;
    }

private:
    void ask() {
        const auto start = Clock::now();
        const auto message = newCall(peer_, properties, "Get");
        sd_bus_message_append(message.get(), "ss", service, "RetentionSizeInMB");
        served_ = isAnswered(peer_, message) && served_;
        longest_ = std::max(longest_, Clock::now() - start);
        usleep(1000);
    }

    Peer peer_;
    bool served_ = true;
    Clock::duration longest_{};
    std::jthread thread_;
};

/** After each of these the daemon serves as before. */
class Hardship : public World {
protected:
    void SetUp() override {
        writeFile("/app/bin/wuxRetensionChk.sh", "#!/bin/sh\nexit 1\n");
        std::filesystem::permissions("/app/bin/wuxRetensionChk.sh", std::filesystem::perms::all);
        startDaemon();
    }

    /** Does it while another peer looks on, who is served all the time, and after it. */
    void endure(const char* name, const std::function<void(Peer&)>& hardship) {
        SCOPED_TRACE(name);
        std::optional<std::chrono::milliseconds> wait;
        {
            Onlooker onlooker;
            Peer peer;
            hardship(peer);
            wait = onlooker.longestWait();
        }
        ASSERT_TRUE(wait.has_value());
        RecordProperty(name, std::to_string(wait->count()) + " ms");
        std::printf("Longest wait of another peer, %s: %ld ms\n", name, wait->count());
        EXPECT_EQ(Peer{}.call("Log", digest(event), event), 0);
        EXPECT_TRUE(recordedWith("failed processing messages").empty());
    }

    /** Sends without waiting for replies, which nobody reads. */
    static void send(Peer& peer, const Message& message) {
        ASSERT_GE(sd_bus_send(peer.bus(), message.get(), nullptr), 0);
        ASSERT_GE(sd_bus_flush(peer.bus()), 0);
    }
};

TEST_F(Hardship, OfPlacesThatTakeNoFile) {
    const auto cper = bytes(
        readFile(std::getenv("TAVRISK_SOURCE") + std::string{"/samples/cper/pcie-error.cper"}));
    const struct {
        const char* name;
        const char* options; // Of a file system of its own, if that is it.
        unsigned long flags; // To mount it again with.
        bool missing;
    } cases[] = {
        {"tree-full", "size=4k", 0, false},
        {"tree-without-inodes", "nr_inodes=4", 0, false},
        {"tree-read-only", "size=1m", MS_RDONLY, false},
        {"tree-missing", nullptr, 0, true},
    };
    for (const auto& c : cases) {
        endure(c.name, [&](Peer& peer) {
            if (c.options != nullptr) {
                ASSERT_EQ(mount("tmpfs", "/run/hmc", "tmpfs", 0, c.options), 0);
                std::filesystem::create_directories("/run/hmc/dump");
                std::filesystem::create_directories("/run/hmc/rawCPER");
                writeFile("/run/hmc/filler", std::string(4096, 'x'));
                ASSERT_EQ(mount("tmpfs", "/run/hmc", "tmpfs", MS_REMOUNT | c.flags, c.options), 0);
            }
            if (c.missing) {
                std::filesystem::rename("/run/hmc", "/run/elsewhere");
            }
            forgetRecorded();
            EXPECT_EQ(peer.call("Log", digest(event), event), 1);
            EXPECT_EQ(peer.call("CPERlog", digest(cper), cper), 0);
            EXPECT_EQ(peer.call("Save", "abc", event), 1);
            EXPECT_EQ(peer.call("SaveAndClearCache"), 1);
            EXPECT_TRUE(waitForRecorded("submit ", 2)) << "both events are reported";
            if (c.missing) {
                std::filesystem::rename("/run/elsewhere", "/run/hmc");
            } else {
                umount2("/run/hmc", MNT_DETACH);
            }
        });
    }
}

TEST_F(Hardship, OfDescriptors) {
    endure("no-descriptors", [&](Peer& peer) {
        rlimit before{};
        ASSERT_EQ(prlimit(daemon->pid(), RLIMIT_NOFILE, nullptr, &before), 0);
        const rlimit none{3, before.rlim_max}; // The standard ones, which it has.
        ASSERT_EQ(prlimit(daemon->pid(), RLIMIT_NOFILE, &none, nullptr), 0);
        for (int i = 0; i < 20; ++i) {
            EXPECT_EQ(peer.call("Log", digest(event), event), 1);
            EXPECT_EQ(peer.call("Save", "abc", event), 1);
        }
        ASSERT_EQ(prlimit(daemon->pid(), RLIMIT_NOFILE, &before, nullptr), 0);
    });
}

TEST_F(Hardship, OfArgumentsAtTheirLimits) {
    endure("wrong-signatures", [](Peer& peer) {
        for (const auto* method : {"Log", "Save", "CPERlog", "SaveAndClearCache", "NoSuch"}) {
            for (const auto* types : {"s", "ss", "si", "sayi", "ays", "v", "(say)", "saay"}) {
                const auto message = newCall(peer, service, method);
                for (const auto* type = types; *type != '\0'; ++type) {
                    // Nothing of a message that cannot be completed is sent.
                    if (*type == 's') {
                        sd_bus_message_append(message.get(), "s", "x");
                    } else if (*type == 'i') {
                        sd_bus_message_append(message.get(), "i", 1);
                    } else if (*type == 'v') {
                        sd_bus_message_append(message.get(), "v", "s", "x");
                    } else if (*type == '(') {
                        sd_bus_message_append(message.get(), "(say)", "x", 1, 1);
                        break;
                    } else if (*type == 'a') {
                        sd_bus_message_append(message.get(), type[1] == 'a' ? "aay" : "ay", 0);
                        type += type[1] == 'a' ? 2 : 1;
                    }
                }
                EXPECT_FALSE(isAnswered(peer, message)) << method << " " << types;
            }
        }
        EXPECT_LT(peer.set("SystemLEDSetting", 1), 0);
        EXPECT_LT(peer.set("RetentionSizeInMB", "s", "1"), 0);
    });
    endure("array-at-the-limit-of-the-bus", [](Peer& peer) {
        const Bytes largest((32U << 20U) - 1024, 'x');
        EXPECT_TRUE(isAnswered(peer, newCall(peer, "Save", "abc", largest)));
        EXPECT_EQ(std::filesystem::file_size("/run/hmc/dump/abc"), largest.size());
        std::filesystem::remove("/run/hmc/dump/abc");
    });
    endure("array-beyond-it", [](Peer& peer) {
        EXPECT_FALSE(isAnswered(peer, newCall(peer, "Save", "abc", Bytes(33U << 20U))));
        EXPECT_FALSE(std::filesystem::exists("/run/hmc/dump/abc"));
    });
    endure("strings-of-128-KiB", [](Peer& peer) {
        const std::string text(128 << 10U, 'x');
        EXPECT_EQ(peer.call("Log", digest(event) + text, event), 1);
        EXPECT_EQ(peer.call("Log", text, event), 1);
        EXPECT_EQ(peer.call("Save", text, event), 1);
        EXPECT_EQ(peer.set("SystemLEDSetting", "s", text.c_str()), 0);
        EXPECT_EQ(peer.stringProperty("SystemLEDSetting"), text);
    });
}

TEST_F(Hardship, OfPeersThatDoNotWaitForAnAnswer) {
    const int calls = thorough() ? 20'000 : 500;
    const auto name = digest(event);
    endure("ends-in-mid-message", [&](Peer&) {
        const Bytes large(16 << 20U, 'x');
        for (int i = 0; i < 20; ++i) {
            Peer brief;
            // Queued, and begun with: more than a socket takes at once.
            sd_bus_send(brief.bus(), newCall(brief, "Save", "abc", large).get(), nullptr);
            shutdown(sd_bus_get_fd(brief.bus()), SHUT_RDWR);
        }
        for (int i = 0; i < 20; ++i) {
            Peer brief;
            send(brief, newCall(brief, "Log", name, event));
        }
    });
    endure("calls-without-reply", [&](Peer& peer) {
        forgetRecorded();
        for (int i = 0; i < calls; ++i) {
            const auto message = newCall(peer, "Log", name, event);
            sd_bus_message_set_expect_reply(message.get(), 0);
            send(peer, message);
        }
        EXPECT_TRUE(isAnswered(peer, newCall(peer, "Log", name, event)));
        EXPECT_TRUE(waitForRecorded("submit ", static_cast<std::size_t>(calls) + 1));
    });
    endure("property-writes", [&](Peer& peer) {
        for (int i = 0; i < 5 * calls; ++i) {
            const auto message = newCall(peer, properties, "Set");
            sd_bus_message_append(message.get(), "ssv", service, "RetentionSizeInMB", "y",
                                  10 + i % 2);
            sd_bus_message_set_expect_reply(message.get(), 0);
            send(peer, message);
        }
        const auto message = newCall(peer, properties, "Set");
        sd_bus_message_append(message.get(), "ssv", service, "SystemLEDSetting", "s", "Last");
        EXPECT_TRUE(isAnswered(peer, message));
    });
    endure("never-reads", [&](Peer& peer) {
        sd_bus_add_match(peer.bus(), nullptr, "type='signal'", nullptr, nullptr);
        for (int i = 0; i < calls; ++i) {
            const auto message = newCall(peer, properties, "GetAll");
            sd_bus_message_append(message.get(), "s", service);
            send(peer, message);
        }
        Peer writer;
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(writer.set("SystemLEDSetting", "s", std::to_string(i).c_str()), 0);
        }
    });
}

} // namespace
