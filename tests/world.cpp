// SPDX-License-Identifier: Apache-2.0
#include "world.hpp"

#include <openssl/evp.h>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <regex>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr auto busAddress = "unix:path=/run/test-bus";

std::string busConfiguration(const std::string& policy) {
    return std::string{"<busconfig><listen>"} + busAddress + "</listen><auth>EXTERNAL</auth>" +
           policy + R"(<limit name="max_replies_per_connection">50000</limit></busconfig>)";
}

constexpr auto service = "com.vorn.bmc.tavrisk";
constexpr auto path = "/com/vorn/bmc/tavrisk";

/** The words of the retention monitor and its children: "log 5 349 wuxmonitor_thread: ...". */
bool isOfRetention(const std::string& line) {
    if (line.starts_with("sleep ") || line.starts_with("nanosleep ") || line.starts_with("kill ")) {
        return true;
    }
    std::size_t message = 0;
    for (int field = 0; field < 3; ++field) {
        message = std::min(line.find(' ', message), line.size() - 1) + 1;
    }
    const auto text = std::string_view{line}.substr(message);
    return text.starts_with("wuxmonitor_") || text.starts_with("system_call_");
}

bool busIsUp() {
    sd_bus* bus = nullptr;
    const char* name = nullptr;
    const bool up = sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, busAddress) >= 0 &&
                    sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0 &&
                    sd_bus_get_unique_name(bus, &name) >= 0;
    sd_bus_flush_close_unref(bus);
    return up;
}

/** Meson tells its tests what it runs programs of another machine with. */
bool emulated() {
    return std::getenv("MESON_EXE_WRAPPER") != nullptr;
}

/** What is tested; the tests themselves are not always. */
bool sanitized() {
    return std::getenv("TAVRISK_SANITIZED") != nullptr;
}

/** "<PRIORITY>MMM DD hh:mm:ss TAG[PID]: TEXT" as "PRIORITY TAG: TEXT". */
std::string withoutTimeStamp(const std::string& datagram) {
    constexpr auto timeStampLength = std::string_view{"Jan  1 00:00:00 "}.size();
    const auto priorityEnd = datagram.find('>');
    const auto tag = priorityEnd + 1 + timeStampLength;
    const auto pid = datagram.find('[');
    return datagram.substr(1, priorityEnd - 1) + " " + datagram.substr(tag, pid - tag) +
           datagram.substr(datagram.find(']') + 1);
}

} // namespace

const char* whyNoMemoryFigures() {
    return sanitized()  ? "a sanitizer needs most of the memory for itself"
           : emulated() ? "an emulator needs memory of its own and sets no limits to it"
                        : nullptr;
}

bool thorough() {
    return std::getenv("TAVRISK_THOROUGH") != nullptr;
}

Bytes bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

std::string digest(const Bytes& buffer) {
    std::array<unsigned char, 64> hash{};
    EVP_Q_digest(nullptr, "SHA512", nullptr, buffer.data(), buffer.size(), hash.data(), nullptr);
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (const unsigned byte : hash) {
        text << std::setw(2) << byte;
    }
    return text.str();
}

std::string readFile(const std::string& path) {
    std::ostringstream text; // Not byte by byte: tests are not optimised, and some files are large.
    text << std::ifstream{path, std::ios::binary}.rdbuf();
    return std::move(text).str();
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream{path, std::ios::binary} << text;
}

bool has(const std::string& text, const std::string& pattern) {
    return std::regex_search(text, std::regex{pattern});
}

std::string replaced(const std::string& text, const std::string& pattern, const std::string& by) {
    return std::regex_replace(text, std::regex{pattern}, by);
}

namespace {

/** The end of the record, which `World` keeps of each test. */
std::string recordedLast() {
    constexpr std::size_t most = 4'000;
    const auto record = readFile("/run/record");
    return record.substr(record.size() - std::min(record.size(), most));
}

} // namespace

