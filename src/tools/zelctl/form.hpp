// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/command_line.hpp"

#include <json/value.h>

#include <string>
#include <vector>

namespace tavrisk::tools {

/** Objects of ours in three forms, or, of `list` alone, those of a Redfish server. */
enum class Form { text, json, csv, redfish };

/** The form that --output, or --json, asks for. Raises Failure with Exit::usage. */
Form formOf(const Arguments& arguments);

/** Prints objects for programs: one JSON object, or one line of comma-separated values, each. */
class Records {
public:
    explicit Records(Form form) : form_{form} {}

    /** In CSV, the first one names the columns of all. */
    void put(const Json::Value& object);

private:
    Form form_;
    std::vector<std::string> columns_;
};

} // namespace tavrisk::tools
