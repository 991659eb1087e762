// SPDX-License-Identifier: Apache-2.0
#include "platform/config.hpp"
#include "tests/world.hpp"
#include "text/utc_time.hpp"
#include "zel/json_text.hpp"
#include "zel/spill.hpp"
#include "zel/store.hpp"

#include <json/json.h>

#include <sys/inotify.h>

#include <filesystem>
#include <sstream>

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

const std::string path = tavrisk::platform::zelPath;
const std::filesystem::path directory = std::filesystem::path{path}.parent_path();

/** Runs zelctl, with its standard error among its output, and returns its exit status. */
int run(const std::string& arguments, const std::string& with = "") {
    return Process{{"sh", "-c", "exec >/run/out 2>&1; " + with + " $TAVRISK_ZELCTL " + arguments}}
        .wait();
}

std::string outputOf(const std::string& arguments, const std::string& with = "") {
    run(arguments, with);
    return readFile("/run/out");
}

constexpr auto unprivileged = "setpriv --bounding-set=-all --inh-caps=-all";

Json::Value parsed(const std::string& json) {
    Json::Value value;
    EXPECT_TRUE(Json::Reader{}.parse(json, value)) << json;
    return value;
}

/** The sequence numbers of a command that prints entries. */
std::string sequencesOf(const std::string& arguments, const std::string& with = "") {
    std::istringstream lines{outputOf(arguments + " --json 2>/dev/null", with)};
    std::string sequences;
    for (std::string line; std::getline(lines, line);) {
        sequences += parsed(line)["sequence"].asString() + " ";
    }
    return sequences;
}

/** The collection that a command prints for a Redfish server; its members alone. */
Json::Value members(const std::string& arguments) {
    return parsed(outputOf(arguments + " --output redfish 2>/dev/null"))["Members"];
}

void add(const std::string& time, const std::string& id, std::uint16_t severity,
         std::string_view device) {
    const tavrisk::zel::Entry entry{time, id, severity, tavrisk::zel::toJsonArray({&device, 1})};
    tavrisk::zel::Store{path}.append({&entry, 1}, 1000);
}

void execute(const char* sql) {
    tavrisk::zel::Connection{path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE}.execute(sql);
}

/** Every test begins with these five. */
class Zelctl : public ::testing::Test {
protected:
    Zelctl() {
        std::filesystem::remove_all(directory);
        add("2025-01-01T10:00:00.000Z", "HMC0001", 1, "GPU0");
        add("2025-01-02T10:00:00.500Z", "HMC0005", 2, "GPU10");
        add("2025-01-02T10:00:00.501Z", "HMC0002", 2,
            "a\x1b[2J\n\xc2\x9b\xe2\x80\x8b\u202e\u202c\u2066\u2069\xff");
        add("2025-01-03T10:00:00.000Z", "HMC0003", 3, "Fan");
        add("2025-01-04T10:00:00.000Z", "XYZ", 9, "");
    }
};

TEST_F(Zelctl, CombinesItsFilters) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"list", "5 4 3 2 1 "},
        {"list --reverse --limit 2", "1 2 "},
        {"list --since 2025-01-02T10:00:00.500Z --until 2025-01-02T11:00:00.500+01:00", "2 "},
        {"list --since '2025-01-02 10:00' --until -1h30m --severity warning -n1", "3 "},
        {"list --since '2025-01-02 10:00:00' --until '2025-01-02 10:00:00'", "3 2 "},
        {"list --until 2025-01-02 --reverse", "1 2 3 "},
        {"list --device gpu1", "2 "},
        {"list --severity other --reverse", "4 5 "},
        {"list --after 1 --until 2025-01-03 --id hmc0002", "3 "},
        {"follow --since 2025-01-01 --until now --severity warning --reverse", "2 3 "},
        {"follow --after 1 --device GPU --limit 1", "2 "},
        {"list --severity critical,other", "5 4 1 "},
        {"list --severity warning+ --severity other --not-device gpu1 --not-device a", "5 1 "},
        {"list --id HMC0001,hmc0005 --id HMC0003 --not-id HMC0005", "4 1 "},
        {"list --grep UPPER", "2 "},
        {"list --boot 0", "5 3 1 "},
        {"list --boot -1", "4 "},
        {"list --boot beef --open", "2 "},
        {"list --open --until '1 week 2 days ago'", "4 3 2 1 "},
    };
    tavrisk::zel::Connection{path, SQLITE_OPEN_READWRITE}.execute(
        "UPDATE entries SET boot_id = 'beef' WHERE sequence = 2;"
        "UPDATE entries SET boot_id = 'dead' WHERE sequence = 4;"
        "UPDATE entries SET acknowledged_at = '2025-01-05T10:00:00.000Z' WHERE sequence = 5");
    for (const auto& [arguments, expected] : cases) {
        EXPECT_EQ(sequencesOf(arguments), expected) << arguments;
        std::string ids;
        for (const auto& member : has(arguments, "^list") ? members(arguments) : Json::Value{}) {
            ids += member["Id"].asString() + " ";
        }
        EXPECT_EQ(ids, has(arguments, "^list") ? expected : "") << arguments;
    }
}

