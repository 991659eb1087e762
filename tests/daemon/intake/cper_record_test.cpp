// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

using LogServiceEntry = World;

const std::string directory = "/var/run/hmc/rawCPER/";

Bytes sample(const std::string& name) {
    return bytes(readFile(std::getenv("TAVRISK_SOURCE") + ("/samples/cper/" + name + ".cper")));
}

TEST_F(LogServiceEntry, KeepsTheRecordAsItCame) {
    startDaemon();
    const auto record = sample("memory-error-four-bytes-ahead");
    // All of a validation string goes into the name, what is beyond the digest too.
    const auto name = digest(record) + "-x";
    const auto file = directory + name + ".11_15_2026_122530";
    writeFile(file, std::string(1000, 'x'));
    EXPECT_EQ(Peer{}.call("CPERlog", name, record), 0);
    EXPECT_EQ(bytes(readFile(file)), record);
    struct stat status {};
    stat(file.c_str(), &status);
    EXPECT_EQ(status.st_mode & 07777U, 0774U);
}

TEST_F(LogServiceEntry, TellsASummaryThatIsOkAtInformationalLevel) {
    startDaemon();
    const auto record = sample("no-sections");
    EXPECT_EQ(Peer{}.call("CPERlog", digest(record), record), 0);
    EXPECT_TRUE(eventually([&] {
        return ::testing::Value(syslog(), Contains(HasSubstr("30 tavrisk: createLogServiceEntry: "
                                                             "received CPER: (summary)  {")));
    }));
}

TEST_F(LogServiceEntry, ReportsTheEventWithoutAFile) {
    startDaemon();
    Peer peer;
    const auto record = sample("pcie-error");
    const auto name = digest(record);
    const auto tooLong = name + std::string(128, 'x');
    EXPECT_EQ(peer.call("CPERlog", tooLong, record), 0);
    std::filesystem::remove(directory);
    EXPECT_EQ(peer.call("CPERlog", name, record), 0);
    std::filesystem::create_directory(directory);
    ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=4k"), 0);
    writeFile(directory + "filler", std::string(4096, 'x'));
    EXPECT_EQ(peer.call("CPERlog", name, record), 0);
    EXPECT_TRUE(waitForRecorded("submit 66 1 2 HMC0002", 3));
    umount2(directory.c_str(), MNT_DETACH); // Somebody may be at work in there.
    const std::string failed = "log 3 349 createLogServiceEntry: Failed ";
    const std::string stamp = ".07_02_2026_030841";
    EXPECT_THAT(recordedWith("createLogServiceEntry: Failed"),
                ElementsAre(failed + "opening data file: " + directory + tooLong + stamp,
                            failed + "opening data file: " + directory + name + stamp,
                            failed + "writing data file: " + directory + name + stamp));
}

TEST_F(LogServiceEntry, LeavesTheCallUnansweredWhenTheWorkerCannotBeStarted) {
    startDaemon();
    const auto record = sample("default-type");
    fail("pthread_create", EAGAIN);
    Peer peer;
    EXPECT_EQ(peer.call("CPERlog", digest(record), record), std::nullopt);
    EXPECT_EQ(peer.error, SD_BUS_ERROR_TIMEOUT) << "a reply";
    fail("pthread_create", 0);
    EXPECT_EQ(peer.call("CPERlog", digest(record), record), 0);
    EXPECT_EQ(recordedWith("failed processing messages").size(), 1U);
}

} // namespace
