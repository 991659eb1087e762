// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/raw_file.hpp"

#include "contract/places.hpp"
#include "records/catalogue.hpp"
#include "records/cper_parser.hpp"
#include "tools/common/regular_file.hpp"
#include "tools/zelctl/time_text.hpp"
#include "zel/json_text.hpp"

#include <json/value.h>

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <optional>
#include <tuple>
#include <utility>

namespace tavrisk::tools {
namespace {

namespace fs = std::filesystem;
using std::chrono::seconds;

// A submission may have waited for the database.
constexpr seconds longestDelay{60};

// D-Bus carries no larger one: what is larger is no record, and not read into memory.
constexpr std::int64_t largestRecord = std::int64_t{64} << 20U;

// jsoncpp's tree of a record takes up to 90 times its size. One that has words for people has a few
// KiB.
constexpr std::size_t largestTree = std::size_t{256} << 10U;

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
    return lstat(file.c_str(), &status) == 0 ? std::optional{std::int64_t{status.st_mtime}}
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

Summary summaryOfSmallEvent(std::span<const std::uint8_t> raw) {
    return raw.size() <= largestTree ? summaryOfEvent(raw) : Summary{};
}

/** What both say. */
Summary common(const Summary& one, const Summary& other) {
    return {one.sentence == other.sentence ? one.sentence : "",
            one.part == other.part ? one.part : ""};
}

} // namespace

std::string RawPlace::forEachFile(const std::function<void(const fs::path&, seconds)>& take) const {
    std::error_code error;
    for (const auto& file : fs::directory_iterator{directory, error}) {
        std::error_code gone;
        const auto kept = secondsOf(file.path());
        if (kept && file.symlink_status(gone).type() == fs::file_type::regular) {
            take(file.path(), seconds{*kept});
        }
    }
    return error && error != std::errc::no_such_file_or_directory
               ? directory + ": " + error.message()
               : "";
}

std::optional<Bytes> readRawFile(const fs::path& file) {
    RegularFile opened{file.string()};
    if (!opened.problem().empty() || opened.status().st_size > largestRecord) {
        return {};
    }
    Bytes bytes(static_cast<std::size_t>(opened.status().st_size));
    bytes.resize(opened.read({reinterpret_cast<char*>(bytes.data()), bytes.size()}));
    return opened.problem().empty() ? std::optional{std::move(bytes)} : std::nullopt;
}

std::optional<Verdict> RawPlace::classify(const Bytes& raw) const {
    const auto record = toEventRecord(raw);
    return record ? std::optional{tavrisk::classify(*record)} : std::nullopt;
}

std::optional<Verdict> RawPlace::classify(const fs::path& file) const {
    const auto raw = readRawFile(file);
    return raw ? classify(*raw) : std::nullopt;
}

std::array<RawPlace, 2> rawPlacesBelow(const std::string& root) {
    return {RawPlace{root, secondsInName, asItIs, summaryOfSmallEvent},
            RawPlace{root + rawCperDirectory, secondsOfWriting, toSummary, summaryOfCper}};
}

bool isCper(const fs::path& file) {
    return (file.parent_path() / "").native().ends_with(rawCperDirectory);
}

Content contentOf(const fs::path& file, std::span<const std::uint8_t> raw) {
    if (isCper(file)) {
        return contentOfCper(raw);
    }
    return raw.size() <= largestTree ? contentOfEvent(raw)
                                     : Content{{}, "Too large for its words to be looked at\n"};
}

std::string partOf(const LogEntry& entry, const RawFiles& files) {
    return files.summary.part.empty() || files.isGuess() ? entry.device() : files.summary.part;
}

/** A data tree; its directories are read when it is first looked at. */
class RawFileIndex::Tree {
public:
    explicit Tree(const std::string& root) : places_{rawPlacesBelow(root)} {}

    /** Adds those of the entry, or why there may be more than can be seen. */
    void addTo(RawFiles& found, const LogEntry& entry, Contents& last);

private:
    struct File {
        seconds kept;
        std::string path;
        const RawPlace* place;
        bool isRead = false;
        std::optional<Verdict> verdict{};
        Summary summary{};
    };

    void list();
    static std::optional<Bytes> read(File& file);

    std::array<RawPlace, 2> places_;
    bool isListed_ = false;
    std::vector<File> files_; // those kept first at the beginning
    std::string problem_;
};

void RawFileIndex::Tree::list() {
    for (const auto& place : places_) {
        const auto problem = place.forEachFile([&](const fs::path& file, seconds kept) {
            files_.push_back({kept, file.string(), &place});
        });
        problem_ = problem_.empty() ? problem : problem_;
    }
    std::sort(files_.begin(), files_.end(), [](const File& a, const File& b) {
        return std::tie(a.kept, a.path) < std::tie(b.kept, b.path);
    });
}

/** Its bytes, the first time. */
std::optional<Bytes> RawFileIndex::Tree::read(File& file) {
    if (std::exchange(file.isRead, true)) {
        return {};
    }
    auto raw = readRawFile(file.path);
    if (raw) {
        file.verdict = file.place->classify(*raw);
        file.summary = file.place->summaryOf(*raw);
    }
    return raw;
}

void RawFileIndex::Tree::addTo(RawFiles& found, const LogEntry& entry, Contents& last) {
    if (!std::exchange(isListed_, true)) {
        list();
    }
    found.unreadable = found.unreadable.empty() ? problem_ : found.unreadable;
    const auto time = fromLogTime(entry.time);
    const auto made = time ? std::chrono::floor<seconds>(time->time_since_epoch()) : seconds{0};
    auto file = std::upper_bound(files_.begin(), files_.end(), made,
                                 [](seconds at, const File& other) { return at < other.kept; });
    for (auto longest = longestDelay; file != files_.begin();) {
        --file;
        if (made - file->kept > longest) {
            break;
        }
        auto raw = read(*file);
        if (file->verdict && wouldMake(entry, *file->verdict)) {
            longest = found.delay = made - file->kept;
            found.summary =
                found.paths.empty() ? file->summary : common(found.summary, file->summary);
            found.paths.insert(found.paths.begin(), file->path);
            if (raw) {
                last = {file->path, std::move(*raw)};
            }
        }
    }
}

RawFileIndex::RawFileIndex() {
    for (const std::string root : {dataRoot, savedRoot}) {
        trees_.emplace_back(root);
    }
}

RawFileIndex::~RawFileIndex() = default;

RawFiles RawFileIndex::find(const LogEntry& entry) {
    RawFiles found;
    for (auto& tree : trees_) {
        if (found.paths.empty()) {
            tree.addTo(found, entry, last_);
        }
    }
    return found;
}

const Bytes& RawFileIndex::bytesOf(const std::string& path) {
    if (last_.path != path) {
        last_ = {path, readRawFile(path).value_or(Bytes{})};
    }
    return last_.bytes;
}

} // namespace tavrisk::tools
