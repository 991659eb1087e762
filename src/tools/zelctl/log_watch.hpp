// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/time_text.hpp"

#include <optional>
#include <string>

namespace tavrisk::zelctl {

/** Sleeps until the event log may hold something new. */
class LogWatch {
public:
    /** Raises Problem when the system has no watch left. */
    explicit LogWatch(std::string path);
    ~LogWatch();
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;

    /** From here on nothing is missed: to be called before the log is looked at. Raises Problem
     *  when its directory may not be watched. */
    void arm();

    /** Returns when something happened since arm(), and at `until` at the latest. Raises
     * NobodyReads when the reader of standard output has gone. */
    void wait(std::optional<TimePoint> until) const;

private:
    std::string path_;
    int inotify_;
    int watch_ = -1;
};

} // namespace tavrisk::zelctl
