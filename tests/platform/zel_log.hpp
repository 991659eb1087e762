// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/events/submission.hpp"
#include "platform/config.hpp"
#include "tests/world.hpp"
#include "zel/sqlite.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
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
