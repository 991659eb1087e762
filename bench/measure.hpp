// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <systemd/sd-bus.h>

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/** What the measuring programs share: a connection, and what the kernel knows of a server. */
namespace bench {

using Clock = std::chrono::steady_clock;
using Bus = std::unique_ptr<sd_bus, decltype(&sd_bus_flush_close_unref)>;

inline void check(int result, const char* what) {
    if (result < 0) {
        throw std::runtime_error{std::string{what} + " failed"};
    }
}

inline Bus connect() {
    sd_bus* opened = nullptr;
    check(sd_bus_open_system(&opened), "connecting");
    return {opened, sd_bus_flush_close_unref};
}

inline double seconds(Clock::duration time) {
    return std::chrono::duration<double>{time}.count();
}

/** Processor time of all threads of the process so far, those that have ended included. */
inline double cpuSeconds(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::runtime_error{"the server is gone"};
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/** Waits until the process has nothing left to do, and tells its processor time. */
inline double cpuSecondsAtRest(pid_t process) {
    double before = -1;
    double now = cpuSeconds(process);
    while (now != before) {
        usleep(5'000);
        before = std::exchange(now, cpuSeconds(process));
    }
    return now;
}

/** A line of /proc/PID/status, such as VmHWM, in KiB. */
inline double statusKiB(pid_t process, const std::string& name) {
    std::ifstream file{"/proc/" + std::to_string(process) + "/status"};
    for (std::string word; file >> word;) {
        if (word == name + ":") {
            double size = 0;
            file >> size;
            return size;
        }
    }
    return 0;
}

inline void forgetPeak(pid_t process) {
    std::ofstream{"/proc/" + std::to_string(process) + "/clear_refs"} << "5";
}

inline double median(std::vector<double> values) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
}

inline double quantile(std::vector<double> values, double part) {
    std::sort(values.begin(), values.end());
    return values.at(static_cast<std::size_t>(static_cast<double>(values.size() - 1) * part));
}

} // namespace bench
