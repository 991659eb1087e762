// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/bundle.hpp"

#include "contract/places.hpp"
#include "platform/config.hpp"
#include "text/ascii.hpp"
#include "tools/common/failure.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/condition.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/report/archive.hpp"
#include "tools/zelctl/report/gzip.hpp"
#include "tools/zelctl/time_text.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>

namespace tavrisk::tools {
namespace {

bool isPlain(char c) {
    constexpr std::string_view others{"-_."};
    return text::isAlphanumeric(c) || others.find(c) != std::string_view::npos;
}

constexpr auto givenName = "renamed-";

/** Whether any machine can have a file of that name, and no program takes it for something else. */
bool isHarmlessName(std::string_view name) {
    constexpr std::size_t longest = 200;
    return !name.empty() && name.size() <= longest && name.front() != '.' && name.front() != '-' &&
           !name.starts_with(givenName) && std::all_of(name.begin(), name.end(), isPlain);
}

std::string hostName() {
    std::array<char, 65> name{};
    gethostname(name.data(), name.size() - 1);
    std::string host{name.data()};
    std::replace_if(
        host.begin(), host.end(), [](char c) { return !isPlain(c); }, '_');
    return host;
}

/** "tavrisk-HOST-20250131T235959Z": UTC, so that those of several machines stay in order. */
std::string topName() {
    const auto time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    tm utc{};
    gmtime_r(&time, &utc);
    std::array<char, 32> text{};
    return "tavrisk-" + hostName() + "-" +
           std::string(text.data(),
                       std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &utc));
}

void writeEntries(Spool& spool, const Log& log, const Arguments& arguments, std::int64_t newest) {
    const auto reader = log.open();
    if (!reader) {
        return;
    }
    auto filter = filterOf(arguments);
    resolveBoot(filter, *reader);
    auto left = limitOf(arguments).value_or(INT64_MAX);
    reader->forEach(filter, false, [&](const LogEntry& entry) {
        if (entry.sequence <= newest) {
            spool.write(jsonLine(toJson(entry)) + "\n");
            --left;
        }
        return left > 0;
    });
}

class Bundle {
public:
    explicit Bundle(const Target& target)
        : target_{target},
          gzip_{target.descriptor},
          archive_{[this](std::string_view bytes) { gzip_.write(bytes); }, topName()} {}

    void add(const std::string& name, Spool& bytes) {
        RegularFile file{bytes.reopen()};
        if (file.status().st_size > Archive::largestFile) {
            throw Failure{Exit::failed, name + " is too large for a bundle"};
        }
        add(name, file, "");
    }

    void add(const std::string& name, const std::string& text) {
        Spool spool{target_.path};
        spool.write(text);
        add(name, spool);
    }

    void addEntries(const Log& log, const Arguments& arguments, std::int64_t newest) {
        Spool spool{target_.path};
        const auto problem = problemOfReading([&] { writeEntries(spool, log, arguments, newest); });
        add("entries.json", spool);
        noteLeftOut(log.path(), problem);
    }

    /** As a file of that name, or of another where the name would do harm. */
    void addRawFile(const std::string& path) {
        const auto slash = path.rfind('/') + 1;
        auto name = path.substr(slash);
        if (!isHarmlessName(name)) {
            name = givenName + std::to_string(++renamed_);
        }
        addFile(placeOf(path.substr(0, slash)) + name, path);
    }

    /** Or notes why it is left out. */
    void addFile(const std::string& name, const std::string& path) {
        RegularFile file{path};
        if (!file.problem().empty()) {
            noteLeftOut(path, file.problem());
        } else if (file.status().st_size > Archive::largestFile) {
            noteLeftOut(path, "it is too large");
        } else {
            add(name, file, path);
        }
    }

    /** The debug log and the one before it, where they are. */
    void addDebugLogs() {
        for (const std::string rotated : {"", ".1"}) {
            const auto path = platform::debugLogPath + rotated;
            if (!RegularFile{path}.isMissing()) {
                addFile("debug.log" + rotated, path);
            }
        }
    }

    void noteLeftOut(const std::string& path, const std::string& problem) {
        if (problem.empty()) {
            return;
        }
        Json::Value row;
        row["from"] = path;
        row["problem"] = problem;
        leftOut_.append(row);
    }

    /** The list of all files, and that in the form of sha512sum. */
    void finish() {
        Json::Value manifest;
        manifest["files"] = files_;
        manifest["leftOut"] = leftOut_;
        add("manifest.json", jsonLine(manifest) + "\n");
        add("SHA512SUMS", sums_);
        archive_.finish();
        gzip_.finish();
    }

private:
    static std::string placeOf(const std::string& directory) {
        const bool isCache = directory.starts_with(dataRoot);
        return std::string{isCache ? "raw/cache/" : "raw/store/"} +
               (directory.ends_with(rawCperDirectory) ? rawCperDirectory : "");
    }

    void add(const std::string& name, RegularFile& file, const std::string& from) {
        const auto archived = archive_.add(name, file);
        Json::Value row;
        row["name"] = name;
        row["size"] = Json::Int64{archived.size};
        row["sha512"] = archived.digest;
        if (!from.empty()) {
            row["from"] = from;
            row["changedWhileRead"] = archived.hasChanged;
        }
        if (!archived.problem.empty()) {
            row["problem"] = archived.problem;
        }
        files_.append(row);
        sums_ += archived.digest + "  " + name + "\n";
    }

    Target target_;
    Gzip gzip_;
    Archive archive_;
    Json::Value files_{Json::arrayValue};
    Json::Value leftOut_{Json::arrayValue};
    std::string sums_;
    std::int64_t renamed_ = 0;
};

std::string healthText(const Log& log, const Arguments& arguments) {
    Json::Value health;
    health["check"] = toJson(conditionOf(log, {}), log.path());
    // The check has said what is wrong where there are none.
    problemOfReading([&] { health["stats"] = statisticsOf(log, arguments); });
    return jsonLine(health) + "\n";
}

} // namespace

void pack(const Target& target, Spool& page, const Shown& shown, const Log& log,
          const Arguments& arguments) {
    flushOutput(); // It may be where the bundle goes.
    Bundle bundle{target};
    bundle.add("report.html", page);
    bundle.addEntries(log, arguments, shown.newest);
    bundle.add("health.json", healthText(log, arguments));
    for (const auto& path : shown.rawFiles) {
        bundle.addRawFile(path);
    }
    bundle.noteLeftOut("raw files", shown.unreadable);
    bundle.addDebugLogs();
    bundle.finish();
}

} // namespace tavrisk::tools
