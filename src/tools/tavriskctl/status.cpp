// SPDX-License-Identifier: Apache-2.0
#include "contract/places.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/report.hpp"

#include <filesystem>
#include <iomanip>
#include <iostream>
#include <optional>
#include <system_error>

namespace tavrisk::ctl {
namespace {

struct Directory {
    std::string path;
    std::uintmax_t files = 0;
    std::uintmax_t bytes = 0;
    std::error_code error;
};

/** Counts the regular files of a directory, without those below it. */
Directory measure(std::string path) {
    Directory directory{.path = std::move(path), .error = {}};
    std::filesystem::directory_iterator entry{directory.path, directory.error};
    while (!directory.error && entry != std::filesystem::directory_iterator{}) {
        // A file may be gone again before it is looked at: it is not counted then.
        std::error_code gone;
        if (entry->symlink_status(gone).type() == std::filesystem::file_type::regular) {
            const auto size = entry->file_size(gone);
            directory.files += gone ? 0 : 1;
            directory.bytes += gone ? 0 : size;
        }
        entry.increment(directory.error);
    }
    return directory;
}

/** Below the place that the daemon names, or where it is when the daemon does not say. */
std::vector<Directory> measureAll(const std::vector<Property>& properties) {
    std::string root{dataRoot};
    root.pop_back();
    for (const auto& [name, value] : properties) {
        if (name == "WUXDataCacheLocation" && std::holds_alternative<std::string>(value)) {
            root = std::get<std::string>(value);
        }
    }
    return {measure(root), measure(root + "/dump"), measure(root + "/rawCPER")};
}

Json::Value directoryToJson(const Directory& directory) {
    Json::Value object;
    object["path"] = directory.path;
    if (directory.error) {
        object["error"] = directory.error.message();
    } else {
        object["files"] = Json::UInt64{directory.files};
        object["bytes"] = Json::UInt64{directory.bytes};
    }
    return object;
}

Json::Value ownerToJson(const Owner& owner) {
    Json::Value object;
    object["name"] = owner.uniqueName;
    if (owner.processId) {
        object["pid"] = *owner.processId;
    }
    if (owner.userId) {
        object["uid"] = *owner.userId;
    }
    if (!owner.command.empty()) {
        object["command"] = owner.command;
    }
    return object;
}

void printRow(const std::string& label, const std::string& text) {
    std::cout << std::left << std::setw(28) << printable(label) << printable(text) << "\n";
}

/** What is known of the daemon; `failure` says why that is not all. */
struct Seen {
    std::optional<Owner> owner;
    std::vector<Property> properties;
    std::vector<Directory> directories;
    std::optional<Failure> failure;
};

/** What can be seen without the daemon, and what it says when it answers. */
Seen look(const Options& options) {
    Seen seen;
    try {
        Daemon daemon{options.bus, options.timeout};
        seen.owner = daemon.owner();
        if (!seen.owner) {
            throw Failure{Exit::unreachable,
                          std::string{"the daemon is not running: nobody owns "} + busName};
        }
        seen.properties = daemon.properties();
    } catch (const Failure& failure) {
        seen.failure = failure;
    }
    seen.directories = measureAll(seen.properties);
    return seen;
}

void printAsText(const Seen& seen) {
    if (seen.owner) {
        printRow(busName, seen.failure ? "does not answer" : "running");
        const auto& owner = *seen.owner;
        printRow("owner", owner.uniqueName +
                              (owner.processId ? ", pid " + std::to_string(*owner.processId) : "") +
                              (owner.userId ? ", uid " + std::to_string(*owner.userId) : "") +
                              (owner.command.empty() ? "" : ", " + owner.command));
    }
    for (const auto& [name, value] : seen.properties) {
        printRow(name, toText(value));
    }
    for (const auto& directory : seen.directories) {
        printRow(directory.path, directory.error
                                     ? "cannot be read: " + directory.error.message()
                                     : std::to_string(directory.files) +
                                           (directory.files == 1 ? " file, " : " files, ") +
                                           std::to_string(directory.bytes) + " bytes");
    }
    if (seen.failure) {
        std::cout << std::flush;
        throw Failure{seen.failure->status(), seen.failure->what()};
    }
}

void printAsJson(const Seen& seen) {
    Json::Value object;
    object["command"] = "status";
    object["result"] = resultWord(seen.failure ? seen.failure->status() : Exit::accepted);
    if (seen.failure) {
        object["reason"] = seen.failure->what();
    }
    if (seen.owner) {
        object["owner"] = ownerToJson(*seen.owner);
    }
    for (const auto& [name, value] : seen.properties) {
        object["properties"][name] = toJson(value);
    }
    object["directories"] = Json::arrayValue;
    for (const auto& directory : seen.directories) {
        object["directories"].append(directoryToJson(directory));
    }
    printJson(object);
}

} // namespace

Exit status(const Options& options) {
    const auto seen = look(options);
    (options.json ? printAsJson : printAsText)(seen);
    return seen.failure ? seen.failure->status() : Exit::accepted;
}

} // namespace tavrisk::ctl