testing::AssertionResult eventually(const std::function<bool()>& condition) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::minutes{emulated() || sanitized() ? 5 : 1};
    useconds_t pause = 1'000;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return testing::AssertionFailure() << "waited in vain; recorded last:\n"
                                               << recordedLast();
        }
        usleep(pause);
        pause = std::min(2 * pause, 100'000U);
    }
    return testing::AssertionSuccess();
}

Process::Process(const std::vector<std::string>& arguments, const Lines& environment)
    : pid_{fork()} {
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // Nothing outlives a test that crashes.
        for (const auto& entry : environment) {
            putenv(const_cast<char*>(entry.c_str()));
        }
        std::vector<char*> pointers;
        for (const auto& argument : arguments) {
            pointers.push_back(const_cast<char*>(argument.c_str()));
        }
        pointers.push_back(nullptr);
        execvp(pointers.front(), pointers.data());
        _exit(127);
    }
}

Process::~Process() {
    if (!reaped_) {
        kill(SIGKILL);
        wait();
    }
}

void Process::kill(int signal) const {
    ::kill(pid_, signal);
}

int Process::wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

Peer::Peer() {
    sd_bus* bus = nullptr;
    sd_bus_new(&bus);
    sd_bus_set_address(bus, busAddress);
    sd_bus_set_bus_client(bus, 1);
    sd_bus_start(bus);
    bus_.reset(bus, sd_bus_flush_close_unref);
}

std::optional<int> Peer::send(sd_bus_message* message) {
    sd_bus_error failed{};
    sd_bus_message* reply = nullptr;
    std::int32_t result = 0;
    const auto timeout = emulated() ? 25'000'000 : 5'000'000;
    const bool good = sd_bus_call(bus(), message, timeout, &failed, &reply) >= 0 &&
                      sd_bus_message_read_basic(reply, 'i', &result) >= 0;
    error = failed.name != nullptr ? failed.name : "";
    sd_bus_error_free(&failed);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(message);
    return good ? std::optional{result} : std::nullopt;
}

std::optional<int> Peer::call(const std::string& method, const std::string& text,
                              const Bytes& data) {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(bus(), &message, service, path, service, method.c_str());
    sd_bus_message_append_basic(message, 's', text.c_str());
    sd_bus_message_append_array(message, 'y', data.data(), data.size());
    return send(message);
}

std::optional<int> Peer::call(const std::string& method) {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(bus(), &message, service, path, service, method.c_str());
    return send(message);
}

std::string Peer::stringProperty(const char* name) {
    char* value = nullptr;
    sd_bus_get_property_string(bus(), service, path, service, name, nullptr, &value);
    std::string result{value != nullptr ? value : "(none)"};
    std::free(value);
    return result;
}

int Peer::byteProperty(const char* name) {
    std::uint8_t value = 0;
    const int result =
        sd_bus_get_property_trivial(bus(), service, path, service, name, nullptr, 'y', &value);
    return result < 0 ? result : value;
}

int Peer::set(const char* name, const char* type, const char* value) {
    return std::min(sd_bus_set_property(bus(), service, path, service, name, nullptr, type, value),
                    0);
}

int Peer::set(const char* name, std::uint8_t value) {
    return std::min(sd_bus_set_property(bus(), service, path, service, name, nullptr, "y", value),
                    0);
}

void Peer::ping() {
    sd_bus_call_method(bus(), "org.freedesktop.DBus", "/", "org.freedesktop.DBus.Peer", "Ping",
                       nullptr, nullptr, "");
}

void Peer::process() {
    while (sd_bus_process(bus(), nullptr) > 0) {
    }
}

const std::string World::openPolicy = R"(
  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
)";

Recorded::Recorded() {
    unsetenv("LD_PRELOAD"); // What this program has of it is not for those that it starts.
    for (const auto* directory : {"/run", "/mmc1", "/app"}) {
        for (const auto& entry : fs::directory_iterator{directory}) {
            fs::remove_all(entry);
        }
    }
    for (const auto* directory : {"/run/fail", "/run/hmc/dump", "/run/hmc/rawCPER", "/app/bin"}) {
        fs::create_directories(directory);
    }
    fs::remove("/dev/log");
}

