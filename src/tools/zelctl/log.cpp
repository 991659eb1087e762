// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/log.hpp"

#include "platform/config.hpp"
#include "tools/zelctl/time_text.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tavrisk::tools {
namespace {

std::optional<std::int64_t> numberOf(const Arguments& arguments, const char* option,
                                     std::int64_t least) {
    const auto text = arguments.value(option);
    return text ? std::optional{toNumber(std::string{"--"} + option, *text, least)} : std::nullopt;
}

std::optional<std::string> timeOf(const Arguments& arguments, const char* option, Bound bound) {
    const auto text = arguments.value(option);
    auto time = text ? parseTime(*text, now(), bound) : std::nullopt;
    if (text && !time) {
        failUsage(std::string{"--"} + option + " takes a TIME, not '" + *text + "'");
    }
    return time;
}

std::optional<Severity> severityOf(const Arguments& arguments) {
    const auto word = arguments.value("severity");
    if (!word) {
        return {};
    }
    for (const auto severity : {Severity::critical, Severity::warning, Severity::other}) {
        if (*word == name(severity)) {
            return severity;
        }
    }
    failUsage("--severity takes critical, warning or other, not '" + *word + "'");
}

} // namespace

Log::Log(const Arguments& arguments)
    : path_{arguments.value("db").value_or(platform::zelPath)}, isSystems_{!arguments.has("db")} {
    if (path_.empty()) {
        failUsage("--db needs a value");
    }
}

bool Log::isYetToCome() const {
    if (access(path_.c_str(), F_OK) == 0) {
        return false;
    }
    if (!isSystems_ || errno != ENOENT) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
        throw Failure{Exit::failed, path_ + ": " + std::strerror(errno)};
    }
    return true;
}

std::optional<LogReader> Log::open() const {
    return isYetToCome() ? std::nullopt : std::optional{LogReader::open(path_)};
}

Filter filterOf(const Arguments& arguments) {
    return {.since = timeOf(arguments, "since", Bound::first),
            .until = timeOf(arguments, "until", Bound::last),
            .severity = severityOf(arguments),
            .messageId = arguments.value("id"),
            .device = arguments.value("device"),
            .after = numberOf(arguments, "after", 0)};
}

std::optional<std::int64_t> limitOf(const Arguments& arguments) {
    return numberOf(arguments, "limit", 1);
}

} // namespace tavrisk::tools
