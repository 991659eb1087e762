// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using Request = World;

const auto event = bytes(R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU0"],)"
                         R"("MessageId":"SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold"})");

unsigned modeOf(const std::string& path) {
    struct stat status {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777U;
}

/** A value in kB of /proc/PID/status. */
long memory(const Process& process, const std::string& key) {
    const auto status = readFile("/proc/" + std::to_string(process.pid()) + "/status");
    return std::stol(status.substr(status.find(key + ":") + key.size() + 1));
}

TEST_F(Request, TakesAnEventFromTheCallToTheEventLog) {
    stopClock(1'700'000'000);
    startDaemon();
    forgetRecorded();
    const auto name = digest(event);
    EXPECT_EQ(Peer{}.call("Log", name, event), 0);
    ASSERT_TRUE(waitForRecorded("kelpc_destroy"));

    EXPECT_THAT(
        recordedOnBusThread(),
        ElementsAre("log 5 349 SignIt: Message: 512 INIT", "log 5 349 SignIt: Message: 512 UPDATE",
                    "log 5 349 SignIt: Message: 512 FINAL", "log 5 349 SignIt: SignIt: (Memcpy)",
                    "log 5 349 SignIt: SignIt: (Done): (" + name + ")",
                    "log 5 349 validateBuffer: bufferh: " + name,
                    "log 5 349 validateBuffer: calculated hash  " + name,
                    "log 5 349 validateBuffer: Hashes match"));
    EXPECT_THAT(recordedOnWorkers(),
                ElementsAre("log 5 349 checkRedfishData:  parsing JSON",
                            "log 5 349 checkRedfishData: Entry parsing JSON",
                            "kelpc_initialize tavrisk 0000000011000000 " + std::string(64, '0') +
                                "11000000" + std::string(120, '0'),
                            "log 5 349 tavrisk_generate_event(): entering.\\n",
                            "log 5 349 Log the event.\\n", "build 1 of 1024", "create",
                            "add 6 5 GPU0", "submit 66 1 2 HMC0005",
                            "log 5 349 ZEL event submitted successfully", "free",
                            "log 5 349 Event raise successfully: [HMC0005], status: [0]",
                            "log 5 349 The GPU0 upper warning threshold has been exceeded.",
                            "log 5 349 Event logged for event = 5 , rc = 0\\n", "kelpc_destroy"));
    EXPECT_TRUE(eventually([&] {
        const auto lines = syslog();
        return std::count(lines.begin(), lines.end(), "31 tavrisk: Log the event.\n") == 1;
    }));

    const auto file = "/run/hmc/" + name + ".1700000000";
    EXPECT_EQ(bytes(readFile(file)), event);
    EXPECT_EQ(modeOf(file), 0774U);
}

TEST_F(Request, AnswersRefusedInputWithANumberAndKeepsNothing) {
    startDaemon();
    Peer peer;
    struct {
        const char* method;
        std::string validationString;
        Bytes data;
        int result;
        const char* line;
    } const cases[] = {
        {"Log", "", event, 2, "LogEvent : validationString or logDataBuffer is empty \\n"},
        {"Log", digest(event), {}, 2, "LogEvent : validationString or logDataBuffer is empty \\n"},
        {"CPERlog", "", event, 2, "LogCPEREvent : validationString or logDataBuffer is empty \\n"},
        {"Log", digest({1}), event, 1, "LogEvent : validateBuffer failed, rc = -1 \\n"},
        {"CPERlog", digest({1}), event, 1, "LogCPEREvent : validateBuffer failed, rc = -1 \\n"},
        {"Log", digest(event) + "/x", event, 1,
         "LogEvent : tavrisk_daemon_thread not started, rc = -2 \\n"},
        {"Save", "", event, 1, nullptr},
        {"Save", "no/directory", event, 1,
         "SaveData: Failed opening data file: /var/run/hmc/dump/no/directory"},
    };
    for (const auto& c : cases) {
        forgetRecorded();
        EXPECT_EQ(peer.call(c.method, c.validationString, c.data), c.result) << c.method;
        if (c.line != nullptr) {
            EXPECT_EQ(recordedOnBusThread().back(), std::string{"log 3 349 "} + c.line);
        } else {
            EXPECT_THAT(recordedOnBusThread(), IsEmpty());
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty("/run/hmc/dump"));
    EXPECT_THAT(recordedWith("Failed parsing JSON"), IsEmpty());
}

TEST_F(Request, AnswersMalformedCallsWithAnErrorAndNoTrace) {
    startDaemon();
    forgetRecorded();
    Peer peer;
    const auto call = [&](const char* types, auto... arguments) {
        return sd_bus_call_method(peer.bus(), "com.vorn.bmc.tavrisk", "/com/vorn/bmc/tavrisk",
                                  "com.vorn.bmc.tavrisk", "Log", nullptr, nullptr, types,
                                  arguments...);
    };
    EXPECT_LT(call("ss", "a", "b"), 0);
    EXPECT_LT(call("s", "a"), 0);
    EXPECT_LT(call(""), 0);
    EXPECT_THAT(recordedOnBusThread(), IsEmpty());
    EXPECT_EQ(peer.call("Log", digest(event), event), 0);
}

TEST_F(Request, SavesWhateverItIsGiven) {
    startDaemon();
    Peer peer;
    EXPECT_EQ(peer.call("Save", "abc", {1, 2, 3}), 0);
    EXPECT_EQ(peer.call("Save", "abc", {1, 2}), 0);
    EXPECT_EQ(bytes(readFile("/run/hmc/dump/abc")), (Bytes{1, 2}));
    EXPECT_EQ(modeOf("/run/hmc/dump/abc"), 0774U);
    EXPECT_EQ(peer.call("Save", "empty", {}), 0);
    EXPECT_EQ(std::filesystem::file_size("/run/hmc/dump/empty"), 0U);
}

TEST_F(Request, ReportsAFullFileSystemAndClassifiesTheEventAllTheSame) {
    ASSERT_EQ(mount("tmpfs", "/run/hmc", "tmpfs", 0, "size=4k"), 0);
    std::filesystem::create_directory("/run/hmc/dump");
    writeFile("/run/hmc/filler", std::string(4096, 'x'));
    stopClock(5);
    startDaemon();
    Peer peer;
    const auto name = digest(event);
    EXPECT_EQ(peer.call("Log", name, event), 1);
    EXPECT_TRUE(waitForRecorded("submit"));
    EXPECT_EQ(peer.call("Save", "abc", event), 1);
    EXPECT_THAT(recorded(),
                ::testing::AllOf(
                    Contains("log 3 349 tavrisk_daemon_thread: Failed writing data file: "
                             "/var/run/hmc/" +
                             name + ".5"),
                    Contains("log 3 349 LogEvent : tavrisk_daemon_thread not started, rc = -3 \\n"),
                    Contains("log 3 349 SaveData: Failed writing data file: "
                             "/var/run/hmc/dump/abc")));
    umount2("/run/hmc", MNT_DETACH); // Somebody may be at work in there.
}

TEST_F(Request, TriesARefusedWorkerForASecondOnce) {
    startDaemon();
    Peer peer;
    fail("pthread_create", EAGAIN);
    forgetRecorded();
    EXPECT_EQ(peer.call("Log", digest(event), event), 1);
    EXPECT_EQ(recordedOnBusThread().size(), 8 + 100 + 2U); // Digest, pauses, two warnings.
    EXPECT_EQ(recordedWith("log 3 349 tavrisk_daemon_thread: Failed starting worker").size(), 1U);
    forgetRecorded();
    EXPECT_EQ(peer.call("Log", digest(event), event), 1);
    EXPECT_THAT(recordedWith("nanosleep 0"), IsEmpty());
    fail("pthread_create", 0);
    EXPECT_EQ(peer.call("Log", digest(event), event), 0);
    ASSERT_TRUE(waitForRecorded("kelpc_destroy"));
    usleep(10'000); // The worker has its end before it.
    fail("pthread_create", EAGAIN);
    EXPECT_EQ(peer.call("Log", digest(event), event), 1);
    EXPECT_EQ(recordedWith("nanosleep 0").size(), 100U);
}

TEST_F(Request, SubmitsEveryOneOfFourThousandPipelinedCalls) {
    startDaemon();
    Peer peer;
    const auto name = digest(event);
    int accepted = 0;
    for (int i = 0; i < 4000; ++i) {
        sd_bus_message* message = nullptr;
        sd_bus_message_new_method_call(peer.bus(), &message, "com.vorn.bmc.tavrisk",
                                       "/com/vorn/bmc/tavrisk", "com.vorn.bmc.tavrisk", "Log");
        sd_bus_message_append_basic(message, 's', name.c_str());
        sd_bus_message_append_array(message, 'y', event.data(), event.size());
        sd_bus_call_async(
            peer.bus(), nullptr, message,
            [](sd_bus_message* reply, void* count, sd_bus_error*) {
                std::int32_t result = -1;
                sd_bus_message_read_basic(reply, 'i', &result);
                *static_cast<int*>(count) += result == 0 ? 1 : 0;
                return 0;
            },
            &accepted, 300'000'000);
        sd_bus_message_unref(message);
        peer.process();
    }
    ASSERT_TRUE(eventually([&] {
        peer.process();
        return accepted == 4000;
    })) << accepted;
    EXPECT_TRUE(waitForRecorded("kelpc_destroy", 4000));
    EXPECT_EQ(recordedWith("submit 66 1 2 HMC0005").size(), 4000U);
}

TEST_F(Request, TakesMemoryForWhatIsReadOfARecordOnly) {
    if (const auto* why = whyNoMemoryFigures()) {
        GTEST_SKIP() << why;
    }
    const std::size_t size = (thorough() ? 16 : 4) << 20;
    const auto filled = [size](std::string start, const std::string& piece,
                               const std::string& end) {
        while (start.size() < size) {
            start += piece;
        }
        return bytes(start + end);
    };
    const std::string members = R"("EventType":"Event","Severity":"Critical","MessageArgs":["G")";
    const struct {
        const char* name;
        Bytes record;
        const char* line;
    } cases[] = {
        {"ArrayOfZeros", filled("[0", ",0", "]"), "Failed parsing JSON"},
        {"NeverClosed", filled("[0", ",0", ""), "Failed parsing JSON"},
        {"MembersOfArguments", filled("{" + members, ",[]", "]}"), "submit 66 1 1 HMC0001"},
        {"LongText", filled("{" + members + R"(],"x":")", "xxxxxxxx", "\"}"),
         "submit 66 1 1 HMC0001"},
        {"LongSeverity", filled("{" + members + R"(],"EntryType":")", "\\u0041", "\"}"),
         "submit 66 1 1 HMC0001"},
        {"ManyMembers", filled("{" + members + "]", R"(,"a name of some length":{})", "}"),
         "submit 66 1 1 HMC0001"},
        {"ManyTimesTheSame", filled("{" + members + "]", R"(,"MessageArgs":["GPU0"])", "}"),
         "submit 66 1 1 HMC0001"},
    };
    stopClock(1);
    startDaemon();
    Peer peer;
    // What the first call takes for itself is not the record's.
    EXPECT_EQ(peer.call("Log", digest(event), event), 0);
    EXPECT_TRUE(waitForRecorded("kelpc_destroy"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        forgetRecorded();
        const auto start = memory(*daemon, "VmRSS");
        writeFile("/proc/" + std::to_string(daemon->pid()) + "/clear_refs", "5");
        const auto name = digest(c.record);
        EXPECT_EQ(peer.call("Log", name, c.record), 0);
        EXPECT_TRUE(waitForRecorded(c.line));
        EXPECT_LT(memory(*daemon, "VmHWM") - start, 2.2 * (size >> 10));
        std::filesystem::remove("/run/hmc/" + name + ".1");
    }
}

TEST_F(Request, KeepsNoRecordWhileTheEventLogHangs) {
    if (const auto* why = whyNoMemoryFigures()) {
        GTEST_SKIP() << why;
    }
    stopClock(1);
    startDaemon();
    Peer peer;
    EXPECT_EQ(peer.call("Log", digest(event), event), 0);
    EXPECT_TRUE(waitForRecorded("kelpc_destroy"));
    fail("stall", 1);
    for (const auto& [size, times] : {std::pair{65'000, 200}, {4 << 20, 8}}) {
        auto record = event;
        record.insert(record.end() - 1, static_cast<std::size_t>(size), ' ');
        const auto name = digest(record);
        const auto before = memory(*daemon, "RssAnon");
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(peer.call("Log", name, record), 0);
        }
        EXPECT_LT(memory(*daemon, "RssAnon") - before, 12'000) << size;
    }
    fail("stall", 0);
    EXPECT_TRUE(waitForRecorded("kelpc_destroy", 209));
}

TEST_F(Request, GivesMemoryBackWhenNoLargeCallsComeAnyMore) {
    if (const auto* why = whyNoMemoryFigures()) {
        GTEST_SKIP() << why;
    }
    stopClock(1);
    startDaemon();
    Peer peer;
    EXPECT_EQ(peer.call("Log", digest(event), event), 0);
    EXPECT_TRUE(waitForRecorded("kelpc_destroy"));
    const auto idle = memory(*daemon, "VmRSS");
    for (const std::size_t megabytes : {1, 16}) {
        const Bytes large(megabytes << 20, '[');
        const auto name = digest(large);
        for (std::size_t i = 0; i < (thorough() ? 200 : 32) / megabytes; ++i) {
            ASSERT_EQ(peer.call("Log", name, large), 0);
        }
        usleep(2'500'000);
        EXPECT_LT(memory(*daemon, "VmRSS") - idle, 4 << 10) << megabytes;
    }
}

TEST_F(Request, HoldsALargeBufferTwiceAtMostAndWrongDigestsNotAtAll) {
    if (const auto* why = whyNoMemoryFigures()) {
        GTEST_SKIP() << why;
    }
    startDaemon();
    Peer peer;
    const auto refuse = [&](int times) {
        for (int i = 0; i < times; ++i) {
            EXPECT_EQ(peer.call("Log", digest({1}), event), 1);
        }
    };
    refuse(500);
    const auto before = memory(*daemon, "VmRSS");
    refuse(2000);
    EXPECT_LT(memory(*daemon, "VmRSS") - before, 170); // A third of 512 KiB for a third of 6,000.

    const Bytes large(16 << 20, 'x');
    for (const auto* method : {"Save", "Log"}) {
        const auto start = memory(*daemon, "VmRSS");
        EXPECT_EQ(peer.call(method, digest(large), large), 0);
        EXPECT_TRUE(method == std::string{"Save"} || waitForRecorded("Failed parsing JSON"));
        EXPECT_LT(memory(*daemon, "VmHWM") - start, 2.2 * (16 << 10)) << method;
    }
}

} // namespace
