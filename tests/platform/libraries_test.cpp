// SPDX-License-Identifier: Apache-2.0
#include "events/raise_event.hpp"
#include "platform/common/config.hpp"
#include "platform/mosslink/sqlite.hpp"

#include <gtest/gtest.h>
#include <kelp.h>
#include <mosslink.h>
#include <whelk.h>

#include <kelp_errors.h>
#include <mosslink_errors.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <thread>

namespace {

const std::string zelPath = tavrisk::platform::zelPath;
const std::string debugLogPath = tavrisk::platform::debugLogPath;

/** Empties the directory of a compiled-in path. Only in the private root of scripts/world: on a
 *  real system that would be the system's own log. */
void emptyDirectoryOf(const std::filesystem::path& file) {
    if (std::filesystem::exists("/var/lib/dpkg")) {
        std::abort();
    }
    std::filesystem::remove_all(file.parent_path());
    std::filesystem::create_directories(file.parent_path());
}

std::string contents(const std::filesystem::path& path) {
    return (std::ostringstream{} << std::ifstream{path}.rdbuf()).str();
}

int statusOfChild(void (*body)()) {
    if (fork() == 0) {
        alarm(10); // ends a child that hangs
        body();
        _exit(0);
    }
    int status = -1;
    wait(&status);
    return status;
}

TEST(Kelp, TakesTheDaemonsBlockAndRefusesEveryOther) {
    struct Case {
        KelpError expected;
        std::uint32_t value;
        std::size_t word; // to be given the value: of the client below 4, else of the block
        std::size_t nameLength = 7;
    };
    const std::vector<Case> cases{{KELP_OK, 0, 2},
                                  {KELP_OK, 0, 2, 63},
                                  {KELP_BAD_CLIENT_NAME, 0, 2, 64},
                                  {KELP_BAD_CLIENT_NAME, 0, 2, 0},
                                  {KELP_BAD_RESERVED, 1, 2},
                                  {KELP_BAD_VERSION, 16, 3},
                                  {KELP_BAD_RESERVED, 1, 6},
                                  {KELP_BAD_VERSION, 18, 14},
                                  {KELP_BAD_RESERVED, 1, 29}};
    for (const auto& c : cases) {
        const std::string name(c.nameLength, 'n');
        std::vector<std::uint32_t> words(4 + 26);
        const std::pair pointers{name.c_str(), words.data()};
        std::memcpy(words.data(), &pointers.first, sizeof(void*));
        std::memcpy(&words[4], &pointers.second, sizeof(void*));
        words[3] = words[14] = 17;
        words[c.word] = c.value;
        void* handle = nullptr;
        EXPECT_EQ(c.expected, kelpc_initialize(&handle, &words[4])) << c.word << " " << name;
        EXPECT_EQ(handle != nullptr ? KELP_OK : KELP_INVALID_ARGUMENT, kelpc_destroy(handle));
    }
}

int submit(const std::string& argument) {
    return tavrisk_raise_event("HMC0002", "", {argument}, 2);
}

tavrisk::zel::Connection database() {
    return {zelPath, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE};
}

std::string query(const std::string& columns) {
    return database().queryText(
        ("SELECT " + columns + " FROM entries ORDER BY sequence DESC").c_str());
}

class Mosslink : public testing::Test {
protected:
    Mosslink() { emptyDirectoryOf(zelPath); }
};

TEST_F(Mosslink, AnAcceptedEntrySurvivesTheProcess) {
    EXPECT_EQ(SIGKILL, statusOfChild([] { submit("a") == 0 ? std::raise(SIGKILL) : 0; }));
    EXPECT_EQ("1 HMC0002 2 [\"a\"] 1",
              query("format('%d %s %d %s %d', sequence, message_id, severity, arguments,"
                    " abs(julianday() - julianday(time)) < 0.01)"));
}

/** Each thread submits its name, of two characters, with a digit that rises. */
void submitFromThreads(char process) {
    std::vector<std::jthread> threads(30);
    for (auto& thread : threads) {
        const std::string name{process, static_cast<char>('A' + (&thread - threads.data()))};
        thread = std::jthread{[name] {
            for (const auto* step : {"1", "2", "3", "4", "5", "6"}) {
                submit(name + step);
            }
        }};
    }
}

TEST_F(Mosslink, ThreadsAndProcessesLoseNoEntryAndKeepTheirOrder) {
    for (const char process : {'A', 'B', 'C'}) {
        if (fork() == 0) {
            alarm(60); // ends processes that lock each other out
            submitFromThreads(process);
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
    EXPECT_EQ("540 540 540", query("format('%d %d %d', count(*), max(sequence),"
                                   " count(DISTINCT arguments))"));
    EXPECT_EQ("0", query("(SELECT count(*) FROM entries a JOIN entries b"
                         " ON substr(a.arguments, 1, 4) = substr(b.arguments, 1, 4)"
                         " AND a.sequence < b.sequence AND a.arguments > b.arguments)"));
}

TEST_F(Mosslink, DropsTheOldestEntriesBeyondTheCapAndCountsThem) {
    const auto cap = std::to_string(tavrisk::platform::zelMaxEntries);
    submit("first");
    database().execute(
        ("WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE i < " + cap +
         ") INSERT INTO entries SELECT i, '', '', 1, '[]' FROM n")
            .c_str());
    submit("second");
    submit("third");
    EXPECT_EQ(cap + " 3 2",
              query("format('%d %d %d', count(*), min(sequence), (SELECT dropped FROM state))"));
}

TEST_F(Mosslink, PacksWithinTheCapacityItIsGiven) {
    std::string text = "GPU0";
    std::array<char*, 2> arguments{text.data(), text.data() + 4}; // the second is empty
    for (std::uint32_t capacity = 0; capacity < 8; ++capacity) {
        std::string buffer(10, '#');
        std::uint32_t length = capacity;
        EXPECT_EQ(capacity < 6 ? MOSSLINK_BUFFER_TOO_SMALL : MOSSLINK_OK,
                  MOSSLINKBuildMsgArgsBuffer(arguments.data(), 2, buffer.data(), &length));
        EXPECT_EQ(std::string::npos, buffer.find_first_not_of('#', length));
    }
}

TEST_F(Mosslink, KeepsAnyBytesAsValidJson) {
    const std::string good = "\"\\\n\x1b\x7f caf\xc3\xa9 \xf0\x9f\x92\xa5";
    EXPECT_EQ(0, submit(good + "\xff \xc0\xaf \xed\xa0\x80 \xc3"));
    EXPECT_EQ(good + "\ufffd \ufffd\ufffd \ufffd\ufffd\ufffd \ufffd", query("arguments ->> 0"));
}

TEST_F(Mosslink, RefusesADatabaseThatIsNotItsOwnAndLeavesItAsItIs) {
    const std::vector<std::pair<std::string, int>> cases{
        {"PRAGMA user_version = 3; CREATE TABLE entries (a)", MOSSLINK_DATABASE_NEWER},
        {"CREATE TABLE entries (a)", MOSSLINK_DATABASE_DAMAGED},               // no layout of ours
        {"PRAGMA user_version = 2; CREATE TABLE a AS SELECT randomblob(9000)", // to be cut below
         MOSSLINK_DATABASE_DAMAGED},
    };
    for (const auto& [sql, result] : cases) {
        emptyDirectoryOf(zelPath);
        database().execute(sql.c_str());
        std::filesystem::resize_file(zelPath, 8192);
        const auto before = contents(zelPath);
        EXPECT_EQ(result, submit("GPU0")) << sql;
        EXPECT_EQ(before, contents(zelPath)) << sql;
    }
}

TEST_F(Mosslink, FollowsThePathToAnotherDatabaseAndBringsItUpToDate) {
    EXPECT_EQ(0, submit("old"));
    database().execute("DROP TABLE state; PRAGMA user_version = 1; PRAGMA wal_checkpoint");
    std::filesystem::copy_file(zelPath, zelPath + ".copy");
    std::filesystem::rename(zelPath + ".copy", zelPath);
    EXPECT_EQ(0, submit("new"));
    EXPECT_EQ("[\"old\"],[\"new\"] 0", query("group_concat(arguments) || ' ' ||"
                                             " (SELECT dropped FROM state)"));
}

void log(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    whelk_vprintf(5, 349, format, arguments);
    va_end(arguments);
}

TEST(Whelk, WritesOneHarmlessLinePerMessage) {
    emptyDirectoryOf(debugLogPath);
    log("two\nlines, \x1b[31mred, \xc2\x9b, \xff, %s\n", "caf\xc3\xa9");
    log("%s", std::string(100'000, 'x').c_str());
    const std::regex lines{R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z 5 349 \d+/\d+ )"
                           R"(two\\nlines, \\x1b\[31mred, \\xc2\\x9b, \\xff, caf\xc3\xa9\n)"
                           R"(\d\S+Z 5 349 \d+/\d+ x{4095}\.\.\.\n)"};
    EXPECT_TRUE(std::regex_match(contents(debugLogPath), lines)) << contents(debugLogPath);
}

TEST(Whelk, NeitherHoldsUpAForkedChildNorExceedsTheFilesSize) {
    emptyDirectoryOf(debugLogPath);
    std::vector<std::jthread> threads(2);
    for (auto& thread : threads) {
        thread = std::jthread{[](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                log("%4000s", "");
            }
        }};
    }
    int failures = 0;
    for (int i = 0; i < 100; ++i) {
        failures += statusOfChild([] { log("child"); }) != 0 ? 1 : 0;
    }
    EXPECT_EQ(0, failures);
    threads.clear();
    // A line on its way while the file is renamed still goes into it.
    constexpr auto limit = tavrisk::platform::debugLogMaxBytes + 20'000;
    EXPECT_LE(contents(debugLogPath).size(), limit);
    EXPECT_LE(contents(debugLogPath + ".1").size(), limit);
}

} // namespace
