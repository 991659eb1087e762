// SPDX-License-Identifier: Apache-2.0
#include "contract/platform/kelp.h"
#include "contract/platform/mosslink.h"
#include "contract/platform/whelk.h"
#include "daemon/events/submission.hpp"
#include "platform/config.hpp"
#include "platform/kelp/kelp_errors.h"
#include "platform/mosslink/mosslink_errors.h"
#include "tests/world.hpp"
#include "zel/sqlite.hpp"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>

namespace {

std::atomic<int> syncs{0};
void (*beforeLock)() = nullptr;

} // namespace

// In the place of the C library's, for the libraries too.
extern "C" {

int fdatasync(int file) { // NOLINT(*-inconsistent-declaration-parameter-name)
    ++syncs;
    return static_cast<int>(syscall(SYS_fdatasync, file));
}

int flock(int file, int operation) {
    if (beforeLock != nullptr) {
        beforeLock();
    }
    return static_cast<int>(syscall(SYS_flock, file, operation));
}
}

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
    // A 32-bit word (of the client below 4, else of the block), its value, and the client's name.
    const std::vector<std::tuple<KelpError, std::size_t, std::uint32_t, std::string>> cases{
        {KELP_OK, 2, 0, std::string(63, 'n')}, {KELP_BAD_CLIENT_NAME, 2, 0, std::string(64, 'n')},
        {KELP_BAD_CLIENT_NAME, 2, 0, ""},      {KELP_BAD_RESERVED, 2, 1, "n"},
        {KELP_BAD_VERSION, 3, 16, "n"},        {KELP_BAD_RESERVED, 6, 1, "n"},
        {KELP_BAD_VERSION, 14, 18, "n"},       {KELP_BAD_RESERVED, 29, 1, "n"}};
    for (const auto& [expected, word, value, name] : cases) {
        SCOPED_TRACE(std::to_string(word) + " " + std::to_string(value) + " " + name);
        std::vector<std::uint32_t> words(4 + 26);
        std::memcpy(words.data(), std::array{name.c_str()}.data(), sizeof(void*));
        std::memcpy(&words[4], std::array{words.data()}.data(), sizeof(void*));
        words[3] = words[14] = 17;
        words[word] = value;
        void* handle = nullptr;
        EXPECT_EQ(expected, kelpc_initialize(&handle, &words[4])) << word << name;
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
    submit("b");
    const int before = syncs;
    submit("c");
    EXPECT_GT(syncs, before) << "and the loss of power";
}

void submitFromThreads() {
    for (auto& thread : std::vector<std::jthread>(30)) {
        thread = std::jthread{[] {
            for (int i = 0; i < 6; ++i) {
                submit(std::to_string(gettid()) + "." + std::to_string(i));
            }
        }};
    }
}

