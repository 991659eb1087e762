// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/journal.hpp"

#include <systemd/sd-journal.h>

#include <array>
#include <memory>
#include <string_view>

namespace tavrisk::tools {
namespace {

struct CloseJournal {
    void operator()(sd_journal* journal) const noexcept { sd_journal_close(journal); }
};
using Journal = std::unique_ptr<sd_journal, CloseJournal>;

/** What each lost event has one line of, and what that says. */
struct Line {
    std::string_view part;
    const char* cause;
};
constexpr std::array lines{
    Line{"Failed to log OSKA Message", "refused by the event log"},
    Line{"kelpc_initialize failed", "refused by the data store"},
    Line{"event dropped: ", "no memory"},
    Line{"Failed starting worker thread", "no thread"},
};

Journal openJournal() {
    sd_journal* opened = nullptr;
    if (sd_journal_open(&opened, SD_JOURNAL_LOCAL_ONLY | SD_JOURNAL_SYSTEM) < 0) {
        return nullptr;
    }
    Journal journal{opened};
    sd_id128_t boot{};
    std::array<char, SD_ID128_STRING_MAX> id{};
    const bool hasFiles =
        sd_journal_has_runtime_files(opened) > 0 || sd_journal_has_persistent_files(opened) > 0;
    if (!hasFiles || sd_id128_get_boot(&boot) < 0) {
        return nullptr;
    }
    const std::string thisBoot = std::string{"_BOOT_ID="} + sd_id128_to_string(boot, id.data());
    for (const auto* match : {thisBoot.c_str(), "SYSLOG_IDENTIFIER=tavrisk", "PRIORITY=4"}) {
        if (sd_journal_add_match(opened, match, 0) < 0) {
            return nullptr;
        }
    }
    return journal;
}

std::string_view message(sd_journal* journal) {
    const void* data = nullptr;
    std::size_t size = 0;
    return sd_journal_get_data(journal, "MESSAGE", &data, &size) < 0
               ? std::string_view{}
               : std::string_view{static_cast<const char*>(data), size};
}

} // namespace

std::optional<std::vector<LostEvents>> lossesInJournal() {
    const auto journal = openJournal();
    if (!journal) {
        return {};
    }
    std::array<std::int64_t, lines.size()> counts{};
    while (sd_journal_next(journal.get()) > 0) {
        for (std::size_t i = 0; i < lines.size(); ++i) {
            counts.at(i) +=
                message(journal.get()).find(lines.at(i).part) != std::string_view::npos ? 1 : 0;
        }
    }
    std::vector<LostEvents> losses;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (counts.at(i) != 0) {
            losses.push_back({lines.at(i).cause, counts.at(i)});
        }
    }
    return losses;
}

} // namespace tavrisk::tools
