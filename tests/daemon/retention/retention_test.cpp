// SPDX-License-Identifier: Apache-2.0
#include "daemon/retention/child_runner.hpp"
#include "log/diag_log.hpp"
#include "tests/world.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <tuple>

namespace fs = std::filesystem;
using namespace ::testing;

namespace {

/** The runner in the test's own process, which has the shim preloaded as the daemon has. */
using ChildRunner = World;

constexpr std::uint32_t noTimeout = 99;

/** An empty command stands for a shell that is not there. */
int run(const char* command, std::uint32_t minutes) {
    const char* path = *command != '\0' ? "/bin/sh" : "/none";
    const std::array<const char*, 4> arguments{path, "-c", command, nullptr};
    const auto* const unwritten = const_cast<char* const*>(arguments.data());
    return minutes == noTimeout ? system_call_wait(path, unwritten)
                                : system_call_timeout(path, unwritten, minutes);
}

TEST_F(ChildRunner, TellsHowTheCommandEnded) {
    using Row = std::tuple<const char*, std::uint32_t, int, const char*>;
    const auto rows = std::to_array<Row>(
        {{"exit 0", 1, 0, "|kill 9|5 - STATUS 0 -EXIT STATUS 0|5Returning SUCCESS"},
         {"exit 3", 1, -1, "|5 - STATUS 300 -EXIT STATUS 3|5Returning FAILURE"},
         {"kill $$", 1, -1, "|kill 9|5 - STATUS f -EXIT STATUS 0|5Killing |5Returning FAILURE"},
         {"exit 3", 0, -1, "|kill 9|5 - STATUS 300 -EXIT STATUS 3|5Killing |5Returning FAILURE"},
         {"", 1, -1, "|5Exec return -1|5 - STATUS ff00 -EXIT STATUS 255|5Returning FAILURE"},
         {"sleep 99; :", 5, 0,
          "|5PID 0 - STATUS 0 -EXIT STATUS 0|kill 9|kill group 9|5Returning SUCCESS"},
         {"exit 0", noTimeout, 0, "|5 - STATUS 0"},
         {"exit 3", noTimeout, -1, "|5 - STATUS 300|3Returning FAILURE"},
         {"", noTimeout, -1, "|5Exec return: 2 -1|5 - STATUS fe00|3Returning FAILURE"}});
    const auto* const ignored =
        R"(\|log 5 349 \w+: (Performing|Waiting)[^|]*|\|sleep 1|log | 349 \w+: |)"
        R"(PID [1-9]\d*|\\n)";
    for (const auto& [command, minutes, result, expected] : rows) {
        SCOPED_TRACE("'" + std::string{command} + "' for " + std::to_string(minutes));
        fail("late", minutes == 5 ? 0 : 1);
        EXPECT_EQ(run(command, minutes), result);
        EXPECT_EQ(recordedWith("sleep 1").size(), minutes == 5 ? 300 : 0);
        EXPECT_EQ(recordedWith("_timeout: ").size(), recordedWith("\\n").size());
        std::string trace;
        for (const auto& line : recorded()) {
            trace += "|" + line;
        }
        EXPECT_EQ(replaced(trace, ignored), expected);
        forgetRecorded();
    }
    fail("late", 0);
    EXPECT_EQ(run("sleep 0.3", 0), 0);
    EXPECT_THAT(recorded(), IsSupersetOf({HasSubstr(": Performing /bin/sh -c sleep 0.3\\n"),
                                          HasSubstr(": Waiting for Child to exit\\n")}));
    EXPECT_GT(recordedWith("sleep 1").size(), 60);
    fail("pthread_create", EAGAIN);
    EXPECT_EQ(run("sleep 99; :", 1), 0);
    fail("pthread_create", 0);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), 0); // No zombie is left.
}