TEST_F(Mosslink, ThreadsAndProcessesLoseNoEntryAndKeepTheirOrder) {
    for (int process = 0; process < 3; ++process) {
        if (fork() == 0) {
            alarm(60); // ends processes that lock each other out
            submitFromThreads();
            _exit(0);
        }
    }
    while (wait(nullptr) > 0) {
    }
    EXPECT_EQ("540 540 540",
              query("format('%d %d %d', count(*), max(sequence), count(DISTINCT arguments))"));
    EXPECT_EQ("0", query("(SELECT count(*) FROM entries a JOIN entries b"
                         " ON CAST(a.arguments ->> 0 AS INT) = CAST(b.arguments ->> 0 AS INT)"
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
        {"CREATE TABLE entries (a)", MOSSLINK_DATABASE_DAMAGED}, // no layout of ours
        {"PRAGMA user_version = 2; CREATE TABLE state (dropped, last_clear); CREATE TABLE entries"
         " (sequence INTEGER PRIMARY KEY AUTOINCREMENT, time, message_id, severity, arguments);"
         "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET rootpage = 2", // of all tables
         MOSSLINK_DATABASE_DAMAGED},
    };
    for (const auto& [sql, result] : cases) {
        SCOPED_TRACE(sql);
        emptyDirectoryOf(zelPath);
        database().execute(sql.c_str());
        const auto before = readFile(zelPath);
        EXPECT_EQ(result, submit("GPU0")) << sql;
        EXPECT_EQ(before, readFile(zelPath)) << sql;
    }
}

TEST_F(Mosslink, TellsEveryoneOfABatchThatItWasRefused) {
    const auto holder = database();
    holder.execute("CREATE TABLE entries (a); BEGIN EXCLUSIVE");
    std::atomic<int> refused{0};
    {
        std::vector<std::jthread> threads(30);
        for (auto& thread : threads) {
            thread = std::jthread{
                [&refused] { refused += submit("a") == MOSSLINK_DATABASE_DAMAGED ? 1 : 0; }};
        }
        usleep(200'000); // One is waiting for the database, and all others for that one.
        holder.execute("COMMIT");
    }
    EXPECT_EQ(30, refused);
}

TEST_F(Mosslink, SaysThatTheDiskIsFullUntilItIsNot) {
    const auto directory = std::filesystem::path{zelPath}.parent_path();
    ASSERT_EQ(0, mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=1m"));
    EXPECT_EQ(0, submit("before"));
    writeFile(directory / "filler", std::string(1 << 20, 'x'));
    EXPECT_EQ(MOSSLINK_NO_SPACE, submit("lost"));
    std::filesystem::remove(directory / "filler");
    EXPECT_EQ(0, submit("after"));
    EXPECT_EQ("[\"before\"],[\"after\"]", query("group_concat(arguments)"));
    umount2(directory.c_str(), MNT_DETACH);
}

TEST_F(Mosslink, LooksAtADatabaseAnewAfterAFailure) {
    EXPECT_EQ(0, submit("a"));
    database().execute("ALTER TABLE entries RENAME TO other");
    EXPECT_EQ(MOSSLINK_INTERNAL, submit("b"));
    EXPECT_EQ(MOSSLINK_DATABASE_DAMAGED, submit("c"));
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
    const auto lines = R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z 5 349 \d+/\d+ )"
                       R"(two\\nlines, \\x1b\[31mred, \\xc2\\x9b, \\xff, caf\xc3\xa9\n)"
                       R"(\d\S+Z 5 349 \d+/\d+ x{4095}\.\.\.\n$)";
    EXPECT_TRUE(has(readFile(debugLogPath), lines)) << readFile(debugLogPath);
}

unsigned modeOf(const std::string& file) {
    struct stat status {};
    stat(file.c_str(), &status);
    return status.st_mode & 07777U;
}

TEST(Whelk, KeepsAFullFileBesideAFreshOne) {
    emptyDirectoryOf(debugLogPath);
    umask(0);
    const std::string full(tavrisk::platform::debugLogMaxBytes - 10, 'x');
    writeFile(debugLogPath, full);
    log("first");
    EXPECT_EQ(full, readFile(debugLogPath + ".1"));
    EXPECT_TRUE(readFile(debugLogPath).ends_with(" first\n"));
    EXPECT_EQ(0640U, modeOf(debugLogPath));

    // Another process has found it full as well, and was quicker.
    writeFile(debugLogPath, full);
    beforeLock = [] {
        std::filesystem::rename(debugLogPath, debugLogPath + ".1");
        writeFile(debugLogPath, "theirs\n");
    };
    log("ours");
    beforeLock = nullptr;
    umask(022);
    EXPECT_EQ(full, readFile(debugLogPath + ".1"));
    EXPECT_THAT(readFile(debugLogPath),
                testing::AllOf(testing::StartsWith("theirs\n"), testing::EndsWith(" ours\n")));
}

TEST(Whelk, DoesNotHoldUpAForkedChild) {
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
}

} // namespace
