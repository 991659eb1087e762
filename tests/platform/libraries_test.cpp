// SPDX-License-Identifier: Apache-2.0
#include "contract/platform/kelp.h"
#include "contract/platform/mosslink.h"
#include "contract/platform/whelk.h"
#include "platform/kelp/kelp_errors.h"
#include "platform/mosslink/mosslink_errors.h"
#include "tests/platform/zel_log.hpp"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <fstream>
#include <random>

namespace {

std::atomic<int> syncs{0};
std::atomic<bool> noSharedMaps{false};
void (*beforeLock)() = nullptr;

} // namespace

// In the place of the C library's, for the libraries too.
extern "C" {

int fdatasync(int file) { // NOLINT(*-inconsistent-declaration-parameter-name)
    ++syncs;
    return static_cast<int>(syscall(SYS_fdatasync, file));
}

// NOLINTNEXTLINE(*-inconsistent-declaration-parameter-name)
void* mmap64(void* at, std::size_t size, int access, int flags, int file, off_t offset) {
    if (noSharedMaps && (flags & MAP_SHARED) != 0) {
        errno = ENODEV;
        return MAP_FAILED;
    }
    return reinterpret_cast<void*>(syscall(SYS_mmap, at, size, access, flags, file, offset));
}

int flock(int file, int operation) {
    if (beforeLock != nullptr) {
        beforeLock();
    }
    return static_cast<int>(syscall(SYS_flock, file, operation));
}
}