TEST_F(Zelctl, ServesARedfishServer) {
    execute("UPDATE entries SET time = '2025-01-02T10:00:00.501+01', arguments = '[\"a\\u0000\"]'"
            " WHERE sequence = 3;"
            "UPDATE entries SET time = '1970-01-01T00:00:12.345Z' WHERE sequence = 4;"
            "UPDATE entries SET arguments = '[]' WHERE sequence = 1");
    run("ack 2");
    auto expected = parsed(R"json({
        "@odata.id": "/redfish/v1/Managers/HMC/LogServices/ZEL/Entries",
        "@odata.type": "#LogEntryCollection.LogEntryCollection",
        "Name": "Event Log Entries", "Description": "Entries of the platform event log (ZEL)",
        "Members": [
            {"Id": "5", "Created": "2025-01-04T10:00:00.000Z", "Severity": "OK", "Resolved": false,
             "Message": "XYZ: (not in the catalogue) ", "MessageArgs": [""]},
            {"Id": "4", "Severity": "OK", "Resolved": false, "MessageId": "OSKA.1.0.HMC0003",
             "Message": "The Fan is operating normally.", "MessageArgs": ["Fan"]},
            {"Id": "3", "Severity": "Warning", "Resolved": false, "MessageId": "OSKA.1.0.HMC0002",
             "Message": "A warning condition has been reported for a\u0000.",
             "MessageArgs": ["a\u0000"]},
            {"Id": "2", "Created": "2025-01-02T10:00:00.500Z", "Severity": "Warning",
             "Resolved": true, "MessageId": "OSKA.1.0.HMC0005", "MessageArgs": ["GPU10"],
             "Message": "The GPU10 upper warning threshold has been exceeded."},
            {"Id": "1", "Created": "2025-01-01T10:00:00.000Z", "Severity": "Critical",
             "Resolved": false, "MessageId": "OSKA.1.0.HMC0001", "MessageArgs": [""],
             "Message": "A critical error has been reported for ."}],
        "Members@odata.count": 5})json");
    for (auto& member : expected["Members"]) {
        const auto id = member["Id"].asString();
        member["@odata.id"] = expected["@odata.id"].asString() + "/" + id;
        member["@odata.type"] = "#LogEntry.v1_16_0.LogEntry";
        member["Name"] = "Log Entry " + id;
        member["EntryType"] = "Event";
    }
    auto told = parsed(outputOf("list --output redfish 2>/dev/null"));
    for (auto& member : told["Members"]) { // Of the registry, which another test has.
        EXPECT_EQ(member.isMember("Resolution"), member.isMember("MessageId"));
        member.removeMember("Resolution");
    }
    EXPECT_EQ(told, expected);
    EXPECT_EQ(members("list --id HMC0001 --base /redfish/v1/X")[0]["@odata.id"], "/redfish/v1/X/1");
    std::filesystem::remove_all(directory);
    expected["Members"] = Json::arrayValue;
    expected["Members@odata.count"] = 0;
    EXPECT_EQ(parsed(outputOf("list --output redfish")), expected);
}

TEST_F(Zelctl, TellsOfAClockThatWasNotSet) {
    tavrisk::zel::Connection{path, SQLITE_OPEN_READWRITE}.execute(
        "UPDATE entries SET time = '1970-01-01T00:00:12.345Z', since_boot = 12345"
        " WHERE sequence = 4");
    EXPECT_THAT(outputOf("list --id HMC0003"), AllOf(HasSubstr("4  boot+0:00:12.345     other "),
                                                     HasSubstr("not set for 1 entry")));
    EXPECT_THAT(outputOf("list --since today"), HasSubstr("may be of that time as well"));
    EXPECT_EQ(outputOf("list --since today --severity critical"), "");
}

TEST_F(Zelctl, TakesTimesAsPeopleWriteThem) {
    using namespace std::chrono;
    const auto now = floor<milliseconds>(system_clock::now());
    const auto before = [now](minutes span) {
        add(std::string{tavrisk::text::UtcTime{now - span}.text()}, "HMC0001", 1, "GPU0");
        return "@" + std::to_string(floor<seconds>(now - span).time_since_epoch().count());
    };
    before(25h);
    const auto epoch = before(60min);
    before(1min);
    // Where it is past noon now, and not yet one o'clock.
    const auto zone = "TZ=XXX" + std::to_string(hh_mm_ss{now - floor<days>(now)}.hours() / 1h - 12);
    const std::vector<std::pair<std::string, std::string>> cases{
        {"--since today", "8 7 "},
        {"--since yesterday --until yesterday", "6 "},
        {"--since 'yesterday 11:00' --until 11:59:59", "7 6 "},
        {"--since 11:00 --until 11:59", "7 "},
        {"--since '90 minutes ago' --until '2 min ago'", "7 "},
        {"--since '1 day 2 hours ago' --until -30m", "7 6 "},
        {"--since " + epoch + " --until " + epoch, "7 "},
    };
    for (const auto& [arguments, expected] : cases) {
        EXPECT_EQ(sequencesOf("list " + arguments, zone), expected) << arguments;
    }
}

