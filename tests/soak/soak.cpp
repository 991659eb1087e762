// SPDX-License-Identifier: Apache-2.0
#include "tests/world.hpp"

#include <sqlite3.h>

#include <sys/mount.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <sstream>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Half an hour under fire: floods from four connections while the daemon is killed, its places
// fill, and its syslog and event log are held up. What it says goes into one table.

namespace {

constexpr auto name = "com.vorn.bmc.tavrisk";
constexpr auto path = "/com/vorn/bmc/tavrisk";
constexpr auto eventLog = "/var/lib/tavrisk/zel.db";
constexpr auto submissions = "/run/submitted"; // those that the event log said it has

double seconds(Clock::duration time) {
    return std::chrono::duration<double>(time).count();
}

/** A number of /proc/PID/status. */
long statusOf(pid_t process, const std::string& field) {
    std::ifstream file{"/proc/" + std::to_string(process) + "/status"};
    for (std::string word; file >> word;) {
        if (long value = 0; word == field + ":" && file >> value) {
            return value;
        }
    }
    return 0;
}

long descriptorsOf(pid_t process) {
    std::error_code gone;
    return std::distance(fs::directory_iterator{"/proc/" + std::to_string(process) + "/fd", gone},
                         {});
}

class Soak : public World {
protected:
    Soak() {
        for (const auto* directory : {"/run/hmc", "/mmc1"}) {
            EXPECT_EQ(mount("tmpfs", directory, "tmpfs", 0, "size=32m"), 0);
        }
        for (const auto* directory : {"/run/hmc/dump", "/run/hmc/rawCPER", "/mmc1/hmc"}) {
            fs::create_directories(directory);
        }
        fs::copy(std::getenv("TAVRISK_RETENTION"), "/app/bin/wuxRetensionChk.sh");
    }
    ~Soak() override {
        daemon.reset();
        umount2("/run/hmc", MNT_DETACH);
        umount2("/mmc1", MNT_DETACH);
    }

    void fire(std::chrono::minutes time);
    void settle();
    void print();

    long submittedAndMissing = 0;
    std::array<long, 3> files{}; // Whole, short, wrong.

private:
    struct Call {
        Soak* soak;
        std::string device; // Of an event.
        Clock::time_point sent;
        bool other;
    };

    void serve();
    void killInTime();
    void round();
    void flood();
    void send(std::size_t connection, const std::string& method, const std::string& text,
              const Bytes& data, const std::string& device);
    void askAsAnotherPeer();
    void process();
    void drain();
    void disturb();
    void look();
    void lookAtFiles();
    void readBack();
    static void holdEventLog();
    static int onReply(sd_bus_message* reply, void* context, sd_bus_error*);

    bool chance(int oneIn) { return std::uniform_int_distribution{1, oneIn}(random_) == 1; }

