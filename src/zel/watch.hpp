// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tavrisk::zel {

/** What has ended a wait: the log may hold something new, the time was over, or the reader of
 *  standard output has gone. */
enum class Woken { log, time, output };

/** Sleeps until the event log may hold something new. */
class LogWatch {
public:
    using TimePoint = std::chrono::sys_time<std::chrono::milliseconds>;

    /** Raises Unreadable when the system has no watch left. */
    explicit LogWatch(std::string path);
    ~LogWatch();
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;

    /** From here on nothing is missed: to be called before the log is looked at. Raises Unreadable
     *  when its directory may not be watched. */
    void arm();

    /** Returns when something happened since arm(), and at `until` at the latest. */
    [[nodiscard]] Woken wait(std::optional<TimePoint> until) const;

private:
    std::string path_;
    int inotify_;
    int watch_ = -1;
};

} // namespace tavrisk::zel
