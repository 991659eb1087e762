// SPDX-License-Identifier: Apache-2.0
#include "tools/common/command_line.hpp"
#include "tools/zelctl/commands.hpp"

#include <array>
#include <clocale>

namespace {

using namespace tavrisk;
using namespace tavrisk::tools;

/** Has a command done on the log that the command line names. */
template <Exit (*Command)(const Log&, const Arguments&)>
Exit on(const Arguments& arguments) {
    const Log log{arguments};
    try {
        return Command(log, arguments);
    } catch (const zel::SqliteError& error) {
        const bool readOnly = error.code() == SQLITE_READONLY;
        throw Failure{Exit::failed,
                      log.path() + ": " +
                          (readOnly ? "this user may not write to it" : error.what())};
    }
}

constexpr auto timeNotes =
    "TIME is a date with or without a time of day, '2025-01-31 23:59:59.5' with a\n"
    "blank or a 'T', local unless 'Z' or an offset such as '+01:00' follows; 'now';\n"
    "or how long ago, such as '-1h30m' (w, d, h, m and s).\n";

constexpr std::array commands{
    CommandRow{"list", "", 0, 0, "since until severity id device after limit reverse json db",
               "show entries, newest first", timeNotes, on<list>},
    CommandRow{
        "follow", "", 0, 0, "since until severity id device after limit reverse json db",
        "show new entries as they come, until interrupted",
        "With --since or --after, those that are there come first. --after=SEQ goes on where\n"
        "another run has ended: SEQ is the sequence number it printed last. No entry is lost or\n"
        "repeated. For TIME see 'zelctl --help'.\n",
        on<follow>},
    CommandRow{"show", "SEQ", 1, 1, "json db", "show one entry whole, and the file it came from",
               "SEQ is its sequence number.\n", on<show>},
    CommandRow{"stats", "", 0, 0, "since until severity id device after json db",
               "show the health of the log, how many entries of what, and when", timeNotes,
               on<stats>},
    CommandRow{"verify", "", 0, 0, "json db", "check the database", "", on<verify>},
    CommandRow{"clear", "", 0, 0, "yes db", "remove all entries; sequence numbers go on", "",
               on<clear>},
};

constexpr std::array options{
    OptionRow{"since", 0, "TIME", "entries from that time on"},
    OptionRow{"until", 0, "TIME", "entries up to TIME; a day, minute or second counts whole"},
    OptionRow{"severity", 0, "WORD", "critical, warning or other"},
    OptionRow{"id", 0, "ID", "a message, such as HMC0005"},
    OptionRow{"device", 0, "TEXT", "devices with TEXT in their name, in either case"},
    OptionRow{"after", 0, "SEQ", "entries with a higher sequence number"},
    OptionRow{"limit", 'n', "N", "stop after N entries"},
    OptionRow{"reverse", 'r', nullptr, "oldest first, as follow has them always"},
    OptionRow{"json", 0, nullptr, "one JSON object per line, see zelctl.schema.json"},
    OptionRow{"db", 0, "PATH", "read another database than the system's", true},
    OptionRow{"yes", 0, nullptr, "for clear: yes, all of them"},
};

constexpr Program zelctl{
    "zelctl",
    "Shows what the platform event log (ZEL) of this machine holds.",
    commands,
    options,
    timeNotes,
    "Exit status: 0 done; 1 a problem, told on standard error or found by verify;\n"
    "2 wrong usage.\n"};

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // NOLINT(concurrency-mt-unsafe): there is one thread
    return run(zelctl, argc, argv);
}
