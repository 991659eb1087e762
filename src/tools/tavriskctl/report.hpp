// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/command_line.hpp"

#include <json/value.h>

#include <functional>
#include <string>

namespace tavrisk::tools {

/** What came of one request. */
struct Outcome {
    Exit status = Exit::done;
    /** One sentence, without the subject. */
    std::string sentence;
    /** What the subject itself says: a sentence that stands in front of the other, and lines that
     *  stand below it, fit for a terminal, each with a newline. */
    std::string headline{};
    std::string lines{};
    /** What else there is to say, as members of the JSON object. */
    Json::Value details{Json::objectValue};
};

/** The members that the JSON object of every command and request has, one that failed also with a
 *  reason. */
Json::Value resultJson(const std::string& command, Exit status, const std::string& reason);

/**
 * Tells the outcomes of a command's requests one by one, as text (accepted to standard output, all
 * others to standard error) or as one JSON object each. With several requests and a terminal,
 * accepted ones only move the progress on, and a sum stands at the end.
 */
class Report {
public:
    /** `requests` is their number when their progress is to be shown. */
    explicit Report(const Arguments& arguments, std::size_t requests = 1);

    /** Makes a request and tells its outcome; a Failure is one. `about` are the members that the
     *  JSON object has in any case. */
    void tell(const std::string& subject, const Json::Value& about,
              const std::function<Outcome()>& request);

    /** The same for what is done with a file. */
    void tellOfFile(const std::string& file, const std::function<Outcome()>& request);

    [[nodiscard]] Exit worst() const noexcept { return worst_; }

    /** Prints the sum, if one is due; the worst status of all. */
    Exit finish();

private:
    void showProgress(const std::string& subject);
    void print(const std::string& subject, const Outcome& outcome) const;
    void printJson(const Outcome& outcome, const Json::Value& about) const;
    void clearProgress() const;

    const Arguments& arguments_;
    std::size_t requests_;
    bool progress_;
    std::size_t begun_ = 0;
    std::size_t accepted_ = 0;
    Exit worst_ = Exit::done;
};

} // namespace tavrisk::tools
