// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/** Why figures and limits of memory mean nothing in this run; null when they do mean something. */
const char* whyNoMemoryFigures();

/** The slow proofs are wanted: whoever has a quick form of them leaves it. */
bool thorough();

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

Bytes bytes(const std::string& text);
/** The validation string of a buffer. */
std::string digest(const Bytes& buffer);
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);

/** Whether `text` has something in it that `pattern`, an ECMAScript regular expression, describes;
 *  and `text` with all of that replaced. Compiled once, in here. */
bool has(const std::string& text, const std::string& pattern);
std::string replaced(const std::string& text, const std::string& pattern,
                     const std::string& by = {});

/** Succeeds as soon as `condition` holds; fails when it does not within a minute, or five in an
 *  emulator or under a sanitizer, and tells what was recorded last. */
testing::AssertionResult eventually(const std::function<bool()>& condition);

/** A program of the test's, ended and reaped with the instance. */
class Process {
public:
    explicit Process(const std::vector<std::string>& arguments, const Lines& environment = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    void kill(int signal) const;
    /** Waits for the end; the exit status, or the negated signal number. */
    int wait();

private:
    pid_t pid_;
    bool reaped_ = false;
};

/** A peer on the private bus. Calls wait for their reply. */
class Peer {
public:
    Peer();

    sd_bus* bus() { return bus_.get(); }
    /** The method's result, or nothing when it is answered with an error (kept in `error`) or,
     *  within five seconds (25 in an emulator), not at all. */
    std::optional<int> call(const std::string& method, const std::string& text, const Bytes& data);
    std::optional<int> call(const std::string& method);
    std::string stringProperty(const char* name);
    int byteProperty(const char* name);
    /** 0, or a negative errno. */
    int set(const char* name, const char* type, const char* value);
    int set(const char* name, std::uint8_t value);
    /** Waits until the bus has dealt with all that this peer has sent before. */
    void ping();
    /** Handles what has arrived, without waiting. */
    void process();

    std::string error;

private:
    std::optional<int> send(sd_bus_message* message);
    std::shared_ptr<sd_bus> bus_;
};

/** What the recording libraries and the shim saw, for what needs no bus. Runs in the root made by
 *  scripts/world; every test starts with it empty. */
class Recorded : public ::testing::Test {
protected:
    Recorded();

    /** Makes the call of this name fail with `code`; 0 lets it succeed again. */
    static void fail(const std::string& call, int code);
    /** Stops the clock of whoever has the shim. */
    static void stopClock(std::int64_t secondsSinceEpoch);

    /** What the recording libraries saw since the start of the test, without thread numbers. */
    static Lines recorded();
    static void forgetRecorded();
    /** The recorded lines that contain `text`. */
    static Lines recordedWith(const std::string& text);
    static testing::AssertionResult waitForRecorded(const std::string& text, std::size_t count = 1);
};

/** A private bus and a private syslog as well, and the daemon. */
class World : public Recorded {
protected:
    /** A bus that lets everybody do everything. */
    static const std::string openPolicy;

    explicit World(const std::string& busPolicy = openPolicy);
    ~World() override;

    /** Starts the daemon, through the program `with` if one is given, and waits until it serves
     *  its name. */
    void startDaemon(const Lines& with = {});
    /** Starts it without waiting. */
    void launchDaemon(const Lines& with = {});

    void stopBus() { bus_.reset(); }

    /** recorded(), of the daemon's bus thread only, and of all other threads but the monitor. */
    Lines recordedOnBusThread() const;
    Lines recordedOnWorkers() const;

    /** Has syslog read a line every `pause` at most, or not at all. */
    void slowSyslog(std::chrono::milliseconds pause) { syslogPause_ = pause; }
    void stallSyslog() { slowSyslog(std::chrono::hours{1}); }
    void unstallSyslog() { slowSyslog(std::chrono::milliseconds{0}); }
    /** Syslog datagrams as "PRIORITY TAG: TEXT", without time stamp. */
    Lines syslog();
    void forgetSyslog();

    std::unique_ptr<Process> daemon;

private:
    void listen();

    std::unique_ptr<Process> bus_;
    int syslogSocket_;
    std::atomic<std::chrono::milliseconds> syslogPause_{};
    std::mutex syslogMutex_;
    Lines syslog_;
    std::jthread syslogReader_;
};
