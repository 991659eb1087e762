// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/follow.hpp"

#include "tools/zelctl/log.hpp"
#include "tools/zelctl/output.hpp"
#include "tools/zelctl/render.hpp"
#include "tools/zelctl/time_text.hpp"
#include "zel/watch.hpp"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <iostream>

namespace tavrisk::zelctl {
namespace {

constexpr std::size_t sequenceWidth = 6;

class Follower {
public:
    Follower(const std::string& path, const Options& options)
        : path_{path},
          options_{options},
          style_{Style::ofStandardOutput()},
          position_{options.filter.after} {}

    void printTitle() const {
        if (style_.terminal && !options_.json) {
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
        flushLines();
        return !(options_.limit && printed_ >= *options_.limit) && !isOver();
    }

private:
    void openAnew() {
        if (reader_ && reader_->hasMoved()) {
            std::cerr << "zelctl: " << path_ << " is another log from here on, or gone\n";
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
            position_ = options_.filter.since ? 0 : health.highest;
        }
        if (*position_ > health.highest) {
            std::cerr << "zelctl: " << path_ << " has never had an entry " << *position_
                      << ": it is another log, and read from its first entry on\n";
            position_ = 0;
        }
        const auto next = health.entries != 0 ? health.first : health.highest + 1;
        if (*position_ != 0 && next > *position_ + 1) {
            const auto first = *position_ + 1;
            std::cerr << "zelctl: "
                      << (next - 1 == first ? "entry " + std::to_string(first) + " was"
                                            : "entries " + std::to_string(first) + " to " +
                                                  std::to_string(next - 1) + " were")
                      << " removed before they could be read\n";
        }
    }

    void printBeyond(std::int64_t position) {
        auto filter = options_.filter;
        filter.after = position;
        reader_->forEach(filter, true, [this](const LogEntry& entry) {
            putLine(options_.json ? jsonLine(toJson(entry))
                                  : entryLine(style_, entry, sequenceWidth));
            position_ = entry.sequence;
            ++printed_;
            return !options_.limit || printed_ < *options_.limit;
        });
    }

    [[nodiscard]] bool isOver() const {
        return options_.filter.until && fromLogTime(*options_.filter.until) < now();
    }

    const std::string& path_;
    const Options& options_;
    Style style_;
    std::optional<LogReader> reader_;
    std::optional<std::int64_t> position_; // everything up to this sequence number is done with
    std::int64_t printed_ = 0;
};

} // namespace

void follow(const std::string& path, const Options& options) {
    const auto until =
        options.filter.until ? fromLogTime(*options.filter.until) : std::optional<TimePoint>{};
    // A shell has its background jobs ignore it; being interrupted is how this one ends.
    std::signal(SIGINT, SIG_DFL);
    Follower follower{path, options};
    zel::LogWatch watch{path};
    watch.arm();
    follower.printTitle();
    while (follower.printNew()) {
        if (watch.wait(until) == zel::Woken::output) {
            throw NobodyReads{};
        }
        watch.arm();
    }
}

} // namespace tavrisk::zelctl
