// SPDX-License-Identifier: Apache-2.0
#include "tools/common/command_line.hpp"
#include "tools/tavriskctl/commands.hpp"

#include <array>

namespace {

using namespace tavrisk::tools;

constexpr std::size_t any = SIZE_MAX;
constexpr auto callOptions = "json bus timeout";
constexpr auto fileNotes = "FILE - is standard input.\n";
constexpr auto submitNotes = "FILE - is standard input. --timeout is 60 by default.\n";

constexpr std::array commands{
    CommandRow{"log", "FILE...", 1, any, "json bus timeout remove-accepted",
               "hand in JSON event records", submitNotes, logEvents},
    CommandRow{"cper", "FILE...", 1, any, callOptions, "hand in UEFI CPERs", submitNotes, logCpers},
    CommandRow{"save", "NAME FILE", 2, 2, callOptions, "have a file kept under a name", submitNotes,
               save},
    CommandRow{"clear", "", 0, 0, callOptions, "have the data cache saved and emptied",
               "--timeout is 1260 by default, which is 21 minutes.\n", clear},
    CommandRow{"status", "", 0, 0, "json bus timeout metrics to",
               "show the daemon, its settings, its data and losses",
               "With --metrics of a daemon that cannot be reached, too: tavrisk_up is 0 then.\n",
               status},
    CommandRow{"set", "PROPERTY VALUE", 2, 2, callOptions, "change a setting",
               "PROPERTY is SystemLEDSetting, a text, or RetentionSizeInMB or\n"
               "RetentionIntervalInMinutes, a number from 0 to 255.\n",
               set},
    CommandRow{"monitor", "", 0, 0, callOptions, "show changes as they come, until interrupted", "",
               monitor},
    CommandRow{"explain", "FILE...", 1, any, "json as verbose",
               "say what records tell and what would become of them", fileNotes, explain},
};

constexpr std::array options{
    OptionRow{"json", 0, nullptr, "one JSON object per line instead of text"},
    OptionRow{"bus", 0, "BUS", "system (the default), session or a D-Bus address", true},
    OptionRow{"timeout", 0, "SECONDS", "longest wait for a reply; by default 25, 0 for ever", true},
    OptionRow{"as", 0, "KIND", "for explain: event or cper; by default by the first bytes"},
    OptionRow{"remove-accepted", 0, nullptr, "for log: remove each file once it is accepted"},
    OptionRow{"metrics", 0, nullptr, "for status: what it tells as figures for Prometheus"},
    OptionRow{"to", 0, "FILE", "for status: with --metrics, replace FILE, at once and whole"},
    OptionRow{"verbose", 0, nullptr, "for explain: all that a CPER says"},
};

constexpr Program tavriskctl{
    "tavriskctl",
    "Hands event records, CPERs and data to the tavrisk daemon, and looks after it.",
    commands,
    options,
    "",
    "Exit status: 0 accepted; 1 refused, or a file not read or sent; 2 wrong usage;\n"
    "3 the daemon could not be reached. Of several files the worst result counts.\n"};

} // namespace

int main(int argc, char** argv) {
    return run(tavriskctl, argc, argv);
}
