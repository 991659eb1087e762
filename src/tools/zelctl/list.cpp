// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/form.hpp"
#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/redfish/collection.hpp"
#include "tools/zelctl/time_text.hpp"

#include <algorithm>
#include <iostream>
#include <map>
#include <tuple>

namespace tavrisk::tools {
namespace {

/** The same message about the same device, all of what the filter lets through. */
struct Repeats {
    LogEntry latest;
    LogEntry first;
    std::int64_t count = 1;
};

Json::Value jsonOf(const Repeats& repeats) {
    auto object = toJson(repeats.latest);
    object["count"] = Json::Int64{repeats.count};
    object["firstSequence"] = Json::Int64{repeats.first.sequence};
    object["firstTime"] = repeats.first.time;
    return object;
}

std::string repeatsText(const Repeats& repeats) {
    return repeats.count == 1 ? ""
                              : " (" + std::to_string(repeats.count) + " times since " +
                                    localTimeText(repeats.first.time) + ")";
}

class Listing {
public:
    /** Entries go into the collection if there is one. */
    Listing(const LogReader& reader, const Arguments& arguments, LogEntryCollection* collection)
        : reader_{reader},
          arguments_{arguments},
          collection_{collection},
          filter_{filterOf(arguments)},
          limit_{limitOf(arguments)},
          form_{formOf(arguments)},
          records_{form_},
          width_{std::to_string(reader.highest()).size()} {
        resolveBoot(filter_, reader);
    }

    [[nodiscard]] std::int64_t printed() const { return printed_; }

    void print() {
        reader_.forEach(filter_, arguments_.has("reverse"), [this](const LogEntry& entry) {
            arguments_.has("long")   ? putLong(entry)
            : collection_ != nullptr ? putMember(entry)
                                     : put(entry, toJson(entry));
            return !limit_ || printed_ < *limit_;
        });
    }

    /** The latest repeats first, or those last that began first. */
    void printFolded() {
        std::vector<Repeats> rows;
        std::map<std::tuple<std::string, Severity, std::string>, std::size_t> known;
        reader_.forEach(filter_, false, [&](const LogEntry& entry) {
            const auto [found, isNew] =
                known.try_emplace({entry.messageId, entry.severity(), entry.device()}, rows.size());
            if (isNew) {
                rows.push_back({entry, entry});
            } else {
                auto& row = rows[found->second];
                row.first = entry;
                ++row.count;
            }
            return true;
        });
        if (arguments_.has("reverse")) {
            std::reverse(rows.begin(), rows.end());
        }
        for (const auto& row : rows) {
            if (!limit_ || printed_ < *limit_) {
                put(row.latest, jsonOf(row), repeatsText(row));
            }
        }
    }

    /** What may be missed in what was printed. */
    void tellOfTheRest() const {
        if (unset_ != 0) {
            note("the clock was not set for " + countText(unset_, "entry", "entries") +
                 "; numbers are in order all the same");
        }
        if (collection_ != nullptr && !collection_->unreadable().empty()) {
            note("CPERs may be missing, for one cannot look everywhere: " +
                 harmless(collection_->unreadable()));
        }
        if (filter_.since && hasOlderOfUnsetClock()) {
            note("some entries are of a time when the clock was not set, and may be of that time "
                 "as well: see 'zelctl list --until 2019-12-31'");
        }
        auto filter = filter_;
        if (limit_ && printed_ == *limit_ && !arguments_.has("reverse")) {
            filter.after =
                std::max(last_, filter.after.value_or(0)); // older ones are not asked for
        }
        if (const auto dropped = reader_.dropped(filter); dropped.entries != 0) {
            note("entries that may belong here were dropped to stay below the cap, up to #" +
                 std::to_string(dropped.last.sequence) + " of " + localTimeText(dropped.last.time));
        }
    }

private:
    /** Below the entries on a terminal, where a pager may have it; beside them elsewhere. */
    void note(const std::string& sentence) const {
        if (style_.terminal && form_ == Form::text) {
            putLine("(" + hanging(style_, 1, sentence) + ")");
        } else {
            flushOutput();
            std::cerr << "zelctl: " << sentence << "\n";
        }
    }

    void count(const LogEntry& entry) {
        unset_ += isOfUnsetClock(entry) ? 1 : 0;
        last_ = entry.sequence;
        ++printed_;
    }

    void putMember(const LogEntry& entry) {
        collection_->put(entry);
        count(entry);
    }

