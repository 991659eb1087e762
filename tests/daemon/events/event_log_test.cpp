// SPDX-License-Identifier: Apache-2.0
#include "daemon/events/submission.hpp"
#include "daemon/events/worker.hpp"
#include "log/diag_log.hpp"
#include "tests/world.hpp"

#include <malloc.h>
#include <sys/resource.h>

#include <filesystem>

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::StartsWith;

namespace {

struct Failure {
    const char* call;
    int code;
    std::vector<std::string> lines; // From the call on.
};

// The lines that end every event which reached the generator, for a warning event.
Lines withEnd(Lines lines) {
    lines.insert(lines.end(),
                 {"log 5 349 A warning condition has been reported for GPU0.",
                  "log 5 349 Event logged for event = 2 , rc = 0\\n", "kelpc_destroy"});
    return lines;
}

Lines refused(Lines lines, int code) {
    const auto number = std::to_string(code);
    lines.push_back("log 5 349 Event raise failed: [HMC0002], status: [" + number + "]");
    lines.push_back(
        "log 3 349  tavrisk_generate_event: Failed to log OSKA Message 2 (rc = " + number + ")\\n");
    return withEnd(std::move(lines));
}

const Failure failures[] = {
    {"kelpc_initialize",
     4,
     {"log 3 349 zel_wux_fault_logging_thread : kelpc_initialize failed, rc = 4 \\n"}},
    {"build", 7, refused({"log 3 349 MOSSLINKBuildMsgArgsBuffer returned [7]"}, 7)},
    {"create", 8, refused({"log 3 349 APCreateTLVList returned [8]"}, 8)},
    {"add", 9, refused({"log 3 349 MOSSLINKAddTLVToList returned [9]", "free"}, 9)},
    {"submit", -3, refused({"log 5 349 Failed to log ZEL event [-3]", "free"}, -3)},
    {"free", 5, withEnd({"log 5 349 Event raise successfully: [HMC0002], status: [0]"})},
};

class EventLogFailure : public World, public ::testing::WithParamInterface<Failure> {};

TEST_P(EventLogFailure, IsLoggedAndCleanedUpAfter) {
    fail(GetParam().call, GetParam().code);
    zel_wux_fault_logging_thread(
        bytes(R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU0"]})"));
    auto lines = recorded();
    const auto call = std::find_if(lines.begin(), lines.end(), [](const auto& line) {
        return line.rfind(GetParam().call, 0) == 0;
    });
    ASSERT_NE(call, lines.end());
    EXPECT_THAT(Lines(call + 1, lines.end()), ElementsAreArray(GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(Table, EventLogFailure, ::testing::ValuesIn(failures),
                         [](const auto& info) { return info.param.call; });

using EventLog = World;

TEST_F(EventLog, SubmitsEveryMessageOfTheCatalogueAndNoOther) {
    for (const std::int32_t event : {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, -1}) {
        EXPECT_EQ(tavrisk_generate_event(event, nullptr, "GPU0", 0x10002), 0);
    }
    EXPECT_THAT(recordedWith("submit "),
                ElementsAre("submit 66 1 2 HMC0001", "submit 66 1 2 HMC0002",
                            "submit 66 1 2 HMC0003", "submit 66 1 2 HMC0004",
                            "submit 66 1 2 HMC0005", "submit 66 1 2 HMC0006",
                            "submit 66 1 2 HMC0007", "submit 66 1 2 HMC0008"));
    EXPECT_EQ(recordedWith("log 1 349 TAVRISK:Not reporting unknown event to OSKA\\n").size(), 3);
    const std::string log = "log 5 349 ";
    auto texts = recordedWith("GPU0");
    std::erase_if(texts, [](const auto& line) { return line.starts_with("add "); });
    EXPECT_THAT(texts,
                ElementsAreArray({log + "A critical error has been reported for GPU0.",
                                  log + "A warning condition has been reported for GPU0.",
                                  log + "The GPU0 is operating normally.",
                                  log + "The GPU0 warning threshold has been exceeded.",
                                  log + "The GPU0 upper warning threshold has been exceeded.",
                                  log + "The GPU0 upper critical threshold has been exceeded.",
                                  log + "The GPU0 lower critical threshold has been exceeded.",
                                  log + "The GPU0 is operating within the threshold range."}));
    EXPECT_THAT(recorded(), Contains(log + "Event logged for event = 9 , rc = 0\\n"));
}

TEST_F(EventLog, RefusesANullDeviceAndAcceptsAnEmptyOne) {
    EXPECT_EQ(tavrisk_generate_event(9, nullptr, nullptr, 1), -1);
    EXPECT_THAT(recorded(),
                ElementsAre("log 5 349 tavrisk_generate_event(): entering.\\n",
                            "log 3 349 tavrisk_generate_event: Invalid device name: (null)\\n"));
    EXPECT_EQ(tavrisk_generate_event(1, nullptr, "", 1), 0);
    EXPECT_THAT(recorded(), Contains("add 6 1 "));
}

TEST_F(EventLog, RaisesNothingWithoutArguments) {
    EXPECT_EQ(tavrisk_raise_event("HMC0001", "text", {}, 1), -2);
    EXPECT_THAT(recorded(), ElementsAre("log 5 349 Log the event.\\n",
                                        "log 5 349 Event raise failed: [HMC0001], status: [-2]"));
}

TEST_F(EventLog, PassesArgumentsInOrderAndUpToTheirFirstNul) {
    using namespace std::string_literals;
    EXPECT_EQ(tavrisk_raise_event("HMC0001", "text", {"GPU\0X"s, "b"}, 1), 0);
    EXPECT_THAT(recorded(), AllOf(Contains("build 2 of 1024"), Contains("add 6 6 GPU")));
}

TEST_F(EventLog, LeavesNoMemoryBehind) {
    if (const auto* why = whyNoMemoryFigures()) {
        GTEST_SKIP() << why;
    }
    std::filesystem::remove("/dev/log"); // What was read there would be counted too.
    const auto report = [](int times) {
        for (int i = 0; i < times; ++i) {
            zel_wux_fault_logging_thread(
                bytes(R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU0"]})"));
        }
        return mallinfo2().uordblks;
    };
    const auto before = report(10);
    EXPECT_LT(report(200), before + 200);
}

TEST_F(EventLog, TakesARefusedAllocationForSuccess) {
    if (const auto* why = whyNoMemoryFigures()) {
        GTEST_SKIP() << why;
    }
    const Lines large(1, std::string(512 << 20, 'x'));
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    const auto unlimited = limit;
    limit.rlim_cur = 800 << 20; // Not enough for another copy.
    setrlimit(RLIMIT_AS, &limit);
    const auto status = tavrisk_raise_event("HMC0001", "text", large, 1);
    setrlimit(RLIMIT_AS, &unlimited);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(recorded(),
                ElementsAre("log 5 349 Log the event.\\n",
                            "log 5 349 Event raise successfully: [HMC0001], status: [0]"));
}

TEST_F(EventLog, CompletionCallbackReportsOnlyWithUserData) {
    int user = 0;
    tavrisk_mchars_callback("text", 5, nullptr, nullptr);
    tavrisk_mchars_callback("text", 5, nullptr, &user);
    EXPECT_THAT(recorded(),
                ElementsAre("log 5 349 tavrisk_mchars_callback(): entering.\\n",
                            "log 5 349 tavrisk_mchars_callback(): exiting.\\n",
                            "log 5 349 tavrisk_mchars_callback(): entering.\\n",
                            StartsWith("log 3 349 [tavrisk_mchars_callback]: mchars callback "
                                       "function for text - status 5 cli_opq_data = (nil) "
                                       "user_data = 0x"),
                            "log 5 349 tavrisk_mchars_callback(): exiting.\\n"));
}

TEST_F(EventLog, DiagnosticLogMapsEveryLevel) {
    const std::vector<std::pair<int, const char*>> levels{
        {0, "log 1"}, {1, "log 1"}, {2, "log 1"}, {3, "log 2"}, {4, "log 3"},
        {5, "log 4"}, {6, "log 4"}, {7, "log 5"}, {8, "log 0"}, {-1, "log 0"}};
    for (const auto& [level, recordedLevel] : levels) {
        diag_log(LOG_USER, level, "level %d", level);
        EXPECT_EQ(recorded().back(), recordedLevel + (" 349 level " + std::to_string(level)));
    }
    ASSERT_TRUE(eventually([this] { return syslog().size() >= 8; }));
    EXPECT_THAT(syslog(), AllOf(Contains("28 tavrisk: level 4"), Contains("31 tavrisk: level 7")));
}

} // namespace
