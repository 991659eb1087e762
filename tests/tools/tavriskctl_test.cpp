// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

/** The client with these arguments and redirections, its output kept in /run/out. */
std::unique_ptr<Process> launch(const std::string& arguments) {
    return std::make_unique<Process>(Lines{"sh", "-c",
                                           "cd /run; exec >out 2>&1; cd $TAVRISK_SOURCE/samples; "
                                           "exec $TAVRISK_CTL --bus=unix:path=/run/test-bus " +
                                               arguments});
}

struct Case {
    const char* arguments;
    int status;
    /** All lines, of the last one only the beginning. A hint at the help follows status 2. */
    std::string output;
};

void expectAll(const std::vector<Case>& cases) {
    for (const auto& [arguments, status, expected] : cases) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ(launch(arguments)->wait(), status);
        const auto output = readFile("/run/out");
        EXPECT_THAT(output, StartsWith(expected));
        EXPECT_EQ(std::count(output.begin(), output.end(), '\n'),
                  std::count(expected.begin(), expected.end(), '\n') + (status == 2 ? 2 : 1));
    }
}

/** The objects that the client prints, one per line. */
std::vector<Json::Value> objects(const std::string& arguments) {
    launch("--json " + arguments)->wait();
    std::vector<Json::Value> result;
    std::istringstream output{readFile("/run/out")};
    for (std::string line; std::getline(output, line);) {
        EXPECT_TRUE(Json::Reader{}.parse(line, result.emplace_back())) << line;
    }
    return result;
}

using Tavriskctl = World;

TEST_F(Tavriskctl, SaysInOneSentenceWhatBecameOfEachRequest) {
    startDaemon();
    writeFile("/run/e", R"({"EventType":"Event"})");
    writeFile("/run/gone", R"({"EventType":"Event"})");
    writeFile("/run/empty", "");
    writeFile("/run/33M", std::string(33U << 20U, ' '));
    expectAll({
        {"log - 2>/dev/null </run/e", 0, "standard input: accepted"},
        {"log --remove-accepted /run/gone /run/empty", 1,
         "/run/gone: accepted, and removed\ntavriskctl: /run/empty: refused: empty input"},
        {"log /run/gone", 1, "tavriskctl: /run/gone: cannot be read: No such file or directory"},
        {"log /run/none /run/e", 1,
         "tavriskctl: /run/none: cannot be read: No such file or directory\n/run/e: accepted"},
        {"log /run/33M /run/e", 1,
         "tavriskctl: /run/33M: the bus closed the connection on this message of 34603008 bytes, "
         "as it does with one that is larger than it lets through\n/run/e: accepted"},
        {"log - </dev/zero", 1, "tavriskctl: standard input: is larger than 64 MiB"},
        {"log /run/empty", 1, "tavriskctl: /run/empty: refused: empty input"},
        {"log /run", 1, "tavriskctl: /run: cannot be read: Is a directory"},
        {R"(log $(printf '\033[m\302\233\377'))", 1, R"(tavriskctl: \x1b[m\u{9b}\xff: cannot)"},
        {"cper cper/truncated.cper", 1,
         "tavriskctl: cper/truncated.cper: refused: it is too short"},
        {"save kept /run/e", 0, "/run/e: accepted as 'kept'"},
        {"save a/b /run/e", 1,
         "tavriskctl: /run/e: refused: the daemon cannot write a file of the name 'a/b'"},
        {"set RetentionSizeInMB 255", 0, "RetentionSizeInMB: set to 255, which counts as 100"},
        {"set RetentionIntervalInMinutes 020", 0, "RetentionIntervalInMinutes: set to 20"},
        {"set RetentionSizeInMB 256", 2, "tavriskctl: RetentionSizeInMB takes a number from 0 to"},
        {"set WUXDataLocation /", 1, "tavriskctl: WUXDataLocation: the property is read-only"},
        {"clear", 1, "tavriskctl: data cache: saving failed, nothing was cleared"},
        {"launch", 2, "tavriskctl: there is no command 'launch'"},
        {"set - - --json -x", 2, "tavriskctl: there is no option '-x'"},
        {"status --timeout", 2, "tavriskctl: --timeout needs a value"},
        {"help clear | sed -n '1p;$p'", 0,
         "Usage: tavriskctl clear [OPTION]...\n3 the daemon could not be reached."},
        {"--bus=sytem status", 2, "tavriskctl: --bus takes system, session or an address such as"},
        {"--timeout=-1 status", 2,
         "tavriskctl: --timeout takes a number of seconds, a year's at most"},
        {"status --to=/run/x", 2, "tavriskctl: --to goes with --metrics"},
        {"status --metrics --json", 2, "tavriskctl: --metrics and --json exclude each other"},
        {"status >/dev/full", 1, "tavriskctl: the output could not be written"},
    });
    EXPECT_EQ(readFile("/run/hmc/dump/kept"), readFile("/run/e"));
}