TEST_F(ChildRunner, IsNotHeldUpForLongByALogCallThatHangs) {
    fail("hang", 1);
    const std::jthread hanging{[] { diag_log(LOG_USER, LOG_DEBUG, "hang"); }};
    EXPECT_TRUE(waitForRecorded("hangs"));
    EXPECT_EQ(run("exit 0", 1), 0);
    fail("hang", 0);
}

TEST_F(ChildRunner, GivesTheCommandAWorldOfItsOwn) {
    const int inherited = open("/dev/null", O_RDONLY);
    std::signal(SIGHUP, SIG_IGN);
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, nullptr);
    // Signals 32 and 33 are the C library's own, which nobody can set; ninja's are ignored. The
    // last two: it leads a process group, and no alarm is set.
    const auto* const command = R"(exec >/run/child
        tr '\0' ' ' </proc/$$/environ && ls -C /proc/$$/fd
        while read -r line; do
            case $line in Sig[BI]*) echo ${line%%:*} $((0x${line#*:?} & ~0x180000000)); esac
        done </proc/$$/status
        [ $$ = $(cut -d ' ' -f 5 /proc/$$/stat) ] && exec perl -e 'print alarm 0')";
    EXPECT_EQ(run(command, 0), 0);
    sigprocmask(SIG_UNBLOCK, &all, nullptr);
    close(inherited);
    EXPECT_EQ(readFile("/run/child"),
              "HOME=/ PATH=/bin:/app/bin:/usr/bin USER=hmcclient LD_LIBRARY_PATH=/usr/lib "
              "0  1  2\nSigBlk 0\nSigIgn 0\n0");
}

TEST_F(ChildRunner, LosesNoChildWhileThreadsLog) {
    const int children = thorough() ? 1000 : 100;
    std::atomic<bool> done = false;
    const auto log = [&done] {
        while (!done) {
            diag_log(LOG_USER, LOG_DEBUG, "%s: busy\n", "logger");
        }
    };
    const auto runAll = [children](std::uint32_t minutes) {
        int good = 0;
        while (good < children && run(":", minutes) == 0) {
            ++good;
        }
        EXPECT_EQ(good, children);
    };
    const std::array loggers{std::jthread{log}, std::jthread{log}, std::jthread{log}};
    std::thread other{runAll, 0};
    runAll(noTimeout);
    other.join();
    done = true;
}

class Retention : public World {
protected:
    static void setScript(const std::string& commands) {
        writeFile("/app/bin/wuxRetensionChk.sh", "#!/bin/sh\n" + commands);
        fs::permissions("/app/bin/wuxRetensionChk.sh", fs::perms::all);
    }
    static auto filesInCache() {
        const std::array files{"/run/hmc/a", "/run/hmc/dump/b", "/run/hmc/rawCPER/c"};
        return std::ranges::count_if(files, [](const auto* file) { return fs::exists(file); });
    }
    static void fillCache() {
        EXPECT_EQ(std::system("touch /run/hmc/a /run/hmc/dump/b /run/hmc/rawCPER/c"), 0);
    }
    [[nodiscard]] std::string workingDirectory() const {
        return fs::read_symlink("/proc/" + std::to_string(daemon->pid()) + "/cwd");
    }
};

TEST_F(Retention, PolicesWithTheSettingsOfEveryCycle) {
    setScript(R"(case $1 in */dump/) exit 7; esac; [ "$2" != 1 ] || sleep 99)");
    writeFile("/run/hold", ""); // Between the cycles, until the test has seen one and set the next.
    startDaemon();
    Peer peer;
    using Row = std::tuple<int, int, std::string, const char*>;
    const auto rows = std::to_array<Row>({{10, 10, " 10\\n", "nanosleep 600"},
                                          {255, 200, " 100\\n", "nanosleep 1200"},
                                          {100, 20, " 100\\n", "nanosleep 1200"},
                                          {0, 0, " 1\\n", "nanosleep 60"}});
    const auto hasPoliced = [] {
        return recordedWith(" -c /app/bin/wuxRetensionChk.sh /var/run/hmc/").size() == 3 &&
               !recordedWith(": Failed policing HMC WUX data location : -1").empty();
    };
    ASSERT_TRUE(waitForRecorded("nanosleep"));
    for (const auto& [size, interval, usedSize, sleep] : rows) {
        SCOPED_TRACE(usedSize);
        peer.set("RetentionSizeInMB", static_cast<std::uint8_t>(size));
        peer.set("RetentionIntervalInMinutes", static_cast<std::uint8_t>(interval));
        // A machine that stood still has lines left out, as if syslog did not read them.
        for (int cycles = 0; cycles < 3 && (cycles == 0 || !hasPoliced()); ++cycles) {
            forgetRecorded();
            writeFile("/run/next", "");
            ASSERT_TRUE(waitForRecorded("nanosleep"));
        }
        EXPECT_THAT(recordedWith(" -c /app/bin/wuxRetensionChk.sh /var/run/hmc/"),
                    ElementsAre(EndsWith("/hmc/" + usedSize), EndsWith("/dump/" + usedSize),
                                EndsWith("/rawCPER/" + usedSize)));
        EXPECT_THAT(recordedWith(": Failed policing HMC WUX data location : -1"), SizeIs(Ge(1)));
        EXPECT_EQ(recordedWith("nanosleep").front(), sleep);
        // Two that hang for their minute; otherwise as long as the scripts take on this machine,
        // and not all the time they are given.
        const auto waited = recordedWith("sleep 1").size();
        EXPECT_THAT(waited, size == 0 ? AllOf(Ge(120U), Le(180U)) : AllOf(Ge(0U), Le(1799U)));
    }
}

TEST_F(Retention, ClearsTheCacheOnceItIsSaved) {
    startDaemon();
    const auto before = workingDirectory();
    fillCache();
    Peer peer;
    EXPECT_EQ(peer.call("SaveAndClearCache"), 1); // No script.
    for (const auto* script : {"exit 1", "kill -9 $$"}) {
        setScript(script);
        EXPECT_EQ(peer.call("SaveAndClearCache"), 1);
    }
    fail("fork", EAGAIN);
    EXPECT_EQ(peer.call("SaveAndClearCache"), 1);
    EXPECT_EQ(filesInCache(), 3);

    fail("fork", 0);
    setScript("sleep 99"); // That is ended and counts as a success.
    forgetRecorded();
    peer.call("SaveAndClearCache");
    EXPECT_TRUE(eventually([] { return filesInCache() == 0; }));
    const auto lines = recordedOnBusThread();
    EXPECT_EQ(std::count(lines.begin(), std::ranges::find(lines, "kill group 9"), "sleep 1"), 300);
    setScript("exit 0");
    EXPECT_EQ(peer.call("SaveAndClearCache"), 0);
    EXPECT_EQ(workingDirectory(), before);
    EXPECT_THAT(recordedOnBusThread(),
                Contains("log 3 349 saveAndClearCache: Failed policing HMC data location : -1"));
}

TEST_F(Retention, ServesOnAfterADirectoryWasMissing) {
    setScript("exit 0");
    fs::remove("/run/hmc/dump");
    startDaemon();
    Peer peer;
    for (const auto* budget : {"[10]", "[9]"}) { // What was served in between gives none back.
        EXPECT_EQ(peer.call("SaveAndClearCache"), std::nullopt);
        EXPECT_EQ(peer.error, SD_BUS_ERROR_TIMEOUT) << "a reply";
        EXPECT_THAT(recordedOnBusThread(),
                    Contains(EndsWith("processing messages " + std::string{budget})));
        EXPECT_EQ(workingDirectory(), "/run/hmc/rawCPER");
        EXPECT_EQ(peer.byteProperty("RetentionSizeInMB"), 10);
    }
    fs::create_directory("/run/hmc/dump");
    fillCache();
    EXPECT_EQ(peer.call("SaveAndClearCache"), 0);
    EXPECT_EQ(filesInCache(), 0);
}

} // namespace
