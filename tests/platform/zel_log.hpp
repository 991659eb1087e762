// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/events/submission.hpp"
#include "platform/config.hpp"
#include "tests/world.hpp"
#include "zel/sqlite.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

inline const std::string zelPath = tavrisk::platform::zelPath;

/** Empties the directory of a compiled-in path. Only in the private root of scripts/world: on a
 *  real system that would be the system's own log. */
inline void emptyDirectoryOf(const std::filesystem::path& file) {
    if (std::filesystem::exists("/var/lib/dpkg")) {
        std::abort();
    }
    std::filesystem::remove_all(file.parent_path());
    std::filesystem::create_directories(file.parent_path());
}

inline int submit(const std::string& argument) {
    return tavrisk_raise_event("HMC0002", "", {argument}, 2);
}

inline tavrisk::zel::Connection database() {
    return {zelPath, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE};
}

template <typename Body>
int statusOfChild(Body body) {
    if (fork() == 0) {
        alarm(60); // ends a child that hangs
        body();
        _exit(0);
    }
    int status = -1;
    wait(&status);
    return status;
}

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

/** That each of these is in the log once, or was dropped to stay below the cap, after whatever
 *  waits has been taken in. */
inline void expectInLog(const Lines& accepted) {
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
    const auto dropped = log.queryInteger("SELECT coalesce(sum(dropped), 0) FROM totals");
    EXPECT_LE(accepted.size(), once + static_cast<std::size_t>(dropped));
    EXPECT_EQ("ok", log.queryText("PRAGMA integrity_check"));
    EXPECT_EQ(0, log.queryInteger("SELECT max(seq) - gone - (SELECT count(*) FROM entries)"
                                  " FROM state, sqlite_sequence"));
}

/** With an empty log at its beginning. */
class MosslinkTest : public testing::Test {
protected:
    MosslinkTest() { beginAnew(); }

    /** Another database that has nothing in it: a log that was just removed would be put back. */
    static void beginAnew() {
        emptyDirectoryOf(zelPath);
        database().execute("CREATE TABLE a (b); DROP TABLE a");
    }
};
