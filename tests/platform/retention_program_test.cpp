// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <sys/mount.h>
#include <sys/resource.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <set>

namespace fs = std::filesystem;
using namespace ::testing;

namespace {

const std::string cache = "/run/hmc/";
const std::string store = "/mmc1/hmc/";

/** The program, with a store on a small file system of its own. */
class RetentionProgram : public World {
protected:
    RetentionProgram() {
        fs::create_directories("/run/at");
        mountStore("size=64k");
    }
    ~RetentionProgram() override { umount2(store.c_str(), MNT_DETACH); }
    RetentionProgram(const RetentionProgram&) = delete;
    RetentionProgram& operator=(const RetentionProgram&) = delete;

    static void mountStore(const char* options) {
        umount2(store.c_str(), MNT_DETACH);
        fs::create_directories(store);
        ASSERT_EQ(mount("tmpfs", store.c_str(), "tmpfs", 0, options), 0);
    }

    static Process start(const std::string& arguments) {
        return Process{{"sh", "-c", "exec $TAVRISK_RETENTION " + arguments + " 2>>/run/output"}};
    }
    /** Status and what it said. */
    static std::string run(const std::string& arguments) {
        fs::remove("/run/output");
        const int status = start(arguments).wait();
        return std::to_string(status) + readFile("/run/output");
    }
    static void shell(const std::string& commands) {
        ASSERT_EQ(std::system(("set -e; cd /run/hmc; " + commands).c_str()), 0) << commands;
    }
    /** Runs the commands as soon as the program makes the call. */
    static void at(const std::string& call, const std::string& commands) {
        writeFile("/run/at/" + call, commands);
    }
    static std::string contents(const std::string& directory) {
        std::set<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator{directory}) {
            if (!entry.is_directory() || entry.path().filename().string().front() == '.') {
                const auto name = entry.path().string().substr(directory.size());
                found.insert(name + "=" + readFile(entry.path()).substr(0, 1));
            }
        }
        std::string text;
        for (const auto& each : found) {
            text += " " + each;
        }
        return text;
    }
};

/** Shell function: file AGE_IN_DAYS KB NAME; the age also is what the file begins with. */
const std::string file = R"sh(
    f() {
        mkdir -p "$(dirname -- "$3")" && printf %s "$1" >"$3" && truncate -s "$2k" -- "$3"
        touch -d "@$((1700000000 - 86400 * $1))" -- "$3"
    }
)sh";

struct Case {
    const char* name;
    const char* setup;
    const char* arguments;
    const char* result; // Status and beginning of what it says.
    const char* left;   // In the store after a save, in the cache otherwise.
};

TEST_F(RetentionProgram, KeepsItsLimits) {
    static constexpr std::array cases{
        Case{"fits", "f 2 1024 a; f 1 1024 b", "/run/hmc/ 2", "0", " a=2 b=1"},
        Case{"oldest first", "f 2 1 a; f 1 2048 b", "/run/hmc/ 2", "0", " b=1"},
        Case{"one byte", "f 2 1024 a; f 1 1025 b", "/run/hmc 1", "0", ""},
        Case{"names", "f 3 512 ./-rf; f 4 512 \"$(printf 'n\\nl')\"; f 2 1024 'x *'; f 1 1 b",
             "/run/hmc 1", "0", " b=1"},
        Case{"nanoseconds", "f 1 1024 b; f 1 1024 a; touch -d @9.2 b; touch -d @9.1 a",
             "/run/hmc 1", "0", " b=1"},
        Case{"others stay", "f 9 9 .o; f 8 9 d/d; ln -s d/d l; f 1 1 b", "/run/hmc 0", "0",
             " .o=9 d/d=8 l=8"},
        Case{"left by a kill", "f 2 1 .removing/a; f 1 1 b; f 3 1 .removing/b", "/run/hmc 1", "0",
             " a=2 b=1"},
        Case{"missing", "f 1 1 a", "/run/none 1", "1", " a=1"},
        Case{"no arguments", "f 1 1 a", "", "2", " a=1"},
        Case{"one", "f 1 1 a", "/run/hmc", "2", " a=1"},
        Case{"no directory", "f 1 1 a", "'' 0", "2", " a=1"},
        Case{"no size", "f 1 1 a", "/run/hmc ''", "2", " a=1"},
        Case{"unit", "f 1 1 a", "/run/hmc 5M", "2", " a=1"},
        Case{"zeros", "f 1 1 a", "/run/hmc 05", "2", " a=1"},
        Case{"huge", "f 1 1 a", "/run/hmc 99999999999999999999", "0", " a=1"},
        Case{"saves", "f 1 1 /mmc1/hmc/a; f 2 1 a; f 3 1 dump/d", "cache", "0", " a=2 dump/d=3"},
        Case{"long name", "f 1 1 $(printf %0255d 0)", "cache", "0", nullptr},
        Case{"cap", "f 0 204798 /mmc1/hmc/a; f 1 1 /mmc1/hmc/b; f 8 1 /mmc1/hmc/c; f 9 1 d",
             "cache", "0", " a=0 b=1 d=9"},
        Case{"room for blocks",
             "for i in 5 6 7; do f 1 1 /mmc1/hmc/$i; head -c 20000 /dev/zero | "
             "tr '\\0' $i >/mmc1/hmc/$i; touch -d @$i /mmc1/hmc/$i; done; yes 1 | head -c 20000 >n",
             "cache", "0", " 6=6 7=7 n=1"},
        Case{"no room", "head -c 99999 /dev/urandom >e; f 2 1 /mmc1/hmc/o", "cache", "1", " o=2"},
        Case{"link", "f 1 1 /mmc1/hmc/dump/d; f 2 1 dump/d; ln -s d dump/l", "cache", "1",
             " dump/d=1"},
        Case{"pipe", "f 2 1 d; mkfifo p", "cache", "1", ""},
        Case{"whole and unfinished",
             "f 2 1 /mmc1/hmc/a; f 1 1 /mmc1/hmc/.saving/1024/a; "
             "f 3 1 /mmc1/hmc/.saving/2048/b",
             "cache", "0", " a=1"},
        Case{"a file in its place", "f 1 1 /mmc1/hmc/a; f 2 2 /mmc1/hmc/.saving; f 3 1 a", "cache",
             "0", " a=3"},
    };
    for (const auto& [name, setup, arguments, result, left] : cases) {
        SCOPED_TRACE(name);
        shell("rm -rf .[!.]* *; mkdir dump rawCPER");
        mountStore("size=64k");
        shell(file + setup);
        const bool saves = std::string{arguments} == "cache";
        EXPECT_THAT(run(arguments), StartsWith(result));
        if (left != nullptr) {
            EXPECT_EQ(contents(saves ? store : cache), left);
        }
    }
}

