// SPDX-License-Identifier: Apache-2.0
#include "daemon/retention/child_runner.hpp"
#include "log/diag_log.hpp"
#include "tests/world.hpp"

#include <poll.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <thread>

using namespace std::chrono_literals;
using namespace ::testing;
using Clock = std::chrono::steady_clock;

namespace {

class BoundedSyslog : public World {
protected:
    static constexpr std::string_view told = "28 tavrisk: diag_log: syslog did not read, lines not "
                                             "written: ";

    /** What the lines that tell of missing ones come to. */
    std::size_t toldMissing() {
        const auto lines = syslog();
        return std::accumulate(
            lines.begin(), lines.end(), std::size_t{0}, [](auto sum, const auto& line) {
                return line.starts_with(told) ? sum + std::stoul(line.substr(told.size())) : sum;
            });
    }
    std::size_t written() {
        const auto lines = syslog();
        return static_cast<std::size_t>(
            std::ranges::count_if(lines, [](const auto& line) { return !line.starts_with(told); }));
    }
    std::size_t handedOver() { return recordedWith("log ").size(); }
    /** More than the socket's queue and `threads` that hang hold: some are given up for good. Looks
     * at nothing that a clock decides, so that a machine that stood still is no failure. */
    AssertionResult stallUntilLinesAreMissing(std::size_t threads) {
        stallSyslog();
        const auto told = toldMissing();
        return eventually(
            [&] { return handedOver() > written() + told + queueLength() + threads; });
    }
    static std::size_t queueLength() {
        std::size_t length = 0;
        std::ifstream{"/proc/sys/net/unix/max_dgram_qlen"} >> length;
        return length + 1;
    }
    void expectEveryLineWrittenOrCounted() {
        EXPECT_TRUE(eventually([&] { return written() + toldMissing() == handedOver(); }))
            << written() << " written, " << toldMissing() << " counted, of " << handedOver();
    }
};

struct Case {
    const char* name;
    bool fromTheStart;
    std::chrono::milliseconds pause;
};
const Case cases[] = {
    {"stalled from the start", true, 1h}, {"stalled later", false, 1h}, {"slow", false, 10ms}};

class BadSyslog : public BoundedSyslog, public WithParamInterface<Case> {};

TEST_P(BadSyslog, HoldsNothingUp) {
    const auto& [name, fromTheStart, pause] = GetParam();
    writeFile("/app/bin/wuxRetensionChk.sh", "#!/bin/sh\n");
    std::filesystem::permissions("/app/bin/wuxRetensionChk.sh", std::filesystem::perms::all);
    if (fromTheStart) {
        slowSyslog(pause);
    }
    startDaemon();
    slowSyslog(pause);
    Peer peer;
    for (int call = 0; call < 6; ++call) {
        const auto event =
            bytes(R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU)" +
                  std::to_string(call) + R"("]})");
        const auto began = Clock::now();
        EXPECT_EQ(peer.call("Log", digest(event), event), 0);
        EXPECT_LT(Clock::now() - began, 5s);
    }
    EXPECT_TRUE(waitForRecorded("submit ", 6));
    EXPECT_EQ(peer.call("SaveAndClearCache"), 0);
    // The flood is what makes a slow syslog one that holds up.
    const auto began = Clock::now();
    for (int call = 0; call < 20; ++call) {
        EXPECT_EQ(peer.call("Log", "wrong", bytes("{}")), 1);
    }
    EXPECT_LT(Clock::now() - began, 5s);
    EXPECT_TRUE(waitForRecorded("nanosleep ")); // The monitor's first cycle is over.
    unstallSyslog();
    EXPECT_TRUE(eventually([&] { return toldMissing() > 0; }));
    daemon.reset();
    expectEveryLineWrittenOrCounted();
}

INSTANTIATE_TEST_SUITE_P(Table, BadSyslog, ValuesIn(cases), [](const auto& info) {
    std::string name{info.param.name};
    std::erase(name, ' ');
    return name;
});

TEST_F(BoundedSyslog, InterruptsNobodyOutsideIt) {
    std::atomic<bool> done = false;
    std::atomic<int> interrupted = 0;
    const auto log = [&] {
        while (!done) {
            diag_log(8, 7, "line");
            interrupted += poll(nullptr, 0, 1) != 0 && errno == EINTR;
        }
    };
    {
        const std::array threads{std::jthread{log}, std::jthread{log}, std::jthread{log}};
        for (int round = 0; round < 3; ++round) {
            const auto before = toldMissing();
            EXPECT_TRUE(stallUntilLinesAreMissing(threads.size()));
            unstallSyslog();
            EXPECT_TRUE(eventually([&] { return toldMissing() > before; }));
        }
        done = true;
    }
    EXPECT_EQ(interrupted, 0);
    diag_log(8, 7, "line"); // Tells of what the threads lost last.
    expectEveryLineWrittenOrCounted();
}

TEST_F(BoundedSyslog, LetsAChildGoThatIsForkedWhileAThreadHangs) {
    const std::array<const char*, 4> command{"/bin/sh", "-c", "exit 0", nullptr};
    stallSyslog();
    const auto held = queueLength();
    const std::jthread hanging{[held] {
        for (std::size_t line = 0; line < held + 30; ++line) {
            diag_log(8, 7, "line");
        }
    }};
    EXPECT_TRUE(eventually([&] { return handedOver() > held; }));
    const auto began = Clock::now();
    EXPECT_EQ(system_call_wait("/bin/sh", const_cast<char* const*>(command.data())), 0);
    EXPECT_LT(Clock::now() - began, 5s);
    unstallSyslog();
    EXPECT_TRUE(eventually([&] { return toldMissing() > 0; }));
    expectEveryLineWrittenOrCounted();
}

} // namespace