namespace {

const std::string debugLogPath = tavrisk::platform::debugLogPath;

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

std::string query(const std::string& columns) {
    return database().queryText(
        ("SELECT " + columns + " FROM entries ORDER BY sequence DESC").c_str());
}

class Mosslink : public MosslinkTest {};

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
         ") INSERT INTO entries (sequence, time, message_id, severity, arguments)"
         " SELECT i, '', message_id, severity, arguments FROM n, entries")
            .c_str());
    submit("second");
    submit("third");
    submit("fourth");
    EXPECT_EQ(cap + " 4 3",
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

/** The damaged databases that were set aside. */
std::vector<std::string> setAside() {
    std::vector<std::string> paths;
    for (const auto& file :
         std::filesystem::directory_iterator{std::filesystem::path{zelPath}.parent_path()}) {
        if (has(file.path().string(), R"(\.damaged-\d{8}T\d{6}\.\d{3}Z$)")) {
            paths.push_back(file.path());
        }
    }
    return paths;
}

TEST_F(Mosslink, LeavesANewerDatabaseAsItIsAndSetsAForeignOneAside) {
    const std::vector<std::pair<std::string, int>> cases{
        {"PRAGMA user_version = 4; CREATE TABLE entries (a)", MOSSLINK_DATABASE_NEWER},
        {"CREATE TABLE entries (a)", MOSSLINK_OK}, // no layout of ours
        {"PRAGMA user_version = 2; CREATE TABLE state (dropped, last_clear); CREATE TABLE entries"
         " (sequence INTEGER PRIMARY KEY AUTOINCREMENT, time, message_id, severity, arguments);"
         "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET rootpage = 2", // of all tables
         MOSSLINK_OK},
    };
    for (const auto& [sql, result] : cases) {
        SCOPED_TRACE(sql);
        emptyDirectoryOf(zelPath);
        database().execute(sql.c_str());
        const auto before = readFile(zelPath);
        EXPECT_EQ(result, submit("GPU0"));
        const auto aside = setAside();
        ASSERT_EQ(result == MOSSLINK_OK ? 1U : 0U, aside.size());
        EXPECT_EQ(before, readFile(aside.empty() ? zelPath : aside[0]));
    }
}

TEST_F(Mosslink, TellsEveryoneOfABatchThatItWasRefused) {
    const auto holder = database();
    holder.execute("PRAGMA user_version = 4; BEGIN EXCLUSIVE");
    std::atomic<int> refused{0};
    {
        std::vector<std::jthread> threads(30);
        for (auto& thread : threads) {
            thread = std::jthread{
                [&refused] { refused += submit("a") == MOSSLINK_DATABASE_NEWER ? 1 : 0; }};
        }
        usleep(200'000); // One is waiting for the database, and all others for that one.
        holder.execute("COMMIT");
    }
    EXPECT_EQ(30, refused);
}

TEST_F(Mosslink, SaysThatItsFileSystemHasNoSharedMaps) {
    noSharedMaps = true;
    const int result = submit("lost");
    noSharedMaps = false;
    EXPECT_EQ(MOSSLINK_NO_SHARED_MAPS, result);
}

TEST_F(Mosslink, LooksAtADatabaseAnewAfterAFailure) {
    EXPECT_EQ(0, submit("a"));
    database().execute("ALTER TABLE entries RENAME TO other");
    EXPECT_EQ(0, submit("b"));
    database().execute("PRAGMA user_version = 4; DROP TABLE entries");
    EXPECT_EQ(MOSSLINK_DATABASE_NEWER, submit("c"));
    database().execute("PRAGMA user_version = 3");
    EXPECT_EQ(0, submit("d"));
    EXPECT_EQ("newer 1", database().queryText("SELECT cause || ' ' || events FROM losses"));
}

constexpr auto layout1 =
    "CREATE TABLE entries (sequence INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL,"
    " message_id TEXT NOT NULL, severity INTEGER NOT NULL, arguments TEXT NOT NULL);"
    "PRAGMA user_version = 1;"
    "INSERT INTO entries VALUES (7, '2025-01-01T10:00:00.000Z', 'HMC0001', 1, '[\"old\"]')";

TEST_F(Mosslink, KeepsTotalsBoundedAndKnowsTheBoot) {
    submit("a");
    submit("a");
    EXPECT_EQ("HMC0002 2 a 2", database().queryText("SELECT format('%s %d %s %d', message_id,"
                                                    " severity, device, recorded) FROM totals"));
    std::string boot;
    std::getline(std::ifstream{"/proc/sys/kernel/random/boot_id"}, boot);
    EXPECT_EQ(boot + " 1", query("boot_id || ' ' || (since_boot > 1000 AND since_boot < 1e12)"));
    database().execute("WITH RECURSIVE n(i) AS (SELECT 2 UNION ALL SELECT i + 1 FROM n WHERE"
                       " i < 1000) INSERT INTO totals (message_id, severity, device, recorded)"
                       " SELECT 'HMC0002', 2, i, 1 FROM n");
    submit("b");
    submit("c");
    EXPECT_EQ("1001 2", database().queryText("SELECT count(*) || ' ' || sum(recorded) FILTER"
                                             " (WHERE device = '') FROM totals"));
}

TEST_F(Mosslink, FollowsThePathToAnotherDatabaseAndBringsItUpToDate) {
    EXPECT_EQ(0, submit("elsewhere"));
    tavrisk::zel::Connection{zelPath + ".old", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE}.execute(
        layout1);
    for (const auto* suffix : {"-wal", "-shm"}) {
        std::filesystem::remove(zelPath + suffix);
    }
    std::filesystem::rename(zelPath + ".old", zelPath);
    EXPECT_EQ(0, submit("new"));
    EXPECT_EQ("[\"old\"],[\"new\"] 7,8 0", query("group_concat(arguments) || ' ' ||"
                                                 " group_concat(sequence) || ' ' ||"
                                                 " (SELECT dropped FROM state)"));
}

/** Damages some bytes of a file of pages of entries, and returns where. */
std::string damage(std::mt19937& random) {
    std::string places;
    std::fstream file{zelPath, std::ios::binary | std::ios::in | std::ios::out};
    const auto size = std::filesystem::file_size(zelPath);
    for (auto count = 1 + random() % 8; count > 0; --count) {
        const auto place = random() % size;
        places += std::to_string(place) + " ";
        file.seekp(static_cast<std::streamoff>(place));
        for (auto length = 1 + random() % 64; length > 0; --length) {
            file.put(static_cast<char>(random()));
        }
    }
    return places;
}

/** Damages a log of 10,000 entries again and again, and returns how many were salvaged on average
 *  of those whose damage was noticed. */
std::int64_t damageTimes(int times) {
    submit("0");
    database().execute("DELETE FROM entries; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT"
                       " i + 1 FROM n WHERE i < 9999) INSERT INTO entries (sequence, time,"
                       " message_id, severity, arguments) SELECT i, '2025-01-01T10:00:00.000Z',"
                       " 'HMC0002', 2, format('[\"GPU%d\"]', i) FROM n; PRAGMA wal_checkpoint");
    EXPECT_EQ(0, submit("last")); // reserves the numbers
    database().execute("PRAGMA wal_checkpoint(TRUNCATE)");
    const auto whole = readFile(zelPath);
    const auto numbers = readFile(zelPath + ".numbers");
    std::mt19937 random{1}; // NOLINT(cert-msc51-cpp): the same damages every time
    std::int64_t salvaged = 0;
    std::int64_t noticed = 0;
    for (int time = 0; time < times; ++time) {
        emptyDirectoryOf(zelPath);
        writeFile(zelPath, whole);
        writeFile(zelPath + ".numbers", numbers);
        SCOPED_TRACE(std::to_string(time) + ": " + damage(random));
        if (submit("after") == MOSSLINK_DATABASE_NEWER) { // The version itself was hit.
            continue;
        }
        EXPECT_EQ("ok", database().queryText("PRAGMA integrity_check"));
        EXPECT_EQ("[\"after\"] 1", query("arguments || ' ' || (sequence > 10000)"));
        EXPECT_EQ("0", query("(SELECT count(*) FROM entries WHERE salvaged AND sequence > 10000)"));
        const auto count = database().queryInteger("SELECT count(*) FROM entries WHERE salvaged");
        noticed += setAside().empty() ? 0 : 1;
        salvaged += count;
    }
    EXPECT_GT(noticed, times / 2);
    return salvaged / std::max<std::int64_t>(noticed, 1);
}

TEST_F(Mosslink, SalvagesADamagedLogAndGoesOn) {
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    EXPECT_GT(damageTimes(5), 9000);
    bool told = false;
    for (std::string line(1024, '\0'); recv(log, line.data(), line.size(), MSG_DONTWAIT) > 0;) {
        told = told || has(line, R"(^<10>\S+\[\d+\]: The event log was damaged\. It is now \S+)"
                                 R"(/zel\.db\.damaged-\S+Z; entries taken over: \d{4})");
    }
    EXPECT_TRUE(told);
    close(log);
    std::filesystem::remove("/dev/log");
}

TEST_F(Mosslink, ThoroughSalvageOf200Damages) {
    if (std::getenv("TAVRISK_THOROUGH") == nullptr) {
        GTEST_SKIP();
    }
    const auto average = damageTimes(200);
    RecordProperty("SalvagedOnAverage", std::to_string(average));
    EXPECT_GT(average, 9000);
}

TEST_F(Mosslink, NumbersOnlyRiseWhateverBecomesOfTheDatabase) {
    EXPECT_EQ(0, submit("a"));
    for (const auto* entry : {"b", "c"}) {
        const auto before = database().queryInteger("SELECT max(sequence) FROM entries");
        for (const auto* suffix : {"", "-wal", "-shm"}) {
            std::filesystem::remove(zelPath + suffix);
        }
        if (*entry == 'c') {
            writeFile(zelPath, std::string(8192, 'x'));
        }
        EXPECT_EQ(0, submit(entry));
        EXPECT_GT(database().queryInteger("SELECT max(sequence) FROM entries"), before) << entry;
    }
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
    const auto* const lines = R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z 5 349 \d+/\d+ )"
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