TEST_F(Zelctl, ReadsALogOfManyPages) {
    const std::vector<tavrisk::zel::Entry> many(
        1200, {"2025-01-05T10:00:00.000Z", "HMC0006", 1, R"(["GPU7"])"});
    tavrisk::zel::Store{path}.append(many, 1204); // One of these goes.
    std::string forwards;
    std::string backwards;
    for (int sequence = 1; sequence <= 1205; ++sequence) {
        const auto number = sequence == 6 ? "" : std::to_string(sequence) + " ";
        forwards += number;
        backwards.insert(0, number);
    }
    EXPECT_EQ(sequencesOf("list"), backwards);
    EXPECT_EQ(sequencesOf("list --reverse"), forwards);
    auto stats = parsed(outputOf("stats --json --id HMC0006"));
    EXPECT_GT(stats["bytesOnDisk"].asInt(), 100'000);
    stats.removeMember("bytesOnDisk");
    EXPECT_EQ(stats, parsed(R"({
        "database": ")" + path +
                            R"(", "schemaVersion": 3, "entries": 1204, "cap": )" +
                            std::to_string(tavrisk::platform::zelMaxEntries) + R"(, "dropped": 1,
        "lastDropped": {"sequence": 6, "time": "2025-01-05T10:00:00.000Z"},
        "losses": [], "waiting": false, "salvaged": 0, "setAside": [],
        "first": {"sequence": 1, "time": "2025-01-01T10:00:00.000Z"},
        "last": {"sequence": 1205, "time": "2025-01-05T10:00:00.000Z"},
        "lastClear": null, "matching": 1199,
        "bySeverity": {"critical": 1199, "warning": 0, "other": 0},
        "byMessageId": [{"messageId": "HMC0006", "count": 1199}],
        "byDevice": [{"device": "GPU7", "count": 1199}]})"));
    // What it says beside the entries: only of what might have been among them.
    EXPECT_EQ(outputOf("list -n 5 >/dev/null"), "");
    EXPECT_EQ(outputOf("list --device GPU0 --after 6 >/dev/null"), "");
    EXPECT_THAT(outputOf("list --id HMC0006 >/dev/null"), HasSubstr("cap, up to #6 of 2025-01-05"));
    EXPECT_THAT(outputOf("follow --after 3 -n1 >/dev/null"),
                HasSubstr("1 of the entries 4 to 120"));
}

TEST_F(Zelctl, ReportsWhenOnARoundScale) {
    add("1970-01-01T00:00:12.000Z", "HMC0001", 1, "GPU0"); // of a clock that was not set
    struct Case {
        std::string arguments;
        std::vector<std::string> page;
    };
    const std::vector<Case> cases{
        {"",
         {"Each bar is of 3 hours", "<span>2</span><span>1</span><span>0</span>",
          "<span>2025-01-01 09:00</span><span>2025-01-02 21:00</span><span>2025-01-04 12:00</span>",
          R"(<rect class="critical" fill="currentColor" x="0.40%" width="3.20%" y="50.00%" h)",
          R"--(<rect class="warning" fill="url(#hatched)" x="32.40%" width="3.20%" y="0.00%" h)--",
          R"(<title>2025-01-04 09:00: 1 other</title>)",
          "Not in the picture: 1 entry of a time when the clock was not set",
          "CRITICAL: 2 critical entries not acknowledged, the last #6"}},
        {"--id HMC0001", {"Each bar is of 1 minute", "<span>2025-01-01 10:12</span>"}},
        {"--severity warning -n 1",
         {"1 older one is not shown", "2025-01-02 10:00: 2 warning",
          "<td>GPU10</td><td>1 warning"}},
        {"--since 2025-01-02",
         {"Each bar is of 1 hour", "Entries of a time when the clock was not set, before 2020, are "
                                   "not looked for"}},
    };
    for (const auto& [arguments, page] : cases) {
        const auto output = outputOf("report -o - " + arguments);
        for (const auto& text : page) {
            EXPECT_THAT(output, HasSubstr(text)) << arguments;
        }
    }
    EXPECT_THAT(outputOf("report -o -", "TZ=XXX-5:45"), HasSubstr("<span>2025-01-01 15:00</span>"));
}

TEST_F(Zelctl, WrapsAMessageWithoutLosingACharacter) {
    std::string device;
    for (int word = 100; word < 122; ++word) {
        device += std::to_string(word) + " ";
    }
    add("2025-01-05T10:00:00.000Z", "HMC0002", 2, device + "\u00e9nd");
    std::string shown;
    std::istringstream lines{
        outputOf("list -n 1 --no-pager' /dev/null",
                 "script -qec 'stty cols 100; exec env NO_COLOR=1 LC_ALL=C.UTF-8")};
    std::getline(lines, shown); // The title.
    shown.clear();
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 102);
        shown += line.substr(std::min<std::size_t>(line.size(), 43), line.find('\r') - 43);
    }
    EXPECT_EQ(shown, "A warning condition has been reported for " + device + "\u00e9nd.");
}

