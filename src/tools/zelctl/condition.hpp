// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/log.hpp"

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tavrisk::tools {

/** What monitors know by these numbers, which are the exit status of `check`. */
enum class Level { ok, warning, critical, unknown };

/** How things are with the log. */
struct Condition {
    Level level = Level::ok;
    std::vector<std::string> problems; // the worst first
    std::int64_t entries = 0;

    void add(Level worse, const std::string& problem);
};

/** Of what is newer than --since. What keeps a monitor from knowing is a finding, too. */
Condition conditionOf(const Log& log, const Arguments& arguments);
/** In one line. */
std::string textOf(const Condition& condition);
Json::Value toJson(const Condition& condition, const std::string& path);

} // namespace tavrisk::tools
