// SPDX-License-Identifier: Apache-2.0
#include "contract/places.hpp"
#include "tools/common/output.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/losses.hpp"
#include "tools/tavriskctl/report.hpp"

#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

using namespace std::chrono_literals;

namespace tavrisk::tools {
namespace {

/** Counts the regular files of a directory, without those below it. */
Fact factOf(const std::string& path) {
    std::uintmax_t files = 0;
    std::uintmax_t bytes = 0;
    std::error_code error;
    std::filesystem::directory_iterator entry{path, error};
    while (!error && entry != std::filesystem::directory_iterator{}) {
        // A file may be gone again before it is looked at: it is not counted then.
        std::error_code gone;
        if (entry->symlink_status(gone).type() == std::filesystem::file_type::regular) {
            const auto size = entry->file_size(gone);
            files += gone ? 0 : 1;
            bytes += gone ? 0 : size;
        }
        entry.increment(error);
    }
    Fact fact{harmless(path), "", nullptr};
    fact.json["path"] = path;
    if (error) {
        fact.text = "cannot be read: " + error.message();
        fact.json["error"] = error.message();
    } else {
        fact.text = std::to_string(files) + (files == 1 ? " file, " : " files, ") +
                    sizeText(static_cast<std::int64_t>(bytes));
        fact.json["files"] = Json::UInt64{files};
        fact.json["bytes"] = Json::UInt64{bytes};
    }
    return fact;
}

Fact factOf(const Owner& owner) {
    Fact fact{"owner", owner.uniqueName, "owner"};
    fact.json["name"] = owner.uniqueName;
    if (owner.processId) {
        fact.text += ", pid " + std::to_string(*owner.processId);
        fact.json["pid"] = *owner.processId;
    }
    if (owner.userId) {
        fact.text += ", uid " + std::to_string(*owner.userId);
        fact.json["uid"] = *owner.userId;
    }
    if (!owner.command.empty()) {
        fact.text += ", " + harmless(owner.command);
        fact.json["command"] = owner.command;
    }
    return fact;
}

/** What is known of the daemon; `failure` says why that is not all. */
struct Seen {
    std::optional<Owner> owner;
    std::vector<Property> properties;
    std::optional<Failure> failure;
};

Seen look(const Target& target) {
    Seen seen;
    try {
        Daemon daemon{target};
        seen.owner = daemon.owner();
        if (!seen.owner) {
            throw Failure{Exit::unreachable,
                          std::string{"the daemon is not running: nobody owns "} + busName};
        }
        seen.properties = daemon.properties();
    } catch (const Failure& failure) {
        seen.failure = failure;
    }
    return seen;
}

/** Where the daemon says that its data is, or where that is when it does not say. */
std::string dataCache(const std::vector<Property>& properties) {
    for (const auto& [name, value] : properties) {
        if (name == "WUXDataCacheLocation" && std::holds_alternative<std::string>(value)) {
            return std::get<std::string>(value);
        }
    }
    const std::string_view root{dataRoot};
    return std::string{root.substr(0, root.size() - 1)};
}

/** What can be seen without the daemon, and what it says when it answers. */
std::vector<Fact> factsOf(const Seen& seen) {
    std::vector<Fact> facts;
    if (seen.owner) {
        facts.push_back({busName, seen.failure ? "does not answer" : "running"});
        facts.push_back(factOf(*seen.owner));
    }
    Json::Value properties;
    for (const auto& [name, value] : seen.properties) {
        facts.push_back({harmless(name), harmless(toText(value))});
        properties[name] = toJson(value);
    }
    if (!properties.isNull()) {
        facts.push_back({"", "", "properties", properties});
    }
    const auto cache = dataCache(seen.properties);
    Json::Value directories{Json::arrayValue};
    for (const auto* below : {"", "/dump", "/rawCPER"}) {
        facts.push_back(factOf(cache + below));
        directories.append(facts.back().json);
    }
    facts.push_back({"", "", "directories", directories});
    for (auto& fact : lossesInJournal()) {
        facts.push_back(std::move(fact));
    }
    return facts;
}

} // namespace

Exit status(const Arguments& arguments) {
    const auto seen = look(targetOf(arguments, 25s));
    const auto facts = factsOf(seen);
    const auto status = seen.failure ? seen.failure->status() : Exit::done;
    if (arguments.json()) {
        const std::string reason{seen.failure ? seen.failure->what() : ""};
        putLine(jsonLine(toJson(facts, resultJson(arguments.command, status, reason))));
        return status;
    }
    putFacts(facts, 28);
    if (seen.failure) {
        throw Failure{*seen.failure};
    }
    return status;
}

} // namespace tavrisk::tools
