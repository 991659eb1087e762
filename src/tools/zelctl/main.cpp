// SPDX-License-Identifier: Apache-2.0
#include "tools/common/command_line.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/form.hpp"
#include "tools/zelctl/pager.hpp"

#include <array>
#include <clocale>
#include <cstdint>
#include <optional>

namespace {

using namespace tavrisk;
using namespace tavrisk::tools;

enum class Paged { no, yes };

bool wantsPager(const Arguments& arguments) {
    return Style::ofStandardOutput().terminal && formOf(arguments) == Form::text &&
           !arguments.has("no-pager") && !arguments.has("null");
}

[[noreturn]] void fail(const Log& log, const zel::SqliteError& error) {
    const auto code = error.code();
    throw Failure{Exit::failed, log.path() + ": " +
                                    (code == SQLITE_READONLY  ? "this user may not write to it"
                                     : code == SQLITE_CORRUPT ? "it is damaged; see 'zelctl verify'"
                                                              : error.what())};
}

/** Has a command done on the log that the command line names. */
template <Exit (*Command)(const Log&, const Arguments&), Paged Pages = Paged::no>
Exit on(const Arguments& arguments) {
    const Log log{arguments};
    std::optional<Pager> pager;
    if (Pages == Paged::yes && wantsPager(arguments)) {
        pager.emplace();
    }
    try {
        return Command(log, arguments);
    } catch (const zel::SqliteError& error) {
        fail(log, error);
    }
}

constexpr auto timeNotes =
    "TIME is a date with or without a time of day, '2025-01-31 23:59:59.5' with a\n"
    "blank or a 'T', local unless 'Z' or an offset such as '+01:00' follows; 'now',\n"
    "'today', 'yesterday' or a time of day alone, '13:00'; how long ago, such as\n"
    "'-1h30m' or '1 hour ago' (w, d, h, m and s); or '@' and seconds since 1970.\n";

constexpr std::array commands{
    CommandRow{
        "list", "", 0, 0,
        "since until severity id not-id device not-device grep after boot boots open long fold "
        "limit reverse json output base no-pager db",
        "show entries, newest first", timeNotes, on<list, Paged::yes>},
    CommandRow{
        "follow", "", 0, 0,
        "since until severity id not-id device not-device grep after boot open limit reverse json "
        "output db",
        "show new entries as they come, until interrupted",
        "With --since or --after, those that are there come first. --after=SEQ goes on\n"
        "where another run has ended: SEQ is the sequence number it printed last. No\n"
        "entry is lost or repeated. For TIME see 'zelctl --help'.\n",
        on<follow>},
    CommandRow{"show", "SEQ", 1, 1, "json output no-pager db",
               "show one entry whole, and the file it came from", "SEQ is its sequence number.\n",
               on<show, Paged::yes>},
    CommandRow{
        "report", "", 0, 0,
        "since until severity id not-id device not-device grep after boot open limit to "
        "bundle no-pager db",
        "write one page to attach to a ticket, or a bundle",
        "Shows the newest 2,000 entries, or as many as --limit says. A bundle has the page,\n"
        "entries and health as JSON, the raw files of what the page shows, and the debug\n"
        "log.\n",
        on<report>},
    CommandRow{"ack", "[SEQ...]", 0, SIZE_MAX, "note losses json output db",
               "note that somebody has seen to entries", "SEQ are their sequence numbers.\n",
               on<ack>},
    CommandRow{"stats", "", 0, 0,
               "since until severity id not-id device not-device grep after boot open parts json "
               "output no-pager db",
               "show the log's health, how many entries of what, and when", timeNotes,
               on<stats, Paged::yes>},
    CommandRow{"check", "", 0, 0, "since json output db",
               "tell a monitor in one line how things are",
               "Exit status: 0 well; 1 warning: salvaged entries, a database set aside, events\n"
               "that wait, or a log nine tenths full; 2 critical: critical entries or losses\n"
               "that nobody has acknowledged; 3 unknown. For TIME see 'zelctl --help'.\n",
               on<check>},
    CommandRow{"metrics", "", 0, 0, "to db", "write the log's figures for Prometheus",
               "Also of a log that cannot be read: tavrisk_zel_readable is 0 then.\n", on<metrics>},
    CommandRow{"verify", "", 0, 0, "json output db", "check the database", "", on<verify>},
    CommandRow{"backup", "FILE", 1, 1, "db", "copy the log, whole, while it is written",
               "FILE must not be there yet.\n", on<backup>},
    CommandRow{"recover", "", 0, 0, "null cper json output no-pager db",
               "find accepted events that never became entries",
               "Only of files of which it is certain; the others are listed as 'cannot tell'.\n"
               "To hand them in again:\n"
               "  zelctl recover --null | xargs -0r tavriskctl log --remove-accepted\n"
               "  zelctl recover --null --cper | xargs -0r tavriskctl cper\n",
               on<recover, Paged::yes>},
    CommandRow{"clear", "", 0, 0, "yes db", "remove all entries; sequence numbers go on", "",
               on<clear>},
};

constexpr std::array options{
    OptionRow{"since", 0, "TIME", "entries from that time on"},
    OptionRow{"until", 0, "TIME", "entries up to TIME; a day, minute or second counts whole"},
    OptionRow{"severity", 0, "WORD", "critical, warning or other; several; or warning+"},
    OptionRow{"id", 0, "ID", "a message, such as HMC0005; or several"},
    OptionRow{"not-id", 0, "ID", "all messages but that"},
    OptionRow{"device", 0, "TEXT", "devices with TEXT in their name, in either case"},
    OptionRow{"not-device", 0, "TEXT", "all devices but those"},
    OptionRow{"grep", 0, "TEXT", "entries with TEXT in message or arguments"},
    OptionRow{"after", 0, "SEQ", "entries with a higher sequence number"},
    OptionRow{"boot", 0, "BOOT", "entries of a boot: 0 this, -1 the one before, or its ID"},
    OptionRow{"open", 0, nullptr, "entries that nobody has acknowledged"},
    OptionRow{"boots", 0, nullptr, "for list: the boots instead"},
    OptionRow{"long", 0, nullptr, "for list: with what each entry's record says"},
    OptionRow{"parts", 0, nullptr, "for stats: by the parts that the records name, too"},
    OptionRow{"fold", 0, nullptr, "for list: one line for all repeats of an entry"},
    OptionRow{"limit", 'n', "N", "stop after N entries"},
    OptionRow{"reverse", 'r', nullptr, "oldest first, as follow has them always"},
    OptionRow{"output", 0, "FORM", "short, json or csv; list has redfish as well"},
    OptionRow{"base", 0, "PATH", "for list --output=redfish: where it is served"},
    OptionRow{"json", 0, nullptr, "one JSON object per line, see zelctl.schema.json"},
    OptionRow{"no-pager", 0, nullptr, "do not page on a terminal", true},
    OptionRow{"db", 0, "PATH", "read another database than the system's", true},
    OptionRow{"note", 0, "TEXT", "for ack: what else there is to say"},
    OptionRow{"losses", 0, nullptr, "for ack: the events that were lost so far"},
    OptionRow{"to", 'o', "FILE", "where report and metrics go: replaced at once and whole"},
    OptionRow{"bundle", 0, "FILE", "for report: a .tar.gz of all that belongs to it"},
    OptionRow{"null", 0, nullptr, "for recover: paths alone, with a NUL behind each"},
    OptionRow{"cper", 0, nullptr, "for recover: with --null, of CPERs"},
    OptionRow{"yes", 0, nullptr, "for clear: yes, all of them"},
};

constexpr Program zelctl{
    "zelctl",
    "Shows what the platform event log (ZEL) of this machine holds.",
    commands,
    options,
    timeNotes,
    "Exit status: 0 done; 1 a problem, told on standard error or found by verify;\n"
    "2 wrong usage. That of check is in its help.\n"};

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // NOLINT(concurrency-mt-unsafe): there is one thread
    return run(zelctl, argc, argv);
}
