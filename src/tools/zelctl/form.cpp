// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/form.hpp"

#include "tools/common/output.hpp"

#include <algorithm>
#include <array>

namespace tavrisk::tools {
namespace {

// What people look for first stands to the left, the rest behind it by name.
constexpr std::array<const char*, 8> leftmost{"sequence", "time",    "severity", "messageId",
                                              "device",   "message", "status",   "path"};

std::vector<std::string> columnsOf(const Json::Value& object) {
    std::vector<std::string> columns;
    for (const auto* name : leftmost) {
        if (object.isMember(name)) {
            columns.emplace_back(name);
        }
    }
    for (const auto& name : object.getMemberNames()) {
        if (std::find(columns.begin(), columns.end(), name) == columns.end()) {
            columns.push_back(name);
        }
    }
    return columns;
}

std::string cell(const Json::Value& value) {
    auto text = harmless(value.isNull()     ? ""
                         : value.isString() ? value.asString()
                                            : jsonLine(value));
    if (text.find_first_of("\", ") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + '"';
}

} // namespace

Form formOf(const Arguments& arguments) {
    const auto word = arguments.value("output").value_or(arguments.json() ? "json" : "short");
    if (word == "json") {
        return Form::json;
    }
    if (word == "csv") {
        return Form::csv;
    }
    const bool mayBeRedfish = arguments.command == "list";
    if (word == "redfish" && mayBeRedfish) {
        return Form::redfish;
    }
    if (word != "short") {
        failUsage(std::string{"--output takes short, json"} +
                  (mayBeRedfish ? ", csv or redfish" : " or csv") + ", not '" + word + "'");
    }
    return Form::text;
}

void Records::put(const Json::Value& object) {
    if (form_ == Form::json) {
        putLine(jsonLine(object));
        return;
    }
    const auto putRow = [this](const auto& cellOf) {
        std::string line;
        for (const auto& column : columns_) {
            line += "," + cellOf(column);
        }
        putLine(line.substr(1));
    };
    if (columns_.empty()) {
        columns_ = columnsOf(object);
        putRow([](const std::string& column) { return column; });
    }
    putRow([&object](const std::string& column) { return cell(object[column]); });
}

} // namespace tavrisk::tools
