// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/raw_file.hpp"

#include "contract/places.hpp"
#include "records/catalogue.hpp"
#include "records/classifier.hpp"
#include "records/cper_parser.hpp"
#include "tools/zelctl/time_text.hpp"
#include "zel/json_text.hpp"

#include <json/value.h>

#include <sys/stat.h>

#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <span>

namespace tavrisk::tools {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

// A submission may have waited for the database.
constexpr seconds longestDelay{60};

using Bytes = std::vector<std::uint8_t>;

/** Where raw data is kept, how its files tell their time, and what is classified of them. */
struct Place {
    fs::path directory;
    std::optional<std::int64_t> (*secondsOf)(const fs::path& file);
    std::optional<Bytes> (*toEventRecord)(const Bytes& raw);
};

std::optional<std::int64_t> secondsInName(const fs::path& file) {
    const auto name = file.filename().string();
    const auto dot = name.rfind('.');
    std::int64_t value = 0;
    if (dot == std::string::npos ||
        std::from_chars(name.data() + dot + 1, name.data() + name.size(), value).ptr !=
            name.data() + name.size()) {
        return {};
    }
    return value;
}

/** A CPER's file has the record's own time in its name, which may be any. */
std::optional<std::int64_t> secondsOfWriting(const fs::path& file) {
    struct stat status {};
    return stat(file.c_str(), &status) == 0 ? std::optional{std::int64_t{status.st_mtime}}
                                            : std::nullopt;
}

std::optional<Bytes> asItIs(const Bytes& raw) {
    return raw;
}

/** What the daemon classifies of a CPER. */
std::optional<Bytes> toSummary(const Bytes& raw) {
    Json::Value summary;
    if (nvCperParse(raw, summary) != 0) {
        return {};
    }
    const auto json = cperEventRecord(summary);
    return Bytes{json.begin(), json.end()};
}

bool wouldMake(const LogEntry& entry, std::span<const std::uint8_t> record) {
    const auto verdict = classify(record);
    const auto* const message = verdict.event ? findMessage(verdict.event->number) : nullptr;
    return message != nullptr && message->messageId == entry.messageId &&
           tavrisk::severityOf(entry.severityCode) == verdict.severity &&
           zel::toUtf8(verdict.event->device) == entry.device();
}

std::optional<Bytes> readFile(const fs::path& file) {
    std::ifstream stream{file, std::ios::binary};
    if (!stream) {
        return {};
    }
    return Bytes{std::istreambuf_iterator{stream}, {}};
}

class Search {
public:
    explicit Search(const LogEntry& entry) : entry_{entry} {
        if (const auto time = fromLogTime(entry.time)) {
            entrySeconds_ = std::chrono::floor<seconds>(time->time_since_epoch());
        }
    }

    void in(const Place& place) {
        std::error_code error;
        const fs::directory_iterator files{place.directory, error};
        if (error && error != std::errc::no_such_file_or_directory && found_.unreadable.empty()) {
            found_.unreadable = place.directory.string() + ": " + error.message();
        }
        for (const auto& file : files) {
            if (const auto kept = place.secondsOf(file.path())) {
                consider(place, file, entrySeconds_ - seconds{*kept});
            }
        }
    }

    [[nodiscard]] const RawFiles& found() const { return found_; }

private:
    void consider(const Place& place, const fs::directory_entry& file, seconds delay) {
        std::error_code gone;
        const auto longest = found_.paths.empty() ? longestDelay : found_.delay;
        if (delay < seconds{0} || delay > longest || !file.is_regular_file(gone)) {
            return;
        }
        const auto raw = readFile(file.path());
        const auto record = raw ? place.toEventRecord(*raw) : std::nullopt;
        if (!record || !wouldMake(entry_, *record)) {
            return;
        }
        if (delay < longest) {
            found_.paths.clear();
        }
        found_.delay = delay;
        found_.paths.push_back(file.path().string());
    }

    const LogEntry& entry_;
    seconds entrySeconds_{0};
    RawFiles found_;
};

} // namespace

RawFiles findRawFiles(const LogEntry& entry) {
    Search search{entry};
    for (const std::string root : {dataRoot, savedRoot}) {
        if (search.found().paths.empty()) {
            search.in({root, secondsInName, asItIs});
            search.in({root + "rawCPER", secondsOfWriting, toSummary});
        }
    }
    return search.found();
}

} // namespace tavrisk::tools