TEST_F(Zelctl, FollowsEveryBurstAtOnce) {
    const Process follower{{"sh", "-c",
                            "exec >/run/followed; exec timeout 60 $TAVRISK_ZELCTL "
                            "follow --json --after 5 --limit 30"}};
    const tavrisk::zel::Entry entry{"2025-01-05T10:00:00.000Z", "HMC0001", 1, "[]"};
    tavrisk::zel::Store store{path}; // One that stays open, as the daemon's does.
    std::size_t written = 0;
    for (const auto burst : {1U, 20U, 1U, 8U}) {
        usleep(300'000); // It has gone to sleep.
        for (std::size_t end = written + burst; written < end; ++written) {
            store.append({&entry, 1}, 1000);
        }
        ASSERT_TRUE(eventually([written] {
            const auto shown = readFile("/run/followed");
            return std::count(shown.begin(), shown.end(), '\n') == static_cast<long>(written);
        }));
    }
}

TEST_F(Zelctl, FollowsAndResumesWithoutLosingOrRepeatingAnEntry) {
    tavrisk::zel::Store store{path};
    const std::jthread writer{[&store] {
        const tavrisk::zel::Entry entry{"2025-01-05T10:00:00.000Z", "HMC0001", 1, "[]"};
        for (int i = 0; i < 60; ++i) {
            store.append({&entry, 1}, 1000);
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        }
    }};
    const auto first = sequencesOf("follow --after 0 --limit 25", "timeout 60");
    const auto rest = sequencesOf("follow --after 25 --limit 40", "timeout 60");
    EXPECT_EQ(first + rest, sequencesOf("list --reverse"));
}

TEST_F(Zelctl, ShowsHostileTextHarmlessly) {
    EXPECT_THAT(
        outputOf("list"),
        HasSubstr("3  2025-01-02 10:00:00  warning   HMC0002  A warning condition has been "
                  "reported for "
                  "a\\x1b[2J\\n\\u{9b}\\u{200b}\\u{202e}\\u{202c}\\u{2066}\\u{2069}\ufffd."));
    for (const auto* command : {"list", "list --json", "show 3", "show 3 --json", "stats"}) {
        const auto output = outputOf(command);
        for (const auto* hostile : {"\x1b", "\xe2\x80", "\xe2\x81"}) {
            EXPECT_EQ(output.find(hostile), std::string::npos) << output;
        }
    }
}

TEST_F(Zelctl, SaysWhyItCannot) {
    const auto expect = [](const std::string& arguments, int status, const std::string& part) {
        EXPECT_EQ(run(arguments), status) << arguments;
        EXPECT_THAT(readFile("/run/out"), HasSubstr(part)) << arguments;
    };
    expect("list --db /run/$(printf 'no\\033ne')", 1, R"(zelctl: /run/no\x1bne: No such file)");
    expect("verify --db /etc/passwd", 1, "damaged, or no event log");
    expect("list --db /run", 1, "/run: is not a file");
    tavrisk::zel::Connection{"/run/other", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE}.execute(
        "CREATE TABLE entries (x); PRAGMA user_version = 1");
    expect("list --db /run/other", 1, "damaged, or no event log");
    expect("show 6", 1, "no entry 6");
    expect("clear", 2, "--yes");
    expect("list --since yesterdays", 2,
           "zelctl: --since takes a TIME, not 'yesterdays'\n"
           "Try 'zelctl list --help'.\n");
    expect("list --output redfish --fold", 2, "has no room for what --fold tells");
    for (const auto* base : {"redfish/v1", "/redfish/", "//host/v1", "'/red fish'"}) {
        expect(std::string{"list --output redfish --base "} + base, 2, "--base takes a path");
    }
    expect("report -o /run/a --bundle=/run/../run/./a", 2, "need a FILE each");
    expect("list --base /redfish/v1 --json", 2, "--base is for --output=redfish");
    expect("follow --output redfish", 2, "--output takes short, json or csv, not 'redfish'");
    expect("stats -n 1", 2, "zelctl: stats has no option --limit\n");
    expect("list -n 0", 2, "zelctl: --limit takes a number from 1, not '0'\n");
    expect("help verify", 0, "Usage: zelctl verify [OPTION]...\n\nTo check the database.\n");
    expect("clear --yes", 0, "5");
    add("2025-01-01T10:00:00.000Z", "HMC0001", 1, "GPU0");
    expect("list", 0, "6  2025");
    const tavrisk::zel::Connection database{path, SQLITE_OPEN_READWRITE};
    database.execute("UPDATE entries SET arguments = 'x'; UPDATE sqlite_sequence SET seq = 5;"
                     "DELETE FROM state");
    expect("verify", 1,
           "the last sequence number is not remembered and would be used again\n"
           "entry 6 has no list of arguments\n"
           "the count of dropped entries and the last clearing are missing\n");
    database.execute("PRAGMA user_version = 4");
    for (const auto* command : {"list", "stats", "verify", "clear --yes", "follow", "show 6"}) {
        expect(command, 1, "later version");
    }
    std::filesystem::remove_all(directory);
    EXPECT_EQ(outputOf("list --json"), "");
    expect("list", 0, "");
    expect("list --output redfish -n 0", 2, "--limit takes a number");
}

constexpr auto oldLayout =
    "CREATE TABLE entries (sequence INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL,"
    " message_id TEXT NOT NULL, severity INTEGER NOT NULL, arguments TEXT NOT NULL);"
    "PRAGMA user_version = 1; PRAGMA journal_mode = WAL;"
    "INSERT INTO entries VALUES (7, '1970-01-01T00:00:09.000Z', 'HMC0001', 1, '[\"old\"]')";

void damageThePages() {
    execute("PRAGMA wal_checkpoint(TRUNCATE)");
    auto text = readFile(path);
    std::fill(text.begin() + 4096, text.end(), 'x');
    writeFile(path, text);
}

void haveOneWait() {
    tavrisk::zel::Spill{path}.add(
        std::array{tavrisk::zel::Entry{"2025-01-05T10:00:00.000Z", "HMC0002", 2, "[]"}});
}

void takeInWhatWaits() {
    tavrisk::zel::Spill spill{path};
    EXPECT_FALSE(spill.isEmpty());
    tavrisk::zel::Spill::Reading{spill}.finish();
}

TEST_F(Zelctl, TellsMonitorsHowThingsAre) {
    const struct {
        void (*change)();
        const char* arguments;
        int status;
        const char* line;
    } cases[]{
        {[] {}, "", 2, "CRITICAL: 1 critical entry not acknowledged, the last #1\n"},
        {[] {}, "--since 2025-01-02", 0, "OK: 5 entries\n"},
        {[] { run("ack 1 --note seen"); }, "", 0, "OK: 5 entries\n"},
        {[] { execute("INSERT INTO losses VALUES ('busy', 3, 1, '2025-01-02T10:00:00.000Z')"); },
         "--since 2025-01-02", 2, "CRITICAL: 2 events lost and not acknowledged\n"},
        {[] {}, "--since 2025-01-03", 0, "OK: 5 entries\n"},
        {[] { run("ack --losses"); }, "", 0, "OK: 5 entries\n"},
        {[] { execute("UPDATE entries SET salvaged = 1 WHERE sequence > 2"); }, "", 1,
         "WARNING: salvaged entries not acknowledged\n"},
        {[] { writeFile(path + ".damaged-20250103T100000.000Z", ""); }, "--since 2025-01-03", 1,
         "WARNING: 1 damaged database set aside; salvaged entries not acknowledged\n"},
        {[] { run("ack 3 4 5"); }, "--since 2025-01-04", 0, "OK: 5 entries\n"},
        {haveOneWait, "--since 2025-01-04", 1, "WARNING: events wait for the database\n"},
        {takeInWhatWaits, "--since 2025-01-04", 0, "OK: 5 entries\n"},
        {[] { execute("PRAGMA user_version = 9"); }, "", 3, "UNKNOWN: "},
        {[] { execute("PRAGMA user_version = 3"); }, "--since never", 3, "UNKNOWN: --since takes"},
        {[] { damageThePages(); }, "", 2, "CRITICAL: "},
        {[] { std::filesystem::remove_all(directory); }, "", 0, "OK: 0 entries\n"},
    };
    for (const auto& row : cases) {
        row.change();
        EXPECT_EQ(run(std::string{"check "} + row.arguments), row.status) << row.line;
        EXPECT_THAT(readFile("/run/out"), testing::StartsWith(row.line));
    }
}

TEST_F(Zelctl, TellsOnceOfLossesThatWaitForTheDatabase) {
    const auto expectTold = [](const char* when) {
        SCOPED_TRACE(when);
        EXPECT_THAT(outputOf("check --since today"), HasSubstr("15 events lost and not ack"));
        for (const auto* command : {"stats", "report -o -"}) {
            EXPECT_THAT(outputOf(command), HasSubstr("16: no space 9, busy 7 (1 acknowledged)"));
        }
        EXPECT_THAT(outputOf("metrics"), AllOf(HasSubstr(R"(lost_events_total{cause="busy"} 7)"),
                                               HasSubstr(R"({cause="no space"} 9)")));
    };
    execute("INSERT INTO losses VALUES ('busy', 3, 1, '2025-01-02T10:00:00.000Z')");
    tavrisk::zel::Spill spill{path};
    spill.count("busy", 4);
    spill.count("no space", 9);
    expectTold("in the spill file");
    {
        const tavrisk::zel::Spill::Reading reading{spill};
        tavrisk::zel::Store{path}.append({}, 9, reading.losses(), reading.mark());
    }
    expectTold("in both, as after a kill");
    haveOneWait();
    expectTold("in both, and an entry waits");
    {
        tavrisk::zel::Spill::Reading reading{spill};
        reading.goOnBehind(tavrisk::zel::Store{path}.spillMark());
        EXPECT_TRUE(reading.losses().empty());
        EXPECT_EQ(reading.next().size(), 1);
        reading.finish();
    }
    expectTold("in the database");
    EXPECT_EQ(outputOf("ack --losses"), "losses: acknowledged\n");
    spill.count("busy", 1);
    EXPECT_THAT(outputOf("ack --losses"), HasSubstr("but for those that wait"));
    std::filesystem::remove(path);
    EXPECT_THAT(outputOf("check"), HasSubstr("1 event lost and not acknowledged"));
}

TEST_F(Zelctl, WritesFiguresThatDoNotFallWithTheirEntries) {
    add("2025-01-05T10:00:00.999Z", "HMC0001", 1, "\"\\\n\u00e9");
    haveOneWait();
    execute("INSERT INTO losses VALUES ('busy', 3, 1, '2025-01-02T10:00:00.000Z')");
    const tavrisk::zel::Entry more{"2025-01-05T10:00:01.999Z", "HMC0001", 1, R"(["GPU0"])"};
    tavrisk::zel::Store{path}.append({&more, 1}, 3);
    EXPECT_EQ(run("metrics --to /run/x.prom"), 0);
    EXPECT_EQ(std::filesystem::status("/run/x.prom").permissions(), std::filesystem::perms{0644});
    const auto text = readFile("/run/x.prom");
    EXPECT_EQ(outputOf("metrics"), text);
    for (const auto* line :
         {R"(recorded_entries_total{message="HMC0001",severity="critical",device="GPU0"} 2)",
          R"(recorded_entries_total{message="HMC0001",severity="critical",device="\"\\\né"} 1)",
          R"(recorded_entries_total{message="XYZ",severity="other",device=""} 1)",
          "dropped_entries_total 4", "entries 3", R"(lost_events_total{cause="busy"} 3)",
          R"(acknowledged_losses_total{cause="busy"} 1)", "waiting_entries 1",
          "last_entry_timestamp_seconds 1736071201", "readable 1", "set_aside_databases 0"}) {
        EXPECT_THAT(text, HasSubstr("\ntavrisk_zel_" + std::string{line} + "\n"));
    }
    // What cannot be replaced stays, and nothing is left beside it.
    for (const auto* place : {"/run/none/x.prom", "/run/hmc", "/dev/full"}) {
        EXPECT_EQ(run(std::string{"metrics --to "} + place), 1) << place;
    }
    EXPECT_EQ(run("metrics --to=/run/x.prom", "ulimit -f 0; trap '' XFSZ; exec"), 1);
    EXPECT_EQ(readFile("/run/x.prom"), text);
    for (const auto& file : std::filesystem::directory_iterator{"/run"}) {
        EXPECT_THAT(file.path().string(), testing::Not(HasSubstr(".prom.")));
    }
    damageThePages();
    EXPECT_EQ(run("metrics --to=/run/x.prom"), 1);
    EXPECT_THAT(readFile("/run/x.prom"),
                AllOf(HasSubstr("\ntavrisk_zel_readable 0\n"), HasSubstr("waiting_entries 1\n")));
}