World::World(const std::string& busPolicy) {
    syslogSocket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    EXPECT_EQ(bind(syslogSocket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    syslogReader_ = std::jthread{[this] { listen(); }};

    writeFile("/run/bus.conf", busConfiguration(busPolicy));
    bus_ = std::make_unique<Process>(
        Lines{"dbus-daemon", "--config-file=/run/bus.conf", "--nofork", "--nopidfile"});
    EXPECT_TRUE(eventually(busIsUp));
}

World::~World() {
    daemon.reset();
    bus_.reset();
    unstallSyslog();
    shutdown(syslogSocket_, SHUT_RDWR);
    syslogReader_.join();
    close(syslogSocket_);
}

void World::listen() {
    std::string datagram(65536, '\0');
    for (;;) {
        const auto since = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - since < syslogPause_.load()) {
            usleep(1'000);
        }
        const auto size = recv(syslogSocket_, datagram.data(), datagram.size(), 0);
        if (size <= 0) {
            return;
        }
        const std::lock_guard lock{syslogMutex_};
        syslog_.push_back(withoutTimeStamp(datagram.substr(0, static_cast<std::size_t>(size))));
    }
}

Lines World::syslog() {
    const std::lock_guard lock{syslogMutex_};
    return syslog_;
}

void World::forgetSyslog() {
    const std::lock_guard lock{syslogMutex_};
    syslog_.clear();
}

void World::launchDaemon(const Lines& with) {
    Lines command = with;
    // Several words: what preloads the shim, or an emulator, comes first.
    command.insert(command.end(), {"sh", "-c", "exec $TAVRISK_DAEMON"});
    daemon = std::make_unique<Process>(command,
                                       Lines{std::string{"DBUS_STARTER_ADDRESS="} + busAddress});
}

void World::startDaemon(const Lines& with) {
    launchDaemon(with);
    Peer peer;
    ASSERT_TRUE(
        eventually([&] { return sd_bus_get_name_creds(peer.bus(), service, 0, nullptr) >= 0; }));
}

void Recorded::fail(const std::string& call, int code) {
    writeFile("/run/fail/" + call, std::to_string(code));
}

void Recorded::stopClock(std::int64_t secondsSinceEpoch) {
    writeFile("/run/clock", std::to_string(secondsSinceEpoch));
}

namespace {

/** The recorded lines of the threads that `wanted` accepts. */
Lines recordedLines(const std::function<bool(pid_t, const std::string&)>& wanted) {
    Lines lines;
    std::ifstream file{"/run/record"};
    pid_t thread = 0;
    for (std::string line; file >> thread && file.ignore() && std::getline(file, line);) {
        if (wanted(thread, line)) {
            lines.push_back(line);
        }
    }
    return lines;
}

} // namespace

Lines Recorded::recorded() {
    return recordedLines([](pid_t, const auto&) { return true; });
}

Lines World::recordedOnBusThread() const {
    return recordedLines([this](pid_t thread, const auto&) { return thread == daemon->pid(); });
}

Lines World::recordedOnWorkers() const {
    return recordedLines([this](pid_t thread, const std::string& line) {
        return thread != daemon->pid() && !isOfRetention(line);
    });
}

void Recorded::forgetRecorded() {
    fs::remove("/run/record");
}

Lines Recorded::recordedWith(const std::string& text) {
    auto lines = recorded();
    std::erase_if(lines, [&](const auto& line) { return line.find(text) == std::string::npos; });
    return lines;
}

testing::AssertionResult Recorded::waitForRecorded(const std::string& text, std::size_t count) {
    return eventually([&] { return recordedWith(text).size() >= count; })
           << "wanted: " << count << " x '" << text << "'";
}
