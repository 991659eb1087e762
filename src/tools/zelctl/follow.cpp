// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/form.hpp"
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
          form_{formOf(arguments)},
          records_{form_},
          style_{Style::ofStandardOutput()},
          position_{filter_.after} {
        if (filter_.until) {
            until_ = fromLogTime(*filter_.until);
        }
    }

    [[nodiscard]] std::optional<TimePoint> until() const { return until_; }

    void printTitle() const {
        if (style_.terminal && form_ == Form::text) {
            putLine(titleLine(style_, sequenceWidth));
        }
    }

    /** Prints what has come since the last time; false when there is no more to come. */
    bool printNew() {
        openAnew();
        if (reader_) {
            resolveBoot(filter_, *reader_);
            // Taken before the entries are read: those that come in between are read again, and
            // beyond this number, next time.
            const auto highest = reader_->highest();
            takePosition(highest);
            printBeyond(*position_);
            position_ = std::max(*position_, highest);
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

    void takePosition(std::int64_t highest) {
        if (!position_) {
            position_ = filter_.since ? 0 : highest;
        }
        if (*position_ > highest) {
            tell(path_ + " has never had an entry " + std::to_string(*position_) +
                 ": it is another log, and read from its first entry on");
            position_ = 0;
        }
        const auto gone = *position_ != 0 ? reader_->goneBeyond(*position_) : 0;
        if (gone != 0) {
            tell("removed before they could be read: " + std::to_string(gone) + " of the entries " +
                 std::to_string(*position_ + 1) + " to " + std::to_string(highest));
        }
    }

    void printBeyond(std::int64_t position) {
        auto filter = filter_;
        filter.after = position;
        reader_->forEach(filter, true, [this](const LogEntry& entry) {
            if (form_ == Form::text) {
                putLine(entryLine(style_, entry, sequenceWidth));
            } else {
                records_.put(toJson(entry));
            }
            position_ = entry.sequence;
            ++printed_;
            return !limit_ || printed_ < *limit_;
        });
    }

    [[nodiscard]] bool isOver() const { return until_ && *until_ < now(); }

    const std::string& path_;
    Filter filter_;
    std::optional<std::int64_t> limit_;
    Form form_;
    Records records_;
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
