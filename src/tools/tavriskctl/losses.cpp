// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/losses.hpp"

#include "text/utc_time.hpp"
#include "tools/common/failure.hpp"

#include <systemd/sd-journal.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace tavrisk::tools {
namespace {

/** How a line of the daemon begins that says that one event is lost, and by what. */
struct LossLine {
    std::string_view beginning;
    const char* cause;
};
constexpr std::array lossLines{
    LossLine{"tavrisk_generate_event: Failed to log OSKA Message ", "refused by the event log"},
    LossLine{"zel_wux_fault_logging_thread : kelpc_initialize failed", "refused by the data store"},
    LossLine{"zel_wux_fault_logging_thread : event dropped", "want of memory"},
    LossLine{"LogEvent : tavrisk_daemon_thread not started, rc = -1", "no worker to be had"},
};
// What was not written there may have told of more.
constexpr std::string_view linesMissing{"diag_log: syslog did not read, lines not written: "};

struct Losses {
    std::array<std::uint64_t, lossLines.size()> byLine{};
    std::uint64_t events = 0;
    std::uint64_t linesNotWritten = 0;
    std::string last;
};

struct Close {
    void operator()(sd_journal* journal) const noexcept { sd_journal_close(journal); }
};
using Journal = std::unique_ptr<sd_journal, Close>;

int checked(int result) {
    if (result < 0) {
        throw Failure{Exit::failed, std::strerror(-result)};
    }
    return result;
}

/** The lines of the daemon from warnings on. Raises Failure when there is nothing to read. */
Journal openJournal() {
    sd_journal* opened = nullptr;
    checked(sd_journal_open(&opened, SD_JOURNAL_LOCAL_ONLY | SD_JOURNAL_SYSTEM));
    Journal journal{opened};
    if (sd_journal_has_runtime_files(opened) <= 0 && sd_journal_has_persistent_files(opened) <= 0) {
        throw Failure{Exit::failed, "no journal that you may read"};
    }
    for (const auto* match : {"SYSLOG_IDENTIFIER=tavrisk", "PRIORITY=4"}) {
        checked(sd_journal_add_match(opened, match, 0));
    }
    return journal;
}

std::string_view messageOf(sd_journal* journal) {
    constexpr std::string_view field{"MESSAGE="};
    const void* data = nullptr;
    std::size_t size = 0;
    if (sd_journal_get_data(journal, "MESSAGE", &data, &size) < 0) {
        return {};
    }
    auto message = std::string_view{static_cast<const char*>(data), size}.substr(field.size());
    message.remove_prefix(std::min(message.find_first_not_of(' '), message.size()));
    return message;
}

std::string timeOf(sd_journal* journal) {
    std::uint64_t microseconds = 0;
    sd_journal_get_realtime_usec(journal, &microseconds);
    const std::chrono::sys_time<std::chrono::microseconds> time{
        std::chrono::microseconds{microseconds}};
    return std::string{text::UtcTime{time}.text()};
}

void count(Losses& losses, sd_journal* journal) {
    const auto message = messageOf(journal);
    // Only at the beginning: what follows may be of a peer's making.
    for (std::size_t i = 0; i < lossLines.size(); ++i) {
        if (message.starts_with(lossLines[i].beginning)) {
            ++losses.byLine[i];
            ++losses.events;
            losses.last = timeOf(journal);
        }
    }
    if (message.starts_with(linesMissing)) {
        std::uint64_t lines = 0;
        std::from_chars(message.begin() + linesMissing.size(), message.end(), lines);
        losses.linesNotWritten += lines;
    }
}

Losses readJournal() {
    const auto journal = openJournal();
    Losses losses;
    while (checked(sd_journal_next(journal.get())) > 0) {
        count(losses, journal.get());
    }
    return losses;
}

std::vector<Fact> factsOf(const Losses& losses) {
    Json::Value all;
    all["events"] = Json::UInt64{losses.events};
    all["linesNotWritten"] = Json::UInt64{losses.linesNotWritten};
    all["causes"] = Json::objectValue;
    if (losses.events != 0) {
        all["last"] = losses.last;
    }
    std::vector<Fact> facts{
        {"lost events", losses.events == 0
                            ? "none in the journal"
                            : std::to_string(losses.events) + ", the last at " + losses.last}};
    for (std::size_t i = 0; i < lossLines.size(); ++i) {
        if (const auto events = losses.byLine[i]; events != 0) {
            facts.push_back({std::string{"  "} + lossLines[i].cause, std::to_string(events)});
            all["causes"][lossLines[i].cause] = Json::UInt64{events};
        }
    }
    if (losses.linesNotWritten != 0) {
        facts.push_back({"  lines not written", std::to_string(losses.linesNotWritten)});
    }
    facts.push_back({"", "", "losses", all});
    return facts;
}

} // namespace

std::vector<const char*> lossCauses() {
    std::vector<const char*> causes;
    causes.reserve(std::size(lossLines));
    for (const auto& line : lossLines) {
        causes.push_back(line.cause);
    }
    return causes;
}

std::vector<Fact> lossesInJournal() {
    try {
        return factsOf(readJournal());
    } catch (const Failure& failure) {
        Fact fact{"lost events", std::string{"cannot be told: "} + failure.what(), "losses"};
        fact.json["error"] = failure.what();
        return {fact};
    }
}

} // namespace tavrisk::tools