TEST_F(Tavriskctl, ExitsWith3WhenNobodyAnswers) {
    writeFile("/run/hmc/dump/kept", std::string(2355, 'x'));
    const std::string directories = "/var/run/hmc                0 files, 0 bytes\n"
                                    "/var/run/hmc/dump           1 file, 2.3 KiB\n"
                                    "/var/run/hmc/rawCPER        0 files, 0 bytes\n"
                                    "lost events                 cannot be told: no journal that "
                                    "you may read\n";
    expectAll({{"status", 3, directories + "tavriskctl: the daemon is not running: nobody owns"},
               {"clear", 3, "tavriskctl: data cache: the daemon is not running"}});
    startDaemon();
    daemon->kill(SIGSTOP);
    expectAll({{"--timeout=0.1 status 2>&1 | sed -n '1p;$p'", 0,
                "com.vorn.bmc.tavrisk        does not answer\ntavriskctl: no reply within 0.1 s"},
               {"--timeout=0.1 log README.md empty", 3,
                "tavriskctl: README.md: no reply within 0.1 s; the daemon serves one call at a "
                "time and may still carry this one out\ntavriskctl: empty: not sent"}});
    stopBus();
    expectAll({{"status --metrics 2>/dev/null", 3,
                "# HELP tavrisk_up Whether the daemon answers.\n# TYPE tavrisk_up gauge\n"
                "tavrisk_up 0\n# HELP tavrisk_journal_readable Whether there is a journal that "
                "this user may read.\n# TYPE tavrisk_journal_readable gauge\n"
                "tavrisk_journal_readable 0"},
               {"status", 3, directories + "tavriskctl: cannot connect to the bus at 'unix:"}});
}

TEST_F(Tavriskctl, PrintsOneJsonObjectPerLine) {
    startDaemon();
    const auto logged = objects("log README.md none");
    EXPECT_EQ(logged.at(0)["result"], "accepted");
    EXPECT_EQ(logged.at(0)["digest"].asString().size(), 128);
    EXPECT_EQ(logged.at(1)["result"], "refused");

    const auto status = objects("status").at(0);
    EXPECT_EQ(status["owner"]["pid"], daemon->pid());
    EXPECT_EQ(status["properties"]["RetentionSizeInMB"], 10);
    EXPECT_EQ(status["directories"][0]["files"], 1);
    EXPECT_EQ(status["directories"][0]["bytes"], logged.at(0)["bytes"]);
    const auto unreachable = objects("--bus=unix:path=/none log README.md none");
    EXPECT_EQ(unreachable.at(0)["result"], "unreachable");
    EXPECT_EQ(unreachable.at(1)["file"], "none");
}

TEST_F(Tavriskctl, StatusCountsTheEventsThatTheJournalTellsTheLossOf) {
    const auto losses = [] { return objects("status").at(0)["losses"]; };
    std::filesystem::create_directories("/run/systemd/journal");
    const Process journald{{"/lib/systemd/systemd-journald"}};
    ASSERT_TRUE(eventually([&] { return losses()["events"] == 0; }));
    std::filesystem::remove("/dev/log");
    std::filesystem::create_symlink("/run/systemd/journal/dev-log", "/dev/log");
    startDaemon();
    Peer peer;
    const auto data =
        bytes(readFile(std::getenv("TAVRISK_SOURCE") +
                       std::string{"/samples/events/event6-above-upper-critical.json"}));
    for (const auto& [call, line] : std::vector<std::pair<const char*, const char*>>{
             {"submit", "Failed to log OSKA"},
             {"kelpc_initialize", "kelpc_initialize failed"},
             {"pthread_create", "not started, rc = -1"},
             {"submit", "Failed to log OSKA"},
             {"none", "submitted successfully"}}) {
        forgetRecorded();
        fail(call, EAGAIN);
        peer.call("Log", digest(data), data);
        EXPECT_TRUE(waitForRecorded(line));
        fail(call, 0);
    }
    // A peer that would have more counted.
    EXPECT_EQ(peer.call("Save", "a/\nzel_wux_fault_logging_thread : event dropped", data), 1);

    ASSERT_TRUE(eventually([&] { return losses()["events"] == 4; })) << losses().toStyledString();
    EXPECT_EQ(losses()["causes"]["refused by the event log"], 2);
    EXPECT_EQ(losses()["causes"]["refused by the data store"], 1);
    EXPECT_EQ(losses()["causes"]["no worker to be had"], 1);
    launch("status --metrics")->wait();
    for (const auto& line : {std::string{"up 1"}, "process_id " + std::to_string(daemon->pid()),
                             std::string{"retention_size_bytes 10485760"},
                             std::string{"retention_interval_seconds 600"},
                             std::string{"system_led_setting_info{setting=\"Disabled\"} 1"},
                             std::string{"journal_lost_events{cause=\"want of memory\"} 0"},
                             std::string{"journal_lost_events{cause=\"refused by the event "
                                         "log\"} 2"}}) {
        EXPECT_THAT(readFile("/run/out"), HasSubstr("\ntavrisk_" + line + "\n"));
    }
}

