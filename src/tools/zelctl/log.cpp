// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/log.hpp"

#include "platform/config.hpp"
#include "records/catalogue.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/time_text.hpp"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace tavrisk::tools {
namespace {

constexpr std::array filters{"since",      "until", "severity", "id",   "not-id", "device",
                             "not-device", "grep",  "after",    "boot", "open"};

std::optional<std::int64_t> numberOf(const Arguments& arguments, const char* option,
                                     std::int64_t least) {
    const auto text = arguments.value(option);
    return text ? std::optional{toNumber(std::string{"--"} + option, *text, least)} : std::nullopt;
}

/** The words of all values, which may have several with commas between. */
std::vector<std::string> wordsOf(const Arguments& arguments, const char* option) {
    std::vector<std::string> words;
    for (const auto& value : arguments.values(option)) {
        for (std::size_t begin = 0; begin <= value.size();) {
            const auto end = std::min(value.find(',', begin), value.size());
            words.push_back(value.substr(begin, end - begin));
            begin = end + 1;
        }
    }
    return words;
}

std::set<Severity> severitiesOf(const Arguments& arguments) {
    std::set<Severity> severities;
    for (const auto& word : wordsOf(arguments, "severity")) {
        const bool andWorse = word.ends_with('+');
        bool found = false;
        for (const auto severity : {Severity::other, Severity::warning, Severity::critical}) {
            const bool isIt = word == name(severity) + std::string{andWorse ? "+" : ""};
            if (isIt || (found && andWorse)) {
                severities.insert(severity);
                found = true;
            }
        }
        if (!found) {
            failUsage("--severity takes critical, warning or other, or warning+ for that and "
                      "worse, not '" +
                      word + "'");
        }
    }
    return severities;
}

std::vector<std::string> idsOf(const Arguments& arguments, const char* option) {
    auto ids = wordsOf(arguments, option);
    for (auto& id : ids) {
        std::transform(id.begin(), id.end(), id.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
        if (findMessage(id) == nullptr) {
            failUsage(std::string{"--"} + option + " takes a message of the catalogue, " +
                      catalogue.front().messageId + " to " + catalogue.back().messageId +
                      ", not '" + id + "'");
        }
    }
    return ids;
}

bool contains(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char a, char b) { return strncasecmp(&a, &b, 1) == 0; }) != text.end();
}

bool hasText(const LogEntry& entry, const std::string& text) {
    return contains(messageText(entry), text) ||
           std::any_of(entry.arguments.begin(), entry.arguments.end(),
                       [&text](const std::string& argument) { return contains(argument, text); });
}

/** What the database cannot be asked for. */
std::function<bool(const LogEntry&)> textFilterOf(const Arguments& arguments) {
    if (!arguments.has("device") && !arguments.has("not-device") && !arguments.has("grep")) {
        return {};
    }
    const auto anyIn = [](const std::vector<std::string>& parts, const std::string& text) {
        return std::any_of(parts.begin(), parts.end(),
                           [&text](const std::string& part) { return contains(text, part); });
    };
    return [anyIn, devices = arguments.values("device"), others = arguments.values("not-device"),
            texts = arguments.values("grep")](const LogEntry& entry) {
        return (devices.empty() || anyIn(devices, entry.device())) &&
               !anyIn(others, entry.device()) &&
               std::all_of(texts.begin(), texts.end(),
                           [&entry](const std::string& text) { return hasText(entry, text); });
    };
}

/** The boot that is so many before this one in the log. */
std::optional<std::string> bootBefore(std::vector<zel::Boot> boots, std::size_t count) {
    const auto present = thisBoot();
    std::erase_if(boots, [&present](const zel::Boot& boot) { return boot.id == present; });
    return count <= boots.size() ? std::optional{boots[boots.size() - count].id} : std::nullopt;
}

} // namespace

std::string thisBoot() {
    std::string id;
    std::getline(std::ifstream{"/proc/sys/kernel/random/boot_id"}, id);
    return id;
}

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
    const int error = errno;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    const auto problem = path_ + ": " + std::strerror(error);
    if (error != ENOENT) {
        throw zel::Unreadable{problem};
    }
    if (!isSystems_) {
        throw Failure{Exit::failed, problem};
    }
    return true;
}

std::optional<LogReader> Log::open() const {
    return isYetToCome() ? std::nullopt : std::optional{LogReader::open(path_)};
}

std::string problemOfReading(const std::function<void()>& work) {
    try {
        work();
    } catch (const zel::SqliteError& error) {
        return error.what();
    } catch (const zel::Unreadable& problem) {
        return problem.what();
    }
    return {};
}

std::optional<std::string> timeOf(const Arguments& arguments, const char* option, bool last) {
    const auto text = arguments.value(option);
    auto time = text ? parseTime(*text, now(), last ? Bound::last : Bound::first) : std::nullopt;
    if (text && !time) {
        failUsage(std::string{"--"} + option + " takes a TIME, not '" + *text + "'");
    }
    return time;
}

Filter filterOf(const Arguments& arguments) {
    return {.since = timeOf(arguments, "since", false),
            .until = timeOf(arguments, "until", true),
            .severities = severitiesOf(arguments),
            .messageIds = idsOf(arguments, "id"),
            .otherThanIds = idsOf(arguments, "not-id"),
            .after = numberOf(arguments, "after", 0),
            .bootId = arguments.value("boot"),
            .open = arguments.has("open"),
            .also = textFilterOf(arguments)};
}

bool isFiltered(const Arguments& arguments) {
    return std::any_of(filters.begin(), filters.end(),
                       [&arguments](const char* option) { return arguments.has(option); });
}

void resolveBoot(Filter& filter, const LogReader& reader) {
    if (!filter.bootId) {
        return;
    }
    const auto& text = *filter.bootId;
    const auto boots = reader.boots();
    std::optional<std::string> found;
    if (text == "0" || text == thisBoot()) {
        found = thisBoot();
    } else if (text.starts_with('-')) {
        found = bootBefore(boots, static_cast<std::size_t>(toNumber("--boot", text.substr(1), 1)));
    } else {
        for (const auto& boot : boots) {
            found = !text.empty() && boot.id.starts_with(text) ? boot.id : found;
        }
    }
    if (!found) {
        throw Failure{Exit::failed, "there are no entries of a boot '" + text + "'"};
    }
    filter.bootId = found;
}

std::optional<std::int64_t> limitOf(const Arguments& arguments) {
    return numberOf(arguments, "limit", 1);
}

} // namespace tavrisk::tools
