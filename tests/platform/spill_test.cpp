// SPDX-License-Identifier: Apache-2.0
#include "platform/mosslink/mosslink_errors.h"
#include "tests/platform/zel_log.hpp"
#include "zel/spill.hpp"

#include <sys/mount.h>

namespace {

using tavrisk::zel::Entry;
using tavrisk::zel::Spill;

class MosslinkSpill : public MosslinkTest {
protected:
    /** Has so many entries wait, with devices of that length. */
    static Lines fill(Spill& spill, int count, std::size_t length) {
        Lines devices;
        std::vector<Entry> entries;
        for (int i = 0; i < count; ++i) {
            devices.push_back(std::to_string(i) + std::string(length, 'x'));
            entries.push_back(
                {"2025-01-01T10:00:00.000Z", "HMC0002", 2, "[\"" + devices.back() + "\"]"});
        }
        EXPECT_TRUE(spill.add(entries));
        return devices;
    }
};

TEST_F(MosslinkSpill, IsTakenInOnceWheneverThatIsCutOff) {
    submit("first");
    Spill spill{zelPath};
    auto accepted = fill(spill, 5000, 20);
    const auto log = database();
    for (int round = 0; round < 4; ++round) {
        const auto before = log.queryInteger("SELECT count(*) FROM entries");
        Flood flood;
        while (log.queryInteger("SELECT count(*) FROM entries") == before) {
        }
        flood.kill();
        const auto more = Flood::accepted();
        accepted.insert(accepted.end(), more.begin(), more.end());
    }
    expectInLog(accepted);
}

TEST_F(MosslinkSpill, KeepsWhatALockedLogDoesNotTakeAndCountsWhatHasNoRoom) {
    submit("first");
    Spill spill{zelPath};
    auto accepted = fill(spill, 3700, 1000);
    const auto full = readFile(spill.path()).size();
    int refused = 0;
    {
        const auto holder = database();
        holder.execute("BEGIN IMMEDIATE");
        for (int i = 0; refused < 3 && i < 200; ++i) {
            const auto device = std::to_string(i) + std::string(900, 'y');
            const int result = submit(device);
            refused += result == MOSSLINK_BUSY ? 1 : 0;
            if (result == 0) {
                accepted.push_back(device);
            }
        }
        EXPECT_GT(accepted.size(), 3701U);
        EXPECT_EQ(3, Spill::look(zelPath).losses["busy"]);
        EXPECT_EQ(accepted.size(), Spill::look(zelPath).entries);
    }
    EXPECT_EQ(full, readFile(spill.path()).size());
    expectInLog(accepted);
    EXPECT_EQ("busy 3", database().queryText("SELECT cause || ' ' || events FROM losses"));
    EXPECT_TRUE(spill.isEmpty());
}

TEST_F(MosslinkSpill, IgnoresATornEnd) {
    Spill spill{zelPath};
    auto accepted = fill(spill, 100, 100);
    auto bytes = readFile(spill.path());
    bytes[bytes.rfind("99xxx") + 50] = '?';
    writeFile(spill.path(), bytes);
    accepted.pop_back();
    expectInLog(accepted);
    EXPECT_EQ(100, database().queryInteger("SELECT count(*) FROM entries"));
}

TEST_F(MosslinkSpill, BoundsTheLogUnderAReaderThatStays) {
    submit("first");
    const auto reader = std::make_unique<tavrisk::zel::Connection>(database());
    reader->execute("BEGIN; SELECT * FROM entries");
    Flood flood;
    EXPECT_TRUE(eventually([] { return Spill::look(zelPath).entries > 500; }));
    flood.kill();
    EXPECT_LT(std::filesystem::file_size(zelPath + "-wal"), 17U << 20U);
    reader->execute("COMMIT");
    expectInLog(Flood::accepted());
}

TEST_F(MosslinkSpill, HasRoomOnAFullDiskAndCountsWhatIsBeyond) {
    const auto directory = std::filesystem::path{zelPath}.parent_path();
    ASSERT_EQ(0, mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=16m"));
    // Another one than this process has had open, which it would put back.
    database().execute("CREATE TABLE a (b); DROP TABLE a");
    submit("first");
    writeFile(directory / "filler", std::string(16 << 20, 'x'));
    int accepted = 1;
    for (int i = 0; i < 8000; ++i) {
        accepted += submit(std::to_string(i)) == 0 ? 1 : 0;
    }
    EXPECT_EQ(8001, accepted);
    EXPECT_EQ(8001, database().queryInteger("SELECT count(*) FROM entries"));

    // At its cap, and in large pieces, as well.
    Spill spill{zelPath};
    accepted += static_cast<int>(fill(spill, 3000, 20).size()) + 1;
    EXPECT_EQ(0, submit("with 3000"));
    EXPECT_EQ(0, Spill::look(zelPath).entries);

    int refused = 0;
    accepted += static_cast<int>(fill(spill, 3700, 1000).size());
    for (int i = 0; refused < 3 && i < 2000; ++i) {
        const int result = submit(std::to_string(i) + std::string(1000, 'x'));
        accepted += result == 0 ? 1 : 0;
        refused += result == MOSSLINK_NO_SPACE ? 1 : 0;
    }
    EXPECT_GT(accepted, 14'702);
    EXPECT_EQ(3, Spill::look(zelPath).losses["no space"]);
    std::filesystem::remove(directory / "filler");
    EXPECT_EQ(0, submit("after"));
    EXPECT_EQ(accepted + 1,
              database().queryInteger("SELECT count(*) + dropped FROM entries, state"));
    EXPECT_EQ("no space 3", database().queryText("SELECT cause || ' ' || events FROM losses"));
    umount2(directory.c_str(), MNT_DETACH);
}

/** A forgotten shell that holds the log for a minute, and then a kill. */
TEST_F(MosslinkSpill, ThoroughAMinuteOfALockedLog) {
    if (!thorough()) {
        GTEST_SKIP();
    }
    const auto holder = std::make_unique<tavrisk::zel::Connection>(database());
    Flood flood;
    Flood::waitForMore(100);
    sqlite3_busy_timeout(holder->get(), 10'000);
    holder->execute("BEGIN EXCLUSIVE");
    const auto before = Flood::accepted().size();
    sleep(60);
    EXPECT_GT(Flood::accepted().size(), before + 1000);
    flood.kill();
    holder->execute("COMMIT");
    expectInLog(Flood::accepted());
}

} // namespace