TEST_F(Tavriskctl, MonitorFollowsPropertiesAndNameUntilNobodyListens) {
    const auto shows = [](const std::string& text) {
        return eventually([&] { return readFile("/run/out").find(text) != std::string::npos; });
    };
    const auto monitor = launch("monitor");
    EXPECT_TRUE(shows("the daemon is not there"));
    startDaemon();
    EXPECT_TRUE(shows("the daemon has appeared") && shows("RetentionSizeInMB = 10"));
    Peer{}.set("SystemLEDSetting", "s", "\x1b[1m");
    EXPECT_TRUE(shows(R"(SystemLEDSetting = \x1b[1m)"));
    daemon.reset();
    EXPECT_TRUE(shows("the daemon has vanished"));
    monitor->kill(SIGINT);
    EXPECT_EQ(monitor->wait(), 0);
    expectAll({{"monitor | head -n 1 | cut -c 22-", 0, "the daemon is not there"}});
    Process{{"sh", "-c", "{ sleep 0.2; $TAVRISK_CTL help; echo $? >/run/out; } | true"}}.wait();
    EXPECT_EQ(readFile("/run/out"), "0\n");
}

TEST_F(Tavriskctl, ExplainsWithoutADaemonAndWithoutATrace) {
    stopBus();
    writeFile("/run/e", R"({"EventType":"Event","Severity":{}})");
    const auto named = [](std::size_t length) {
        return R"({"EventType":"Event","Severity":"Warning","MessageArgs":[")" +
               std::string(length, 'x') + R"("]})";
    };
    writeFile("/run/long", named(1024));
    writeFile("/run/longest", named(1023));
    writeFile("/run/text", "{\n \"CPER\":{},\"EventType\":\"Event\",\"Severity\":\"Critical\"}");
    writeFile("/run/hostile", "{\"EventType\":\"Event\",\"Severity\":\"OK\",\"Message\":"
                              "\"a\\u001b[1m\u202e\u202c\u200b\",\"Resolution\":\"b\\nc\"}");
    const std::string said = "standard input: ";
    expectAll({
        {"explain - <events/event5-above-upper-caution.json", 0,
         said + "Sensor 'GPU_3_TEMP_0' reading of 87.25 (Cel) is above the 85 upper caution "
                "threshold.\n  reported as HMC0005, warning, device \"GPU_3_TEMP_0\": The "
                "GPU_3_TEMP_0 upper warning threshold has been exceeded.\n"
                "  Resolution: Check the condition of the resources listed in OriginOfCondition.\n"
                "  Origin of condition: /redfish/v1/Chassis/HMC_GPU_3/Sensors/GPU_3_TEMP_0"},
        {"explain - <events/malformed-cut-off.json", 0, said + "not reported: it is no JSON: at "},
        {"explain - </run/long", 0,
         said + "not reported: the event log takes no device name of more than 1023 bytes"},
        {"explain - </run/longest", 0, said + "reported as HMC0002"},
        {"explain - </run/text", 0, said + "reported as HMC0001, critical, device \"\": A"},
        {"explain - </run/e", 0, said + "not reported: its Severity is of the wrong type"},
        {"explain - </run/hostile", 0,
         said + "a\\x1b[1m\\u{202e}\\u{202c}\\u{200b}\n  not reported: neither its Severity nor "
                "its MessageSeverity"
                " is \"Critical\" or \"Warning\"\n  Resolution: b\\nc"},
        {"explain - <cper/memory-error-four-bytes-ahead.cper", 0,
         said + "Corrected single-bit ECC error at node 0, card 1, module 4, rank 1, bank 3, "
                "device 9, row 0x4d21, column 136, bit 17, physical address 0x00000027f4a1c0c0; "
                "FRU \"DIMM A4\"\n"
                "  CPER of 11_15_2026_122530, Warning, section type 00000000-0000-0000-0000-000"},
        {"explain - <cper/truncated.cper 2>/dev/null", 1,
         said + "Recoverable error record without sections"},
        {"explain --as=cper - <cper/truncated.cper >/dev/null", 1,
         "tavriskctl: " + said + "refused: it is too short"},
        {"log --verbose x", 2, "tavriskctl: log has no option --verbose"},
    });
    EXPECT_THAT(syslog(), IsEmpty());
}

} // namespace
