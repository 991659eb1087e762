// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/options.hpp"

#include "tools/zelctl/time_text.hpp"

#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

namespace tavrisk::zelctl {

const char* const helpText =
    R"(zelctl: what the platform event log (ZEL) of this machine holds

Usage:
  zelctl list [FILTER...] [-n N] [--reverse] [--json]
                         entries, newest first
  zelctl follow [FILTER...] [-n N] [--after SEQ] [--json]
                         new entries as they come, until interrupted
  zelctl show SEQ [--json]
                         one entry whole, and the file it came from
  zelctl stats [FILTER...] [--json]
                         health of the log; how many entries of what, and when
  zelctl verify [--json] check the database
  zelctl clear --yes     remove all entries; sequence numbers go on

Filters, in any combination:
  --since TIME           entries from that time on
  --until TIME           entries up to that time, with all of its day, minute
                         or second when it says no more
  --severity WORD        critical, warning or other
  --id ID                a message, such as HMC0005
  --device TEXT          devices with TEXT in their name, in either case
  --after SEQ            entries with a higher sequence number

Options:
  -n, --limit N          stop after N entries
  -r, --reverse          oldest first; follow always has them so
      --json             JSON, one object per line (see zelctl.schema.json)
      --db PATH          read another database than the system's
  -h, --help             show this
      --version          show the version

TIME is a date with or without a time of day, "2025-01-31 23:59:59.5" with a
blank or a "T", local unless "Z" or an offset such as "+01:00" follows; "now";
or how long ago, such as "-1h30m" (w, d, h, m and s).

follow --after SEQ goes on where another run has ended: SEQ is the sequence
number it printed last. No entry is lost or repeated.

Exit status: 0 done; 1 a problem, told on standard error or found by verify;
2 wrong usage.)";

namespace {

enum Option : int {
    help = 'h',
    limit = 'n',
    reverse = 'r',
    db = 256,
    json,
    since,
    until,
    severity,
    id,
    device,
    after,
    yes,
    version,
};

const std::array longOptions{
    option{"help", no_argument, nullptr, help},
    option{"limit", required_argument, nullptr, limit},
    option{"reverse", no_argument, nullptr, reverse},
    option{"db", required_argument, nullptr, db},
    option{"json", no_argument, nullptr, json},
    option{"since", required_argument, nullptr, since},
    option{"until", required_argument, nullptr, until},
    option{"severity", required_argument, nullptr, severity},
    option{"id", required_argument, nullptr, id},
    option{"device", required_argument, nullptr, device},
    option{"after", required_argument, nullptr, after},
    option{"yes", no_argument, nullptr, yes},
    option{"version", no_argument, nullptr, version},
    option{nullptr, 0, nullptr, 0},
};

struct CommandRow {
    const char* name;
    Command command;
    bool filters; // takes --since and the like
    bool lists;   // takes --limit and --reverse
    bool json;
};

constexpr std::array commands{
    CommandRow{"list", Command::list, true, true, true},
    CommandRow{"follow", Command::follow, true, true, true},
    CommandRow{"show", Command::show, false, false, true},
    CommandRow{"stats", Command::stats, true, false, true},
    CommandRow{"verify", Command::verify, false, false, true},
    CommandRow{"clear", Command::clear, false, false, false},
    CommandRow{"help", Command::help, false, false, false},
};

const CommandRow& findCommand(std::string_view name) {
    const auto* const row = std::find_if(commands.begin(), commands.end(),
                                         [name](const auto& r) { return r.name == name; });
    if (row == commands.end()) {
        throw UsageError{"there is no command \"" + std::string{name} + "\""};
    }
    return *row;
}

std::int64_t number(std::string_view text, std::int64_t smallest, const char* what) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), value);
    if (error != std::errc{} || end != text.end() || value < smallest) {
        throw UsageError{std::string{what} + " must be a number from " + std::to_string(smallest) +
                         ", not \"" + std::string{text} + "\""};
    }
    return value;
}

std::string time(const char* text, const char* what, Bound bound) {
    if (const auto utc = parseTime(text, now(), bound)) {
        return *utc;
    }
    throw UsageError{std::string{what} + ": \"" + text + "\" is no time (see zelctl --help)"};
}

Severity severityNamed(std::string_view word) {
    for (const auto candidate : {Severity::critical, Severity::warning, Severity::other}) {
        if (word == name(candidate)) {
            return candidate;
        }
    }
    throw UsageError{"--severity must be critical, warning or other, not \"" + std::string{word} +
                     "\""};
}

void apply(int option, Options& options) {
    switch (option) {
    case help:
        options.command = Command::help;
        break;
    case version:
        options.command = Command::version;
        break;
    case limit:
        options.limit = number(optarg, 1, "--limit");
        break;
    case reverse:
        options.reverse = true;
        break;
    case db:
        options.database = optarg;
        break;
    case json:
        options.json = true;
        break;
    case since:
        options.filter.since = time(optarg, "--since", Bound::first);
        break;
    case until:
        options.filter.until = time(optarg, "--until", Bound::last);
        break;
    case severity:
        options.filter.severity = severityNamed(optarg);
        break;
    case id:
        options.filter.messageId = optarg;
        break;
    case device:
        options.filter.device = optarg;
        break;
    case after:
        options.filter.after = number(optarg, 0, "--after");
        break;
    case yes:
        options.yes = true;
        break;
    default: // getopt has said what is wrong
        throw UsageError{""};
    }
}

void checkThatOptionsFit(const CommandRow& row, const Options& options) {
    const auto refuse = [&row](bool given, const char* what) {
        if (given) {
            throw UsageError{std::string{what} + " does not go with \"" + row.name + "\""};
        }
    };
    refuse(!row.filters && options.filter != Filter{}, "a filter");
    refuse(!row.lists && options.limit, "--limit");
    refuse(!row.lists && options.reverse, "--reverse");
    refuse(!row.json && options.json, "--json");
    refuse(row.command != Command::clear && options.yes, "--yes");
    if (row.command == Command::clear && !options.yes) {
        throw UsageError{"clear removes all entries for good; say so with --yes"};
    }
}

} // namespace

Options parseOptions(int argc, char** argv) {
    Options options;
    int option = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    while ((option = getopt_long(argc, argv, "hn:r", longOptions.data(), nullptr)) != -1) {
        apply(option, options);
        if (option == help || option == version) {
            return options;
        }
    }
    if (optind == argc) {
        throw UsageError{"a command is missing"};
    }
    const auto& row = findCommand(argv[optind++]);
    options.command = row.command;
    if (row.command == Command::show) {
        if (optind == argc) {
            throw UsageError{"show needs the sequence number of an entry"};
        }
        options.sequence = number(argv[optind++], 1, "the sequence number");
    }
    if (optind != argc) {
        throw UsageError{std::string{"\""} + argv[optind] + "\" is one word too many"};
    }
    checkThatOptionsFit(row, options);
    return options;
}

} // namespace tavrisk::zelctl