    std::mt19937 random_{std::random_device{}()};
    std::array<Peer, 4> senders_;
    Peer other_;
    std::map<std::string, Bytes> sent_; // By the file's name, without its time.
    std::map<std::string, long> replies_, fires_;
    std::map<std::string, long> accepted_; // Devices, and how often they are in the event log.
    std::vector<std::jthread> holders_;
    long calls_ = 0, number_ = 0, pending_ = 0, restarts_ = 0, missing_ = 0, twice_ = 0;
    bool otherAsks_ = false;
    Clock::time_point killAt_ = Clock::time_point::max();
    Clock::duration longestStart_{}, longestWait_{};
    long peakMemory_ = 0, peakThreads_ = 0, peakDescriptors_ = 0;
};

void Soak::serve() {
    const auto began = Clock::now();
    ASSERT_NO_FATAL_FAILURE(startDaemon());
    longestStart_ = std::max(longestStart_, Clock::now() - began);
    other_.set("RetentionIntervalInMinutes", std::uint8_t{1});
    other_.set("RetentionSizeInMB", std::uint8_t{4});
}

int Soak::onReply(sd_bus_message* reply, void* context, sd_bus_error*) {
    const std::unique_ptr<Call> call{static_cast<Call*>(context)};
    auto& soak = *call->soak;
    if (call->other) {
        soak.otherAsks_ = false;
        if (sd_bus_message_is_method_error(reply, nullptr) == 0) {
            soak.longestWait_ = std::max(soak.longestWait_, Clock::now() - call->sent);
        }
        return 0;
    }
    --soak.pending_;
    std::int32_t result = -1;
    if (sd_bus_message_is_method_error(reply, nullptr) != 0) {
        ++soak.replies_["none"];
    } else if (sd_bus_message_read_basic(reply, 'i', &result) >= 0) {
        ++soak.replies_[std::to_string(result)];
    }
    if (result == 0 && !call->device.empty()) {
        soak.accepted_.emplace(call->device, 0);
    }
    return 0;
}

void Soak::send(std::size_t connection, const std::string& method, const std::string& text,
                const Bytes& data, const std::string& device) {
    auto* const bus = senders_.at(connection).bus();
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(bus, &message, name, path, name, method.c_str());
    if (method != "SaveAndClearCache") {
        sd_bus_message_append_basic(message, 's', text.c_str());
        sd_bus_message_append_array(message, 'y', data.data(), data.size());
    }
    auto call = std::make_unique<Call>(Call{this, device, Clock::now(), false});
    if (sd_bus_call_async(bus, nullptr, message, onReply, call.get(), 120'000'000) >= 0) {
        [[maybe_unused]] const auto* const withReply = call.release();
        ++calls_;
        ++pending_;
    }
    sd_bus_message_unref(message);
}

void Soak::askAsAnotherPeer() {
    if (otherAsks_) {
        return;
    }
    auto call = std::make_unique<Call>(Call{this, {}, Clock::now(), true});
    if (sd_bus_call_method_async(other_.bus(), nullptr, name, path,
                                 "org.freedesktop.DBus.Properties", "Get", onReply, call.get(),
                                 "ss", name, "RetentionSizeInMB") >= 0) {
        [[maybe_unused]] const auto* const withReply = call.release();
        otherAsks_ = true;
    }
}

void Soak::killInTime() {
    if (Clock::now() >= killAt_) {
        killAt_ = Clock::time_point::max();
        daemon->kill(SIGKILL);
        daemon->wait();
        ++restarts_;
        serve();
    }
}

void Soak::process() {
    killInTime();
    askAsAnotherPeer();
    for (auto& sender : senders_) {
        sender.process();
    }
    other_.process();
    look();
    usleep(1'000);
}

void Soak::drain() {
    const auto deadline = Clock::now() + 3min;
    while (pending_ > 0 && Clock::now() < deadline) {
        process();
    }
    EXPECT_EQ(pending_, 0) << "calls that were never answered";
}

void Soak::look() {
    peakMemory_ = std::max(peakMemory_, statusOf(daemon->pid(), "VmHWM"));
    peakThreads_ = std::max(peakThreads_, statusOf(daemon->pid(), "Threads"));
    if (chance(20)) {
        peakDescriptors_ = std::max(peakDescriptors_, descriptorsOf(daemon->pid()));
    }
}

void Soak::flood() {
    const auto cper = bytes(
        readFile(std::getenv("TAVRISK_SOURCE") + std::string{"/samples/cper/memory-error.cper"}));
    for (int burst = 0; burst < 40; ++burst) {
        for (std::size_t connection = 0; connection < senders_.size(); ++connection) {
            const auto device = "S" + std::to_string(++number_);
            const auto event = bytes(
                R"({"EventType":"Event","Severity":"Warning","MessageArgs":[")" + device +
                R"("],"Fill":")" + std::string(std::size_t{1} << (number_ % 16), 'x') + "\"}");
            const auto key = digest(event);
            sent_[key] = event;
            send(connection, "Log", key, event, device);
            if (chance(5)) {
                sent_[device] = event;
                send(connection, "Save", device, event, {});
            }
            if (chance(10)) {
                sent_[digest(cper)] = cper;
                send(connection, "CPERlog", digest(cper), cper, {});
            }
            if (chance(20)) {
                send(connection, "Log", "wrong", event, {});
            }
        }
        if (chance(10)) {
            other_.set("SystemLEDSetting", "s", chance(2) ? "Enabled" : "Disabled");
        }
        process();
    }
}

/** For three seconds, as a backup would. */
void Soak::holdEventLog() {
    sqlite3* database = nullptr;
    if (sqlite3_open_v2(eventLog, &database, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(database, 1000);
        if (sqlite3_exec(database, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) == SQLITE_OK) {
            usleep(3'000'000);
            sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr);
        }
    }
    sqlite3_close(database);
}

void Soak::disturb() {
    const std::vector<std::pair<const char*, std::function<void()>>> kinds{
        {"killed",
         [this] {
             // In the midst of the calls that follow.
             killAt_ = Clock::now() + 1ms * std::uniform_int_distribution{1, 300}(random_);
         }},
        {"syslog stalled", [this] { stallSyslog(); }},
        {"syslog slow", [this] { slowSyslog(10ms); }},
        {"event log held", [this] { holders_.emplace_back(holdEventLog); }},
        {"tree full", [] { writeFile("/run/hmc/.ballast", std::string(32 << 20, 'b')); }},
        {"store full", [] { writeFile("/mmc1/ballast", std::string(32 << 20, 'b')); }},
        {"saved", [this] { send(0, "SaveAndClearCache", {}, {}, {}); }},
        {"left alone", [] {}},
    };
    const auto which = std::uniform_int_distribution<std::size_t>{0, kinds.size() - 1}(random_);
    ++fires_[kinds[which].first];
    kinds[which].second();
}

