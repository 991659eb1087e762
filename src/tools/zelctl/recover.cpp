// SPDX-License-Identifier: Apache-2.0
#include "contract/places.hpp"
#include "records/catalogue.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/beside.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/form.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/time_text.hpp"
#include "zel/json_text.hpp"

#include <algorithm>
#include <ctime>
#include <map>
#include <set>
#include <tuple>

namespace tavrisk::tools {
namespace {

using std::chrono::seconds;

// A submission may have waited for the database, and the clock may be put right meanwhile.
constexpr seconds longestWait{60};
constexpr seconds clockSlack{30};

/** Message, severity and device: what tells entries apart. */
using Kind = std::tuple<std::string, Severity, std::string>;

struct Candidate {
    std::string path;
    seconds kept;
    bool isCper;
    Kind kind;
    /** Why it cannot be told whether its event is lost; empty when it is. */
    std::string doubt;
};

seconds secondsOf(TimePoint time) {
    return std::chrono::floor<seconds>(time.time_since_epoch());
}

seconds secondsOf(const std::string& logTime) {
    const auto time = fromLogTime(logTime);
    return time ? secondsOf(*time) : seconds{0};
}

/** When the machine was started, by the clock as it is now. */
TimePoint bootTime() {
    timespec since{};
    clock_gettime(CLOCK_BOOTTIME, &since);
    return std::chrono::floor<std::chrono::milliseconds>(now() - seconds{since.tv_sec});
}

/** The files that the daemon would have made entries of, oldest first. */
std::vector<Candidate> candidates() {
    std::vector<Candidate> found;
    for (const auto& place : rawPlacesBelow(dataRoot)) {
        const auto problem = place.forEachFile([&](const std::filesystem::path& file,
                                                   seconds kept) {
            const auto verdict = place.classify(file);
            const auto* const row =
                verdict && verdict->event ? findMessage(verdict->event->number) : nullptr;
            if (row != nullptr) {
                found.push_back({file.string(), kept, place.directory != dataRoot,
                                 Kind{row->messageId, verdict->severity.value_or(Severity::other),
                                      zel::toUtf8(verdict->event->device)},
                                 ""});
            }
        });
        if (!problem.empty()) {
            throw Failure{Exit::failed, problem};
        }
    }
    std::sort(found.begin(), found.end(),
              [](const Candidate& a, const Candidate& b) { return a.kept < b.kept; });
    return found;
}

/** What the log says of when events could get lost unseen. */
class Evidence {
public:
    explicit Evidence(const Log& log) {
        const auto reader = log.open();
        if (!reader) {
            doubt_ = "there is no event log";
            return;
        }
        const auto health = reader->health();
        if (lookBeside(log.path()).waiting.entries != 0) {
            doubt_ = "events wait for the database";
        } else if (health.schemaVersion < 3) {
            doubt_ = "the log's layout is too old";
        }
        certainFrom_ =
            std::max(secondsOf(booted_), std::max(secondsOf(health.lastClear.value_or("")),
                                                  secondsOf(health.dropped.last.time)));
        reader->forEach({}, true, [this](const LogEntry& entry) {
            take(entry);
            return true;
        });
    }

    /** Takes the entry away that the candidate fits; false when there is none. */
    bool hasEntryOf(const Candidate& candidate) {
        auto& times = entries_[candidate.kind];
        const auto entry = times.lower_bound(candidate.kept - clockSlack);
        if (entry == times.end() || *entry > candidate.kept + longestWait + clockSlack) {
            return false;
        }
        times.erase(entry);
        return true;
    }

    [[nodiscard]] std::string doubtAbout(seconds kept) const {
        if (!doubt_.empty()) {
            return doubt_;
        }
        if (kept > secondsOf(now()) - longestWait - clockSlack) {
            return "it may still be on its way";
        }
        return kept <= certainFrom_ ? "older than the boot, the last clearing or change of the "
                                      "clock, or an entry that was dropped"
                                    : "";
    }

private:
    void take(const LogEntry& entry) {
        const auto time = secondsOf(entry.time);
        entries_[{entry.messageId, entry.severity(), entry.device()}].insert(time);
        if (entry.sinceBoot && entry.bootId == boot_) {
            // By the clock as it is now. Where the entry has another time, it was set since then.
            const auto real = secondsOf(booted_ + *entry.sinceBoot);
            if (std::chrono::abs(real - time) > clockSlack) {
                certainFrom_ = std::max({certainFrom_, real, time});
            }
        }
    }

    std::string boot_ = thisBoot();
    TimePoint booted_ = bootTime();
    std::string doubt_;
    seconds certainFrom_{0};
    std::map<Kind, std::multiset<seconds>> entries_;
};

/** The candidates without an entry. */
std::vector<Candidate> missing(const Log& log) {
    const auto found = candidates();
    Evidence evidence{log};
    std::vector<Candidate> without;
    for (auto candidate : found) {
        if (!evidence.hasEntryOf(candidate)) {
            candidate.doubt = evidence.doubtAbout(candidate.kept);
            without.push_back(std::move(candidate));
        }
    }
    return without;
}

Json::Value jsonOf(const Candidate& candidate) {
    const auto& [messageId, severity, device] = candidate.kind;
    Json::Value object;
    object["path"] = candidate.path;
    object["kind"] = candidate.isCper ? "cper" : "event";
    object["keptAt"] = Json::Int64{candidate.kept.count()};
    object["messageId"] = messageId;
    object["severity"] = name(severity);
    object["device"] = device;
    object["lost"] = candidate.doubt.empty();
    object["doubt"] = candidate.doubt.empty() ? Json::Value{} : Json::Value{candidate.doubt};
    return object;
}

void putText(const Style& style, const Candidate& candidate) {
    const auto& [messageId, severity, device] = candidate.kind;
    const LogEntry entry{0, "", messageId, code(severity), {device}};
    const bool lost = candidate.doubt.empty();
    putLine((lost ? "lost: " : "cannot tell: ") + localTime(TimePoint{candidate.kept}) + "  " +
            coloured(style, severity, name(severity)) + "  " + messageId);
    putLine("  " + hanging(style, 2, harmless(messageText(entry))));
    if (!lost) {
        putLine("  (" + hanging(style, 3, candidate.doubt) + ")");
    }
    putLine("  " + harmless(candidate.path));
}

} // namespace

Exit recover(const Log& log, const Arguments& arguments) {
    const auto form = formOf(arguments);
    const bool cpers = arguments.has("cper");
    const auto style = Style::ofStandardOutput();
    Records records{form};
    for (const auto& candidate : missing(log)) {
        if (arguments.has("null")) {
            if (candidate.doubt.empty() && candidate.isCper == cpers) {
                put(candidate.path + '\0');
            }
        } else if (form == Form::text) {
            putText(style, candidate);
        } else {
            records.put(jsonOf(candidate));
        }
    }
    return Exit::done;
}

} // namespace tavrisk::tools
