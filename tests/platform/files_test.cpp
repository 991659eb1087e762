// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/zel_log.hpp"

#include <fcntl.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <set>

namespace {

/** A process of four threads that submit to the event log without a pause, until it is killed. */
class Flood {
public:
    Flood() {
        std::filesystem::remove(acceptedPath);
        pid_ = fork();
        if (pid_ == 0) {
            const int accepted =
                open(acceptedPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            std::vector<std::jthread> threads(4);
            for (auto& thread : threads) {
                thread = std::jthread{submitForEver, accepted};
            }
        }
    }
    ~Flood() { EXPECT_EQ(SIGKILL, kill()); }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

    static Lines accepted() {
        std::ifstream file{acceptedPath};
        return {std::istream_iterator<std::string>{file}, {}};
    }
    static void waitForMore(std::size_t count) {
        count += accepted().size();
        EXPECT_TRUE(eventually([count] { return accepted().size() >= count; }));
    }
    /** The signal that has ended it. */
    int kill() {
        int status = ended_;
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
        }
        pid_ = -1;
        return ended_ = status;
    }

private:
    static inline const std::string acceptedPath = "/run/accepted";

    static void submitForEver(int accepted) {
        for (int i = 0;; ++i) {
            const auto device = std::to_string(gettid()) + "." + std::to_string(i);
            if (submit(device) == 0) {
                dprintf(accepted, "%s\n", device.c_str());
            }
        }
    }

    pid_t pid_;
    int ended_ = 0;
};

/** That each of these is in the log once, after whatever waits has been taken in. */
void expectInLog(const Lines& accepted) {
    EXPECT_EQ(0, statusOfChild([] { _exit(submit("last")); }));
    std::multiset<std::string> devices;
    const auto log = database();
    tavrisk::zel::Statement entries{log, "SELECT arguments ->> 0 FROM entries"};
    while (entries.step()) {
        devices.insert(entries.text(0));
    }
    EXPECT_EQ(1U, devices.count("last"));
    std::size_t once = 0;
    for (const auto& device : accepted) {
        once += devices.count(device) == 1 ? 1 : 0;
    }
    EXPECT_EQ(accepted.size(), once);
    EXPECT_EQ("ok", log.queryText("PRAGMA integrity_check"));
    EXPECT_EQ(0, log.queryInteger("SELECT max(seq) - gone - (SELECT count(*) FROM entries)"
                                  " FROM state, sqlite_sequence"));
}

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