TEST_F(Zelctl, BacksUpAndKnowsAnIncompleteCopy) {
    const auto expected = outputOf("list");
    tavrisk::zel::Store writer{path}; // as the daemon, which has it open meanwhile
    EXPECT_EQ(run("backup /run/copy.db"), 0);
    EXPECT_EQ(outputOf("list --db /run/copy.db"), expected);
    EXPECT_FALSE(std::filesystem::exists("/run/copy.db-wal"));
    EXPECT_THAT(outputOf("verify --db /run/copy.db"), HasSubstr("all is well; entries: 5"));
    EXPECT_EQ(run("backup /run/copy.db"), 1) << "nobody's copy is written over";

    std::filesystem::copy(path, "/run/alone.db");
    EXPECT_EQ(run("check --db /run/alone.db"), 3);
    EXPECT_THAT(readFile("/run/out"), testing::StartsWith("UNKNOWN: it is incomplete: "));
    run("list --db /run/alone.db"); // Leaves nothing beside it that could be taken for its log.
    EXPECT_EQ(run("verify --db /run/alone.db"), 1);
    EXPECT_THAT(readFile("/run/out"),
                AllOf(HasSubstr("incomplete: /run/alone.db-wal"), HasSubstr("What to do: copy")));
    execute("DELETE FROM entries WHERE sequence = 3");
    EXPECT_THAT(outputOf("verify"), HasSubstr("1 entries are missing that were neither dropped"));
}