void Soak::round() {
    disturb();
    flood();
    if (chance(2)) {
        disturb();
        flood();
    }
    unstallSyslog();
    fs::remove("/run/hmc/.ballast");
    fs::remove("/mmc1/ballast");
    drain();
    lookAtFiles();
    holders_.clear();
    for (const auto until = Clock::now() + 1s; Clock::now() < until;) {
        process();
    }
}

void Soak::fire(std::chrono::minutes time) {
    ASSERT_NO_FATAL_FAILURE(serve());
    const auto until = Clock::now() + time;
    while (Clock::now() < until && !HasFatalFailure()) {
        round();
        forgetSyslog();
    }
}

/** While no call is being served: what is in the tree is all that will be of it. */
void Soak::lookAtFiles() {
    for (const auto* directory : {"/run/hmc", "/run/hmc/dump", "/run/hmc/rawCPER"}) {
        for (const auto& entry : fs::directory_iterator{directory}) {
            const auto found = sent_.find(entry.path().stem());
            std::error_code gone; // The retention script is at work too.
            if (!entry.is_regular_file(gone)) {
                continue;
            }
            if (found == sent_.end()) {
                ++files[2];
                continue;
            }
            const auto content = bytes(readFile(entry.path()));
            if (!fs::remove(entry.path(), gone)) {
                continue;
            }
            const bool begins = content.size() <= found->second.size() &&
                                std::equal(content.begin(), content.end(), found->second.begin());
            ++files.at(!begins ? 2 : content.size() < found->second.size() ? 1 : 0);
        }
    }
    sent_.clear();
}

void Soak::readBack() {
    sqlite3* database = nullptr;
    sqlite3_stmt* row = nullptr;
    std::map<std::string, long> inLog;
    EXPECT_EQ(sqlite3_open_v2(eventLog, &database, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
    EXPECT_EQ(sqlite3_prepare_v2(database, "SELECT json_extract(arguments, '$[0]') FROM entries",
                                 -1, &row, nullptr),
              SQLITE_OK);
    while (sqlite3_step(row) == SQLITE_ROW) {
        ++inLog[reinterpret_cast<const char*>(sqlite3_column_text(row, 0))];
    }
    sqlite3_finalize(row);
    sqlite3_close(database);
    for (auto& [device, count] : accepted_) {
        count = inLog[device];
        missing_ += count == 0 ? 1 : 0;
        twice_ += count > 1 ? 1 : 0;
    }
    std::ifstream submitted{submissions};
    for (std::string device; std::getline(submitted, device);) {
        submittedAndMissing += inLog[device] == 0 ? 1 : 0;
    }
}

void Soak::settle() {
    drain();
    // Entries that wait beside an event log which was held come in with the next.
    const auto last = bytes(R"({"EventType":"Event","Severity":"Warning","MessageArgs":["last"]})");
    EXPECT_EQ(other_.call("Log", digest(last), last), 0);
    EXPECT_TRUE(eventually([] { return readFile(submissions).ends_with("last\n"); }));
    EXPECT_TRUE(eventually([this] { return statusOf(daemon->pid(), "Threads") <= 3; }));
    readBack();
}

void Soak::print() {
    std::ostringstream fires, replies;
    for (const auto& [kind, times] : fires_) {
        fires << kind << " " << times << ", ";
    }
    for (const auto& [value, times] : replies_) {
        replies << value << ": " << times << ", ";
    }
    const auto once = static_cast<long>(accepted_.size()) - missing_ - twice_;
    std::cout << "rounds of fire                         " << fires.str() << "\n"
              << "calls                                  " << calls_ << "\n"
              << "replies by value                       " << replies.str() << "\n"
              << "events accepted                        " << accepted_.size() << "\n"
              << "  in the event log once/missing/twice  " << once << " / " << missing_ << " / "
              << twice_ << "\n"
              << "submission returned, and missing (0)   " << submittedAndMissing << "\n"
              << "files whole/short/wrong (0)            " << files[0] << " / " << files[1] << " / "
              << files[2] << "\n"
              << "memory, peak and final (KiB)           " << peakMemory_ << " / "
              << statusOf(daemon->pid(), "VmRSS") << "\n"
              << "threads, peak and final                " << peakThreads_ << " / "
              << statusOf(daemon->pid(), "Threads") << "\n"
              << "descriptors, peak and final            " << peakDescriptors_ << " / "
              << descriptorsOf(daemon->pid()) << "\n"
              << "restarts                               " << restarts_ << "\n"
              << "longest time to serve again (s)        " << seconds(longestStart_) << "\n"
              << "longest wait of another peer (s)       " << seconds(longestWait_) << "\n";
}

TEST_F(Soak, LosesAndSpoilsNothing) {
    ASSERT_NO_FATAL_FAILURE(fire(std::chrono::minutes{std::atol(std::getenv("TAVRISK_MINUTES"))}));
    settle();
    print();
    EXPECT_EQ(submittedAndMissing, 0);
    EXPECT_EQ(files[2], 0);
}

} // namespace