TEST_F(RetentionProgram, SavesWholeCopiesWithoutFilesWithoutNames) {
    fail("O_TMPFILE", EOPNOTSUPP);
    shell(file + "f 1 1 /mmc1/hmc/a; f 2 1 a; f 3 1 dump/$(printf %0255d 0)");
    EXPECT_EQ(run("cache"), "0");
    EXPECT_THAT(contents(store), StartsWith(" a=2 dump/0"));
}

TEST_F(RetentionProgram, RemovesNothingThatHasComeInPlaceOfAnOldFile) {
    shell(file + "f 9 1 a");
    at("renameat", "cd /run/hmc; echo new >n; mv n a");
    run("/run/hmc 0");
    EXPECT_EQ(readFile(cache + "a"), ""); // The next look has found it, and it is the oldest.
    shell(file + "f 9 1024 a; f 8 512 b");
    at("renameat", "cd /run/hmc; echo new >n; mv n a");
    EXPECT_EQ(run("/run/hmc 1"), "0");
    EXPECT_EQ(readFile(cache + "a"), "new\n");
    EXPECT_EQ(contents(cache), " a=n b=8");
}

TEST_F(RetentionProgram, SavesWhatComesChangesAndGoesMeanwhile) {
    shell(file + "f 9 1 a; f 8 1 b; f 7 1 c");
    at("pwrite", "cd /run/hmc; echo grown >>a; rm b; echo new >n; mv n c; echo late >d");
    EXPECT_EQ(run("cache"), "0");
    EXPECT_EQ(readFile(store + "a"), readFile(cache + "a"));
    EXPECT_EQ(readFile(store + "c") + readFile(store + "d"), "new\nlate\n");
}

