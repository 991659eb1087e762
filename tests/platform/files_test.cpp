// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/zel_log.hpp"

#include <fcntl.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <set>

namespace {

void overwrite(const std::string& path) {
    writeFile(path, std::string(5000, 'x'));
}
void empty(const std::string& path) {
    writeFile(path, "");
}
void cutShort(const std::string& path) {
    std::filesystem::resize_file(path, 4096);
}
void removeFile(const std::string& path) {
    std::filesystem::remove(path);
}

struct Damage {
    const char* name;
    const char* file;
    void (*done)(const std::string& path);
    bool inFlood = true;
};
const Damage damages[]{
    {"database removed", "", removeFile},
    {"database emptied", "", empty},
    {"database overwritten", "", overwrite},
    {"log removed", "-wal", removeFile},
    {"log emptied", "-wal", empty},
    {"log overwritten", "-wal", overwrite},
    {"index removed", "-shm", removeFile},
    // SQLite has it mapped: one that is too short while it is used ends the process.
    {"index emptied", "-shm", empty, false},
    {"index cut short", "-shm", cutShort, false},
    {"index overwritten", "-shm", overwrite, false},
};

class MosslinkFiles : public MosslinkTest {};

TEST_F(MosslinkFiles, OnesThatAreDamagedInAFloodCostNoEvent) {
    for (const auto& damage : damages) {
        SCOPED_TRACE(damage.name);
        if (!damage.inFlood) {
            continue;
        }
        beginAnew();
        Flood flood;
        Flood::waitForMore(500);
        damage.done(zelPath + damage.file);
        const auto before = std::ssize(Flood::accepted());
        Flood::waitForMore(500);
        flood.kill();
        auto accepted = Flood::accepted();
        if (*damage.file == 0 &&
            damage.done != removeFile) { // What it had is gone, and each thread's last.
            accepted.erase(accepted.begin(), accepted.begin() + before + 4);
        }
        expectInLog(accepted);
    }
}

TEST_F(MosslinkFiles, OnesThatAreDamagedEarlyCostNoEntry) {
    for (const auto& damage : damages) {
        SCOPED_TRACE(damage.name);
        beginAnew();
        Lines accepted;
        for (int i = 0; i < 40; ++i) {
            if (i == 20) {
                damage.done(zelPath + damage.file);
            }
            accepted.push_back(std::to_string(i));
            EXPECT_EQ(0, submit(accepted.back()));
        }
        expectInLog(accepted);
    }
}

} // namespace
