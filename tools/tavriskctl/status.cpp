// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/report.hpp"

#include <algorithm>
#include <filesystem>
#include <iomanip>
#include <iostream>
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

std::vector<Directory> measureAll(const std::vector<Property>& properties) {
    const auto location =
        std::find_if(properties.begin(), properties.end(), [](const Property& property) {
            return property.first == "WUXDataCacheLocation";
        });
    if (location == properties.end() || !std::holds_alternative<std::string>(location->second)) {
        return {};
    }
    const auto& root = std::get<std::string>(location->second);
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

void printAsText(const Owner& owner, const std::vector<Property>& properties,
                 const std::vector<Directory>& directories) {
    printRow(busName, "running");
    printRow("owner", owner.uniqueName +
                          (owner.processId ? ", pid " + std::to_string(*owner.processId) : "") +
                          (owner.userId ? ", uid " + std::to_string(*owner.userId) : "") +
                          (owner.command.empty() ? "" : ", " + owner.command));
    for (const auto& [name, value] : properties) {
        printRow(name, toText(value));
    }
    for (const auto& directory : directories) {
        printRow(directory.path, directory.error
                                     ? "cannot be read: " + directory.error.message()
                                     : std::to_string(directory.files) +
                                           (directory.files == 1 ? " file, " : " files, ") +
                                           std::to_string(directory.bytes) + " bytes");
    }
}

void printAsJson(const Owner& owner, const std::vector<Property>& properties,
                 const std::vector<Directory>& directories) {
    Json::Value object;
    object["command"] = "status";
    object["result"] = "accepted";
    object["owner"] = ownerToJson(owner);
    for (const auto& [name, value] : properties) {
        object["properties"][name] = toJson(value);
    }
    object["directories"] = Json::arrayValue;
    for (const auto& directory : directories) {
        object["directories"].append(directoryToJson(directory));
    }
    printJson(object);
}

} // namespace

Exit status(const Options& options) {
    Daemon daemon{options.bus, options.timeout};
    const auto owner = daemon.owner();
    if (!owner) {
        throw Failure{Exit::unreachable,
                      std::string{"the daemon is not running: nobody owns "} + busName};
    }
    const auto properties = daemon.properties();
    const auto directories = measureAll(properties);
    (options.json ? printAsJson : printAsText)(*owner, properties, directories);
    return Exit::accepted;
}

} // namespace tavrisk::ctl