    void put(const LogEntry& entry, const Json::Value& object, const std::string& more = {}) {
        count(entry);
        if (printed_ == 1 && form_ == Form::text && style_.terminal) {
            putLine(titleLine(style_, width_));
        }
        if (form_ == Form::text) {
            putLine(entryLine(style_, entry, width_, more));
        } else {
            records_.put(object);
        }
    }

    /** With what the entry's record says, where there is one. */
    void putLong(const LogEntry& entry) {
        const auto files = index_.find(entry);
        const auto& [sentence, part] = files.summary;
        auto object = toJson(entry);
        object["sentence"] = sentence.empty() ? Json::Value{} : Json::Value{sentence};
        object["part"] = part.empty() ? Json::Value{} : Json::Value{part};
        object["isGuess"] = files.isGuess();
        put(entry, object);
        if (form_ == Form::text && !sentence.empty()) {
            const std::string indent(width_ + 2, ' ');
            putLine(indent + hanging(style_, indent.size(),
                                     (files.isGuess() ? "perhaps: " : "") + harmless(sentence)));
        }
    }

    [[nodiscard]] bool hasOlderOfUnsetClock() const {
        auto filter = filter_;
        filter.since = {};
        filter.until = firstPlausibleTime;
        bool found = false;
        reader_.forEach(filter, true, [&found](const LogEntry& entry) {
            found = isOfUnsetClock(entry);
            return !found;
        });
        return found;
    }

    const LogReader& reader_;
    const Arguments& arguments_;
    LogEntryCollection* collection_;
    Filter filter_;
    std::optional<std::int64_t> limit_;
    Form form_;
    Records records_;
    RawFileIndex index_;
    Style style_ = Style::ofStandardOutput();
    std::size_t width_;
    std::int64_t printed_ = 0;
    std::int64_t last_ = 0;
    std::int64_t unset_ = 0;
};

Json::Value jsonOf(const zel::Boot& boot) {
    Json::Value object;
    object["bootId"] = boot.id;
    object["entries"] = Json::Int64{boot.entries};
    for (const auto& [key, position] : {std::pair{"first", boot.first}, {"last", boot.last}}) {
        object[key]["sequence"] = Json::Int64{position.sequence};
        object[key]["time"] = position.time;
    }
    return object;
}

Exit listBoots(const LogReader& reader, const Arguments& arguments) {
    const auto form = formOf(arguments);
    Records records{form};
    for (const auto& boot : reader.boots()) {
        if (form == Form::text) {
            putLine(harmless(boot.id.substr(0, 12)) + "  " + localTimeText(boot.first.time) +
                    " to " + localTimeText(boot.last.time) + "  " +
                    countText(boot.entries, "entry", "entries"));
        } else {
            records.put(jsonOf(boot));
        }
    }
    return Exit::done;
}

void checkOptions(const Arguments& arguments, Form form) {
    if (arguments.has("long") && (arguments.has("fold") || arguments.has("boots"))) {
        failUsage("--long is for entries, not for --fold or --boots");
    }
    for (const auto* option : {"long", "fold", "boots"}) {
        if (form == Form::redfish && arguments.has(option)) {
            failUsage(std::string{"--output=redfish has no room for what --"} + option + " tells");
        }
    }
    if (form != Form::redfish && arguments.has("base")) {
        failUsage("--base is for --output=redfish");
    }
    filterOf(arguments); // What is wrong with it is told without a log, too.
    limitOf(arguments);
}

} // namespace

Exit list(const Log& log, const Arguments& arguments) {
    const auto form = formOf(arguments);
    checkOptions(arguments, form);
    std::optional<LogEntryCollection> collection;
    if (form == Form::redfish) {
        collection.emplace(arguments);
    }
    const auto reader = log.open();
    if (reader && arguments.has("boots")) {
        return listBoots(*reader, arguments);
    }
    std::int64_t printed = 0;
    if (reader) {
        Listing listing{*reader, arguments, collection ? &*collection : nullptr};
        arguments.has("fold") ? listing.printFolded() : listing.print();
        listing.tellOfTheRest();
        printed = listing.printed();
    }
    if (collection) {
        collection->end();
    }
    if (printed == 0 && form == Form::text && Style::ofStandardOutput().terminal) {
        std::cerr << "No entries.\n";
    }
    return Exit::done;
}

} // namespace tavrisk::tools
