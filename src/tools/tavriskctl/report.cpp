// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/report.hpp"

#include "tools/common/output.hpp"
#include "tools/tavriskctl/input.hpp"

#include <unistd.h>

#include <algorithm>
#include <iostream>

namespace tavrisk::tools {
namespace {

const char* resultWord(Exit status) {
    switch (status) {
    case Exit::done:
        return "accepted";
    case Exit::failed:
        return "refused";
    case Exit::usage:
        return "usage";
    case Exit::unreachable:
        break;
    }
    return "unreachable";
}

/** `lines` set in by two blanks. */
std::string setIn(std::string_view lines) {
    std::string text;
    while (!lines.empty()) {
        const auto end = std::min(lines.find('\n'), lines.size() - 1) + 1;
        text += "  " + std::string{lines.substr(0, end)};
        lines.remove_prefix(end);
    }
    return text;
}

/** What goes to standard output. */
std::string textOf(const std::string& subject, const Outcome& outcome) {
    const auto said = outcome.status == Exit::done ? harmless(outcome.sentence) + "\n" : "";
    if (outcome.headline.empty()) {
        return (said.empty() ? "" : subject + ": " + said) + setIn(outcome.lines);
    }
    return subject + ": " + harmless(outcome.headline) + "\n" + setIn(said + outcome.lines);
}

} // namespace

Json::Value resultJson(const std::string& command, Exit status, const std::string& reason) {
    Json::Value object;
    object["command"] = command;
    object["result"] = resultWord(status);
    if (status != Exit::done) {
        object["reason"] = reason;
    }
    return object;
}

Report::Report(const Arguments& arguments, std::size_t requests)
    : arguments_{arguments},
      requests_{requests},
      progress_{!arguments.json() && requests > 1 && isatty(STDOUT_FILENO) == 1 &&
                isatty(STDERR_FILENO) == 1} {}

void Report::tell(const std::string& subject, const Json::Value& about,
                  const std::function<Outcome()>& request) {
    showProgress(subject);
    Outcome outcome;
    try {
        outcome = request();
    } catch (const Failure& failure) {
        outcome = {failure.status(), failure.what()};
    }
    worst_ = std::max(worst_, outcome.status);
    accepted_ += outcome.status == Exit::done ? 1 : 0;
    if (arguments_.json()) {
        printJson(outcome, about);
    } else {
        print(harmless(subject), outcome);
    }
    flushOutput();
}

void Report::tellOfFile(const std::string& file, const std::function<Outcome()>& request) {
    Json::Value about;
    about["file"] = file;
    tell(displayName(file), about, request);
}

void Report::showProgress(const std::string& subject) {
    ++begun_;
    if (progress_) {
        clearProgress();
        // Cut off at the margin: a line that went on below could not be taken back.
        std::cerr << "\033[?7l[" << begun_ << '/' << requests_ << "] " << harmless(subject)
                  << "\033[?7h" << std::flush;
    }
}

void Report::print(const std::string& subject, const Outcome& outcome) const {
    clearProgress();
    if (outcome.status != Exit::done) {
        std::cerr << "tavriskctl: " << subject << ": " << harmless(outcome.sentence) << "\n";
    }
    if (!progress_) {
        put(textOf(subject, outcome));
    }
}

void Report::printJson(const Outcome& outcome, const Json::Value& about) const {
    auto object = outcome.details;
    addMembers(object, about);
    addMembers(object, resultJson(arguments_.command, outcome.status, outcome.sentence));
    putLine(jsonLine(object));
}

Exit Report::finish() {
    if (progress_) {
        clearProgress();
        putLine(std::to_string(accepted_) + " of " + std::to_string(requests_) + " accepted");
    }
    return worst_;
}

void Report::clearProgress() const {
    if (progress_) {
        std::cerr << "\r\033[K";
    }
}

} // namespace tavrisk::tools