TEST_F(Zelctl, ReadsWithoutTheRightToWrite) {
    const auto expected = outputOf("list");
    std::filesystem::permissions(directory, std::filesystem::perms{0555});
    EXPECT_EQ(outputOf("list", unprivileged), expected);
    tavrisk::zel::Connection{path, SQLITE_OPEN_READWRITE}.execute("PRAGMA wal_checkpoint");
    ASSERT_FALSE(std::filesystem::exists(path + "-wal")); // gone with its last user
    EXPECT_EQ(outputOf("list", unprivileged), expected);
}

/** Holds a value against those parts of JSON Schema that ours uses. Members that the schema does
 * not name are not allowed. */
bool holds(const Json::Value& value, const Json::Value& schema, const Json::Value& definitions) {
    if (schema.isMember("$ref")) {
        const auto name = schema["$ref"].asString().substr(std::string{"#/$defs/"}.size());
        return holds(value, definitions[name], definitions);
    }
    const std::array types{"null",   "integer", "integer", "number",
                           "string", "boolean", "array",   "object"}; // as Json::ValueType has them
    const auto& allowed = schema["enum"];
    bool good = schema["type"].toStyledString().find(types.at(value.type())) != std::string::npos &&
                (allowed.isNull() || std::count(allowed.begin(), allowed.end(), value) == 1);
    for (const auto& name : schema["required"]) {
        good = good && (value.isNull() || value.isMember(name.asString()));
    }
    if (value.isObject() && !schema.isMember("properties")) { // any may be in it
        return good;
    }
    for (auto member = value.begin(); member != value.end(); ++member) {
        const auto& part = value.isArray() ? schema["items"] : schema["properties"][member.name()];
        good = good && holds(*member, part, definitions);
    }
    return good;
}

/** Cells of a line of comma-separated values. */
std::int64_t cellsOf(const std::string& line) {
    bool quoted = false;
    return 1 + std::count_if(line.begin(), line.end(), [&quoted](char c) {
               quoted = quoted != (c == '"');
               return c == ',' && !quoted;
           });
}

Json::Value schema() {
    return parsed(readFile(std::getenv("TAVRISK_SOURCE") +
                           std::string{"/src/tools/zelctl/zelctl.schema.json"}))["$defs"];
}

void expectForms(const std::string& command, const Json::Value& definitions, const char* name) {
    SCOPED_TRACE(command);
    std::istringstream objects{outputOf(command + " --json 2>/run/err")};
    for (std::string line; std::getline(objects, line);) {
        EXPECT_TRUE(holds(parsed(line), definitions[name], definitions)) << line;
    }
    std::istringstream rows{outputOf(command + " --output csv 2>/run/err")};
    std::string head;
    std::getline(rows, head);
    for (std::string line; std::getline(rows, line);) {
        EXPECT_EQ(cellsOf(line), cellsOf(head)) << line;
    }
    std::istringstream lines{outputOf(command + "' /dev/null",
                                      "script -qec 'stty cols 80; exec env NO_COLOR=1 "
                                      "LC_ALL=C.UTF-8 PAGER=\"sed s/^/@/\"")};
    for (std::string line; std::getline(lines, line);) {
        const auto columns = std::count_if(line.begin(), line.end(),
                                           [](char c) { return (c & 0xc0) != 0x80 && c != '@'; });
        const bool whole = has(line, "^(zelctl: |[A-Z]+: )| /"); // monitors' lines, paths
        EXPECT_TRUE(columns <= 81 || whole) << line;
        const bool paged = line.starts_with('@') == !has(name, "check|verification");
        EXPECT_TRUE(paged || has(line, "^zelctl: |^No entries")) << line;
        EXPECT_NE(line, "@.\r");
    }
}

