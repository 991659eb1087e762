// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/command_line.hpp"
#include "zel/reader.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tavrisk::tools {

// The event log's own words, which all of this tool speaks.
using zel::Filter;
using zel::Health;
using zel::LogEntry;
using zel::LogReader;

/** The log that the command line names, or the system's. */
class Log {
public:
    /** Raises Failure with Exit::usage for an empty path. */
    explicit Log(const Arguments& arguments);

    [[nodiscard]] const std::string& path() const { return path_; }

    /** At the system's place the first entry makes the database: until then the log is empty.
     *  Raises Failure for another that is not there. */
    bool isYetToCome() const; // NOLINT(modernize-use-nodiscard): to have it raise is a use, too

    /** Nothing when it is yet to come. */
    [[nodiscard]] std::optional<LogReader> open() const;

private:
    std::string path_;
    bool isSystems_;
};

/** Why `work` could not read all of a log that is there; empty when it could. */
std::string problemOfReading(const std::function<void()>& work);

/** Which entries the command line asks for. Raises Failure with Exit::usage. */
Filter filterOf(const Arguments& arguments);
/** Whether it asks for some only. */
bool isFiltered(const Arguments& arguments);
/** A boot that is given by its place or by the beginning of its ID, made one of those that the log
 *  has. Raises Failure when it has none such. */
void resolveBoot(Filter& filter, const LogReader& reader);
/** The ID of the boot that the machine is in. */
std::string thisBoot();
/** How many of them. */
std::optional<std::int64_t> limitOf(const Arguments& arguments);
/** The time of an option, as the log has it; `last` of all that its text names. */
std::optional<std::string> timeOf(const Arguments& arguments, const char* option, bool last);

} // namespace tavrisk::tools
