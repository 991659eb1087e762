// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/raw_file.hpp"

#include "contract/places.hpp"
#include "records/catalogue.hpp"
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

namespace tavrisk::tools {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

// A submission may have waited for the database.
constexpr seconds longestDelay{60};

using Bytes = std::vector<std::uint8_t>;

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

bool wouldMake(const LogEntry& entry, const Verdict& verdict) {
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

    void in(const RawPlace& place) {
        const auto problem = place.forEachFile([&](const fs::path& file, seconds kept) {
            consider(place, file, entrySeconds_ - kept);
        });
        if (found_.unreadable.empty()) {
            found_.unreadable = problem;
        }
    }

    [[nodiscard]] const RawFiles& found() const { return found_; }

private:
    void consider(const RawPlace& place, const fs::path& file, seconds delay) {
        const auto longest = found_.paths.empty() ? longestDelay : found_.delay;
        if (delay < seconds{0} || delay > longest) {
            return;
        }
        const auto verdict = place.classify(file);
        if (!verdict || !wouldMake(entry_, *verdict)) {
            return;
        }
        if (delay < longest) {
            found_.paths.clear();
        }
        found_.delay = delay;
        found_.paths.push_back(file.string());
    }

    const LogEntry& entry_;
    seconds entrySeconds_{0};
    RawFiles found_;
};

} // namespace

std::string RawPlace::forEachFile(const std::function<void(const fs::path&, seconds)>& take) const {
    std::error_code error;
    for (const auto& file : fs::directory_iterator{directory, error}) {
        std::error_code gone;
        const auto kept = secondsOf(file.path());
        if (kept && file.is_regular_file(gone)) {
            take(file.path(), seconds{*kept});
        }
    }
    return error && error != std::errc::no_such_file_or_directory
               ? directory + ": " + error.message()
               : "";
}

std::optional<Verdict> RawPlace::classify(const fs::path& file) const {
    const auto raw = readFile(file);
    const auto record = raw ? toEventRecord(*raw) : std::nullopt;
    return record ? std::optional{tavrisk::classify(*record)} : std::nullopt;
}

std::array<RawPlace, 2> rawPlacesBelow(const std::string& root) {
    return {RawPlace{root, secondsInName, asItIs},
            RawPlace{root + rawCperDirectory, secondsOfWriting, toSummary}};
}

RawFiles findRawFiles(const LogEntry& entry) {
    Search search{entry};
    for (const std::string root : {dataRoot, savedRoot}) {
        if (search.found().paths.empty()) {
            for (const auto& place : rawPlacesBelow(root)) {
                search.in(place);
            }
        }
    }
    return search.found();
}

} // namespace tavrisk::tools