TEST_F(Zelctl, AnswersOfAnyLogInEveryForm) {
    const std::vector<std::pair<const char*, void (*)()>> logs{
        {"full", [] { run("ack 2 --note 'a, \"b\"'"); }},
        {"damaged", damageThePages},
        {"salvaged", [] { add("2025-01-05T10:00:00.000Z", "HMC0001", 1, "GPU0"); }},
        {"old",
         [] {
             std::filesystem::remove_all(directory);
             std::filesystem::create_directories(directory);
             execute(oldLayout);
         }},
        {"none", [] { std::filesystem::remove_all(directory); }},
    };
    const auto definitions = schema();
    for (const auto& [log, make] : logs) {
        SCOPED_TRACE(log);
        make();
        expectForms("list", definitions, "entry");
        expectForms("list --fold --since 2020-01-01", definitions, "entry");
        expectForms("list --boots", definitions, "boot");
        expectForms("stats", definitions, "stats");
        expectForms("check", definitions, "check");
        expectForms("verify", definitions, "verification");
    }
}

TEST_F(Zelctl, FindsAcceptedEventsThatWereLost) {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    const auto keep = [now](int age, const std::string& device, const char* name = "a") {
        const auto kept = std::to_string((now.time_since_epoch().count()) - age);
        writeFile(std::string{"/var/run/hmc/"} + name + "." + kept,
                  R"({"EventType": "Event", "Severity": "Critical", "MessageArgs": [")" + device +
                      R"("]})");
        return std::string{"/var/run/hmc/"} + name + "." + kept;
    };
    keep(400, "Dropped");
    keep(200, "GPU1");
    const auto lost = keep(199, "GPU1"); // one entry of two events
    const auto other = keep(198, "GPU2", "b c");
    keep(2, "GPU3");
    writeFile("/var/run/hmc/e." + std::to_string(now.time_since_epoch().count() - 200), "{}");
    const auto at = [now](int age) {
        return std::string{tavrisk::text::UtcTime{now - std::chrono::seconds{age}}.text()};
    };
    add(at(198), "HMC0001", 1, "GPU1");
    execute(("UPDATE entries SET boot_id = NULL; UPDATE totals SET dropped = 1, last_dropped = 1,"
             " last_dropped_at = '" +
             at(300) + "'")
                .c_str());
    const auto null = [] {
        return replaced(outputOf("recover --null"), std::string(1, '\0'), "|");
    };
    EXPECT_EQ(null(), lost + "|" + other + "|");
    expectForms("recover", schema(), "candidate");
    std::istringstream lines{outputOf("recover --json")};
    std::string told;
    for (std::string line; std::getline(lines, line);) {
        told += parsed(line)["device"].asString() + (parsed(line)["lost"].asBool() ? "! " : "? ");
    }
    EXPECT_EQ(told, "Dropped? GPU1! GPU2! GPU3? ");
    run("clear --yes");
    EXPECT_EQ(null(), "") << "a clearing removes entries, too";
}