TEST_F(RetentionProgram, KeepsTheOldCopiesOfAStoreThatFails) {
    for (const auto* call : {"syncfs", "pwrite"}) {
        shell(file + "f 1 1 /mmc1/hmc/a; f 2 1 a");
        fail(call, EIO);
        EXPECT_THAT(run("cache"), AllOf(StartsWith("1"), HasSubstr("Input/output error")));
        EXPECT_EQ(contents(store), " a=1");
        fail(call, 0);
    }
    ASSERT_EQ(mount(nullptr, store.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_THAT(run("cache"), AllOf(StartsWith("1"), HasSubstr("Read-only file system")));
}

TEST_F(RetentionProgram, MakesRoomInAStoreWithoutInodes) {
    mountStore("size=1m,nr_inodes=20");
    shell(
        "for i in $(seq 99); do true >/mmc1/hmc/o$i || break; done 2>/dev/null; echo 1 >n; echo 2 "
        ">dump/n");
    EXPECT_EQ(run("cache"), "0");
    EXPECT_EQ(readFile(store + "n") + readFile(store + "dump/n"), "1\n2\n");
    shell("for i in $(seq 99); do echo $i >$i; done");
    EXPECT_THAT(run("cache"), AllOf(StartsWith("1"), HasSubstr("0 inodes are free")));
}

TEST_F(RetentionProgram, AnswersInTimeWhateverItsChildDoes) {
    shell("echo 1 >a");
    fail("syncfs", EINPROGRESS);
    fail("kill", 1); // As with a child inside the kernel.
    fail("sigtimedwait", 1);
    EXPECT_THAT(run("cache"), StartsWith("1"));
    fail("syncfs", 0);
    fail("sigtimedwait", 0);
    EXPECT_EQ(run("cache"), "0");
    EXPECT_EQ(contents(store), " a=1");
}

TEST_F(RetentionProgram, SavesOneAfterTheOther) {
    shell("for i in $(seq 9); do echo $i >$i; done");
    auto first = start("cache");
    auto second = start("cache");
    EXPECT_EQ(first.wait() + second.wait(), 0);
    EXPECT_EQ(contents(store), contents(cache));
}

TEST_F(RetentionProgram, RefusesAStoreInTheCachesOwnMemory) {
    umount2(store.c_str(), MNT_DETACH);
    fs::create_directories("/run/hmc-store");
    ASSERT_EQ(mount("/run/hmc-store", store.c_str(), nullptr, MS_BIND, nullptr), 0);
    shell("echo 1 >a");
    EXPECT_THAT(run("cache"), AllOf(StartsWith("1"), HasSubstr("nothing was saved")));
}

/** Kills at random moments, each followed by a clearing: what had a name keeps it. */
void killAndClear(int kills, const std::function<Process()>& startSave,
                  const std::function<void()>& finish) {
    std::mt19937 random{std::random_device{}()};
    std::size_t interrupted = 0;
    for (int i = 0; i < kills; ++i) {
        for (int number = 0; number < 60; ++number) {
            writeFile(cache + "f" + std::to_string(i) + "." + std::to_string(number),
                      std::string(40'000, 'x'));
        }
        auto save = startSave();
        std::this_thread::sleep_for(std::chrono::microseconds{random() % 30'000});
        save.kill(SIGKILL);
        interrupted += save.wait() < 0 ? 1 : 0;
        std::set<std::string> named;
        for (const auto& entry : fs::recursive_directory_iterator{store}) {
            if (entry.is_regular_file()) {
                const auto copied = entry.file_size() == 40'000;
                const bool staged = entry.path().string().find("/.") != std::string::npos;
                EXPECT_TRUE(copied || staged) << entry.path();
                if (copied) {
                    named.insert(entry.path().filename());
                }
            }
        }
        ASSERT_EQ(std::system("find /run/hmc -type f -delete"), 0);
        finish();
        for (const auto& name : named) {
            EXPECT_EQ(fs::file_size(store + name), 40'000) << name;
        }
        ASSERT_EQ(std::system("find /mmc1/hmc -type f -delete"), 0);
    }
    EXPECT_GT(interrupted, kills / 10);
}

TEST_F(RetentionProgram, LosesNothingWhenItIsKilled) {
    mountStore("size=50m");
    killAndClear(
        8, [] { return start("cache"); }, [] { EXPECT_EQ(run("cache"), "0"); });
    fail("O_TMPFILE", EOPNOTSUPP);
    killAndClear(
        8, [] { return start("cache"); }, [] { EXPECT_EQ(run("cache"), "0"); });
}

class ThoroughRetentionProgram : public RetentionProgram {};

TEST_F(ThoroughRetentionProgram, LosesNothingIn200Kills) {
    mountStore("size=50m");
    killAndClear(
        100, [] { return start("cache"); }, [] { EXPECT_EQ(run("cache"), "0"); });
    fail("O_TMPFILE", EOPNOTSUPP);
    killAndClear(
        100, [] { return start("cache"); }, [] { EXPECT_EQ(run("cache"), "0"); });
}

/** Processor time of the children waited for so far, in seconds: what else the machine does is not
 * in it. */
double processorTime() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

TEST_F(ThoroughRetentionProgram, IsQuickWith100000Files) {
    // What one machine does in a second takes another two: the measure is what creating them takes.
    const auto before = processorTime();
    shell("seq 100000 | split -l 1 -a 5");
    const auto created = processorTime();
    // The shim costs more than the program.
    shell("$TAVRISK_RETENTION_ALONE /run/hmc 0");
    const auto removed = processorTime();
    EXPECT_EQ(contents(cache), "");
    if (whyNoMemoryFigures() == nullptr) {
        EXPECT_LT(removed - created, 3 * (created - before));
    }
}

} // namespace
