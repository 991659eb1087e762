// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/time_text.hpp"
#include "zel/watch.hpp"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>

namespace tavrisk::tools {
namespace {

constexpr std::size_t sequenceWidth = 6;

void tell(const std::string& sentence) {
    std::cerr << "zelctl: " << harmless(sentence) << "\n";
}

class Follower {
public:
    Follower(const std::string& path, const Arguments& arguments)
        : path_{path},
          filter_{filterOf(arguments)},
          limit_{limitOf(arguments)},
          json_{arguments.json()},
          style_{Style::ofStandardOutput()},
          position_{filter_.after} {
        if (filter_.until) {
            until_ = fromLogTime(*filter_.until);
        }
    }

    [[nodiscard]] std::optional<TimePoint> until() const { return until_; }

    void printTitle() const {
        if (style_.terminal && !json_) {
            putLine(titleLine(style_, sequenceWidth));
        }
    }

    /** Prints what has come since the last time; false when there is no more to come. */
    bool printNew() {
        openAnew();
        if (reader_) {
            // Taken before the entries are read: those that come in between are read again, and
            // beyond this number, next time.
            const auto health = reader_->health();
            takePosition(health);
            printBeyond(*position_);
            position_ = std::max(*position_, health.highest);
        }
        flushOutput();
        return !(limit_ && printed_ >= *limit_) && !isOver();
    }

private:
    void openAnew() {
        if (reader_ && reader_->hasMoved()) {
            tell(path_ + " is another log from here on, or gone");
            position_ = 0;
        } else if (reader_ && reader_->seesNewEntries()) {
            return;
        }
        reader_.reset();
        if (access(path_.c_str(), F_OK) == 0) {
            reader_ = LogReader::open(path_);
        } else if (!position_) {
            position_ = 0; // whatever will be in a log that is yet to come, is new
        }
    }

    void takePosition(const Health& health) {
        if (!position_) {
            position_ = filter_.since ? 0 : health.highest;
        }
        if (*position_ > health.highest) {
            tell(path_ + " has never had an entry " + std::to_string(*position_) +
                 ": it is another log, and read from its first entry on");
            position_ = 0;
        }
        const auto next = health.entries != 0 ? health.first : health.highest + 1;
        const auto first = *position_ + 1;
        if (*position_ != 0 && next > first) {
            tell((next - 1 == first ? "entry " + std::to_string(first) + " was"
                                    : "entries " + std::to_string(first) + " to " +
                                          std::to_string(next - 1) + " were") +
                 " removed before they could be read");
        }
    }

    void printBeyond(std::int64_t position) {
        auto filter = filter_;
        filter.after = position;
        reader_->forEach(filter, true, [this](const LogEntry& entry) {
            putLine(json_ ? jsonLine(toJson(entry)) : entryLine(style_, entry, sequenceWidth));
            position_ = entry.sequence;
            ++printed_;
            return !limit_ || printed_ < *limit_;
        });
    }

    [[nodiscard]] bool isOver() const { return until_ && *until_ < now(); }

    const std::string& path_;
    Filter filter_;
    std::optional<std::int64_t> limit_;
    bool json_;
    Style style_;
    std::optional<TimePoint> until_;
    std::optional<LogReader> reader_;
    std::optional<std::int64_t> position_; // everything up to this sequence number is done with
    std::int64_t printed_ = 0;
};

} // namespace

Exit follow(const Log& log, const Arguments& arguments) {
    Follower follower{log.path(), arguments};
    log.isYetToCome(); // Another log than the system's has to be there.
    // A shell has its background jobs ignore it; being interrupted is how this one ends.
    std::signal(SIGINT, SIG_DFL);
    zel::LogWatch watch{log.path()};
    watch.arm();
    follower.printTitle();
    while (follower.printNew()) {
        if (watch.wait(follower.until()) == zel::Woken::output) {
            throw NobodyReads{};
        }
        watch.arm();
    }
    return Exit::done;
}

} // namespace tavrisk::tools
