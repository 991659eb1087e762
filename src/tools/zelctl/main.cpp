// SPDX-License-Identifier: Apache-2.0
#include "platform/config.hpp"
#include "tools/zelctl/follow.hpp"
#include "tools/zelctl/list.hpp"
#include "tools/zelctl/log.hpp"
#include "tools/zelctl/options.hpp"
#include "tools/zelctl/output.hpp"
#include "tools/zelctl/show.hpp"
#include "tools/zelctl/stats.hpp"
#include "tools/zelctl/verify.hpp"
#include "zel/store.hpp"

#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstring>
#include <iostream>
#include <optional>

namespace tavrisk::zelctl {
namespace {

enum ExitStatus : int { done = 0, problem = 1, usage = 2 };

/** At the built-in place the first entry makes the database: until then the log is empty. */
bool isYetToCome(const std::string& path, const Options& options) {
    if (access(path.c_str(), F_OK) == 0) {
        return false;
    }
    if (options.database || errno != ENOENT) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
        throw Problem{path + ": " + std::strerror(errno)};
    }
    return true;
}

void clear(const std::string& path) {
    const auto entries = LogReader::open(path).health().entries;
    zel::Store{path}.clear();
    putLine("entries removed: " + std::to_string(entries));
}

int runCommand(const std::string& path, const Options& options) {
    const bool empty = isYetToCome(path, options);
    if (options.command == Command::follow) {
        follow(path, options);
        return done;
    }
    if (options.command == Command::verify) {
        return verify(path, empty, options) ? done : problem;
    }
    if (options.command == Command::clear) {
        empty ? putLine("there is nothing to remove") : clear(path);
        return done;
    }
    const auto reader = empty ? std::nullopt : std::optional{LogReader::open(path)};
    const auto* const opened = reader ? &*reader : nullptr;
    if (options.command == Command::list) {
        list(opened, options);
    } else if (options.command == Command::show) {
        show(opened, options);
    } else {
        printStats(path, opened, options);
    }
    return done;
}

int run(const Options& options) {
    if (options.command == Command::help) {
        putLine(helpText);
        return done;
    }
    if (options.command == Command::version) {
        putLine("zelctl " TAVRISK_VERSION);
        return done;
    }
    const auto path = options.database.value_or(platform::zelPath);
    if (path.empty()) {
        throw UsageError{"--db needs a path"};
    }
    try {
        return runCommand(path, options);
    } catch (const zel::SqliteError& error) {
        const bool readOnly = error.code() == SQLITE_READONLY;
        throw Problem{path + ": " + (readOnly ? "this user may not write to it" : error.what())};
    }
}

int runAndReport(int argc, char** argv) {
    try {
        const int status = run(parseOptions(argc, argv));
        flushLines();
        return status;
    } catch (const NobodyReads&) {
        return done;
    } catch (const UsageError& error) {
        if (*error.what() != '\0') {
            std::cerr << "zelctl: " << error.what() << '\n';
        }
        std::cerr << "Try \"zelctl --help\".\n";
        return usage;
    } catch (const std::exception& error) {
        std::cerr << "zelctl: " << error.what() << '\n';
        return problem;
    }
}

} // namespace
} // namespace tavrisk::zelctl

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, ""); // NOLINT(concurrency-mt-unsafe): there is one thread
    // Output that nobody reads is noticed where it is written.
    std::signal(SIGPIPE, SIG_IGN);
    return tavrisk::zelctl::runAndReport(argc, argv);
}