TEST_F(Zelctl, NamesThePartThatARecordNames) {
    const auto now = std::chrono::system_clock::now();
    const auto seconds = std::to_string(std::chrono::system_clock::to_time_t(now));
    const auto at = std::string{tavrisk::text::UtcTime{now}.text()};
    const auto sample = std::getenv("TAVRISK_SOURCE") + std::string{"/samples/"};
    // A CPER's entry has its notification type for a device, and no sample of JSON a hostile word.
    constexpr auto type = "2dce8bb1-bdd7-450e-b9ad-9cf4ebd4f890";
    std::filesystem::create_directories("/var/run/hmc/rawCPER");
    const auto keep = [now, &sample](const char* record, const std::string& file) {
        std::filesystem::copy(sample + record, file);
        std::filesystem::last_write_time(file, std::chrono::file_clock::from_sys(now));
    };
    keep("decoder/memory.cper", "/var/run/hmc/rawCPER/m.1");
    writeFile(
        "/var/run/hmc/e." + seconds,
        R"({"EventType": "Event", "Severity": "Critical", "MessageArgs": ["GPU0"], "Message":)"
        R"( "bad\u001b[2J", "Resolution": "swap it", "OriginOfCondition": "/x/GPU0\u202e"})");
    add(at, "HMC0001", 1, "GPU0");
    add(at, "HMC0002", 2, type);
    add(at, "HMC0002", 2, "no record");

    constexpr auto memory = "Board 1, node 0, card 1, module 4";
    EXPECT_THAT(outputOf("show 6"), AllOf(HasSubstr("Says          bad\\x1b[2J"),
                                          HasSubstr("Part          /x/GPU0\\u{202e}"),
                                          HasSubstr("Its record\n  Resolution: swap it\n")));
    EXPECT_THAT(outputOf("show 7"),
                AllOf(HasSubstr(memory), HasSubstr("single-bit ECC error at node 0"),
                      HasSubstr("Module: 4\n")));
    EXPECT_THAT(outputOf("show 8"), HasSubstr("no longer there"));
    const auto longList = outputOf("list --long -n 3");
    EXPECT_EQ(std::count(longList.begin(), longList.end(), '\n'), 5) << longList;
    EXPECT_THAT(longList, AllOf(HasSubstr("\n   bad\\x1b[2J\n"), HasSubstr("module 4, rank 1")));
    EXPECT_THAT(outputOf("stats --parts --after 5"),
                HasSubstr("Entries by part, 3 that match\n       1  /x/GPU0\\u{202e}\n       1  " +
                          std::string{memory} + "\n       1  no record\n"));
    EXPECT_EQ(run("list --long --fold"), 2);
    expectForms("list --long -n 1", schema(), "entry");
    expectForms("stats --parts", schema(), "stats");
    expectForms("show 7", schema(), "shownEntry");

    // A file that is looked at is read once a command, and only where it is asked for.
    const auto opened = [](const std::string& command) {
        const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        inotify_add_watch(watch, "/var/run/hmc/rawCPER/m.1",
                          IN_OPEN | IN_CLOSE); // in turns: equal ones would become one
        run(command);
        std::array<char, 4096> events{};
        const auto size = read(watch, events.data(), events.size());
        close(watch);
        return std::max(size, ssize_t{0}) / static_cast<ssize_t>(2 * sizeof(inotify_event));
    };
    for (int i = 0; i < 5; ++i) {
        add(at, "HMC0002", 2, type);
    }
    EXPECT_EQ(opened("list"), 0);
    EXPECT_EQ(opened("list --long"), 1);
    EXPECT_EQ(opened("stats --parts"), 1);
    EXPECT_EQ(opened("list --output redfish"), 1);
    const auto record = readFile(sample + "decoder/memory.cper");
    const auto unsigned_ = "...." + replaced(record, "^CPER", "CPEX");
    const struct {
        const char* what;
        std::string bytes;
        int age;
        bool isNamed;
        bool hasData;
    } records[]{
        {"a whole one", record, 0, true, true},
        {"a guess", record, 5, false, false},
        {"one without a signature", unsigned_, 0, false, false},
        {"a large one", record + std::string(1U << 20U, 'x'), 0, true, false},
    };
    for (const auto& row : records) {
        writeFile("/var/run/hmc/rawCPER/m.1", row.bytes);
        std::filesystem::last_write_time(
            "/var/run/hmc/rawCPER/m.1",
            std::chrono::file_clock::from_sys(now - std::chrono::seconds{row.age}));
        const auto entries = members("list --after 5 --reverse");
        EXPECT_EQ(entries[1].isMember("CPER"), row.isNamed) << row.what;
        EXPECT_EQ(entries[1].isMember("DiagnosticData"), row.hasData) << row.what;
        EXPECT_FALSE(entries[0].isMember("CPER") || entries[2].isMember("CPER"));
    }
    std::filesystem::remove("/var/run/hmc/rawCPER/m.1");
    keep("decoder/memory.cper", "/var/run/hmc/rawCPER/m.1");
    // Which of two it is cannot be told.
    keep("decoder/pcie.cper", "/var/run/hmc/rawCPER/p.1");
    EXPECT_THAT(outputOf("show 7"), AllOf(HasSubstr("One of"), Not(HasSubstr("Part ")),
                                          HasSubstr("The first of these records")));
    EXPECT_FALSE(members("list --after 5 --reverse")[1].isMember("CPER"));
    EXPECT_THAT(outputOf("stats --parts --after 5"), HasSubstr(" 6  " + std::string{type} + "\n"));
    std::filesystem::remove_all("/var/run/hmc/rawCPER");
    std::filesystem::remove("/var/run/hmc/e." + seconds);
}

TEST_F(Zelctl, PrintsWhatItsSchemaPromises) {
    const auto now = std::chrono::system_clock::now();
    const auto seconds = std::chrono::system_clock::to_time_t(now);
    const auto file = "/var/run/hmc/x." + std::to_string(seconds);
    writeFile(file, R"({"EventType": "Event", "Severity": "Critical", "MessageArgs": ["GPU0"]})");
    const auto definitions = schema();
    const auto output = [](const std::string& command) {
        return parsed(outputOf(command + " --json"));
    };
    const auto expectPromised = [&](const std::string& arguments, const char* name) {
        EXPECT_TRUE(holds(output(arguments), definitions[name], definitions)) << arguments;
    };
    add(std::string{tavrisk::text::UtcTime{now}.text()}, "HMC0001", 1, "GPU0");
    expectPromised("list -n 1", "entry");
    expectPromised("show 3", "shownEntry");
    EXPECT_EQ(output("show 6")["rawFiles"][0], file);
    EXPECT_FALSE(output("show 6")["rawFilesAreGuess"].asBool());
    EXPECT_TRUE(output("show 1")["rawFiles"].empty());
    // What was saved and cleared is found where it was saved; what was kept long before is
    // doubtful.
    const auto saved = "/mmc1/hmc/x." + std::to_string(seconds - 9);
    std::filesystem::create_directories("/mmc1/hmc");
    std::filesystem::copy(file, saved);
    std::filesystem::remove(file);
    EXPECT_THAT(outputOf("show 6"), AllOf(HasSubstr(saved), HasSubstr("a guess: kept 9 s before")));
    std::filesystem::permissions("/mmc1/hmc", std::filesystem::perms::none);
    EXPECT_THAT(outputOf("show 6", unprivileged), HasSubstr("cannot be told: /mmc1/hmc/: Permis"));
    EXPECT_THAT(
        outputOf("list --output redfish >/dev/null", unprivileged),
        HasSubstr("CPERs may be missing, for one cannot look everywhere: /mmc1/hmc/: Perm"));
    std::filesystem::remove_all(directory);
    expectPromised("stats", "stats");
    expectPromised("verify", "verification");
}

} // namespace
