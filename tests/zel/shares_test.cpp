// SPDX-License-Identifier: Apache-2.0
#include "platform/config.hpp"
#include "tests/world.hpp"
#include "zel/shares.hpp"
#include "zel/store.hpp"

#include <filesystem>

namespace {

TEST(Shares, AChattySensorDropsNoEntriesButItsOwn) {
    const std::string path = tavrisk::platform::zelPath;
    std::filesystem::remove_all(std::filesystem::path{path}.parent_path());
    tavrisk::zel::Store store{path};
    const tavrisk::zel::Connection other{path, SQLITE_OPEN_READWRITE};
    const struct {
        const char* device;
        const char* kept; // of 12; the shares are 6, 4 and 2
        int times;
        std::uint16_t severity;
    } cases[]{
        {"GPU", "1 2 3 4", 4, 1},
        {"Fan", "1 2 3 4 5 6", 2, 2},
        {"Sensor", "1 2 3 4 5 6 51 52 53 54 55 56", 50, 2},
        {"Sensor", "1 2 3 4 5 6 51 52 53 54 56 57", 1, 2}, // 55 is acknowledged by then
        {"Fan", "1 2 3 4 5 6 54 56 57 58 59 60", 3, 3},
        {"CPU", "2 3 4 5 6 56 57 59 60 68 69 70", 10, 1},
    };
    for (const auto& row : cases) {
        const tavrisk::zel::Entry entry{"2025-01-01T10:00:00.000Z", "HMC0001", row.severity,
                                        std::string{"[\""} + row.device + "\"]"};
        for (int i = 0; i < row.times; ++i) {
            store.append({&entry, 1}, 12);
        }
        EXPECT_EQ(other.queryText("SELECT group_concat(sequence, ' ') FROM entries"), row.kept);
        other.execute("UPDATE entries SET acknowledged_at = 'now' WHERE sequence = 55");
    }
    EXPECT_EQ(other.queryText("SELECT format('%d %d %d %d %d', state.dropped, gone, recorded,"
                              " totals.dropped, last_dropped) FROM state, totals"
                              " WHERE device = 'Sensor'"),
              "58 58 51 49 55");
}

} // namespace
