// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/command_line.hpp"
#include "tools/zelctl/log.hpp"
#include "tools/zelctl/raw_file.hpp"

#include <cstdint>
#include <string>

namespace tavrisk::tools {

/** Prints entries as one document, a Redfish LogEntryCollection. Nothing is printed before the
 *  first of them, and only the one in hand takes memory. */
class LogEntryCollection {
public:
    /** Its members are served below the path that --base names. Raises Failure with Exit::usage. */
    explicit LogEntryCollection(const Arguments& arguments);

    void put(const LogEntry& entry);

    /** Completes the document. Without it, it is no JSON: what could not be read whole is not taken
     *  for all there is. */
    void end();

    /** Where records could not be looked for, and why; empty when everywhere could. */
    [[nodiscard]] const std::string& unreadable() const { return unreadable_; }

private:
    void begin() const;

    std::string path_;
    RawFileIndex index_;
    std::int64_t members_ = 0;
    std::string unreadable_;
};

} // namespace tavrisk::tools
