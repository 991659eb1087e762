// SPDX-License-Identifier: Apache-2.0
#include "zel/watch.hpp"

#include "zel/reader.hpp"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <utility>

namespace tavrisk::zel {
namespace {

/** The directory of the log, or the closest one above that is there: the log's shows up in it. */
std::filesystem::path nearestDirectory(const std::string& path) {
    auto directory = std::filesystem::absolute(path).parent_path();
    std::error_code ignored;
    while (!std::filesystem::is_directory(directory, ignored) && directory.has_relative_path()) {
        directory = directory.parent_path();
    }
    return directory;
}

[[noreturn]] void fail(const std::string& what) {
    throw Unreadable{what + ": " + std::strerror(errno)}; // NOLINT(concurrency-mt-unsafe)
}

int timeoutUntil(std::optional<LogWatch::TimePoint> until) {
    using namespace std::chrono;
    if (!until) {
        return -1;
    }
    const auto left = (*until - floor<milliseconds>(system_clock::now())).count() + 1;
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

} // namespace

LogWatch::LogWatch(std::string path)
    : path_{std::move(path)}, inotify_{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)} {
    if (inotify_ < 0) {
        fail("inotify");
    }
}

LogWatch::~LogWatch() {
    close(inotify_);
}

void LogWatch::arm() {
    std::array<char, 4096> events; // NOLINT(*-member-init): what they are does not matter
    while (read(inotify_, events.data(), events.size()) > 0) {
    }
    // The writer closes the write-ahead log after each commit; its first modification comes earlier
    // than its entries can be seen. The rest tells of databases that come and go.
    constexpr std::uint32_t mask = IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM |
                                   IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    const auto directory = nearestDirectory(path_);
    const int watch = inotify_add_watch(inotify_, directory.c_str(), mask);
    if (watch < 0) {
        fail(directory.string() + " cannot be watched");
    }
    if (watch_ >= 0 && watch_ != watch) {
        inotify_rm_watch(inotify_, watch_);
    }
    watch_ = watch;
}

Woken LogWatch::wait(std::optional<TimePoint> until) const {
    // Asked for nothing, standard output still says when its reader has gone.
    std::array waiting{pollfd{inotify_, POLLIN, 0}, pollfd{STDOUT_FILENO, 0, 0}};
    const int ready = poll(waiting.data(), waiting.size(), timeoutUntil(until));
    if (ready < 0 && errno != EINTR) {
        fail("poll");
    }
    return waiting[1].revents != 0 ? Woken::output : ready > 0 ? Woken::log : Woken::time;
}

} // namespace tavrisk::zel
