// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/zelctl/raw_file.hpp"
#include "tools/zelctl/report/html.hpp"

#include <cstdint>
#include <map>
#include <string>

namespace tavrisk::tools {

/** Writes entries, each folded away but for what happened, and each record once: entries that it
 *  fits as well point at the first. */
class Entries {
public:
    explicit Entries(Html& html) : html_{html} {}

    void put(const LogEntry& entry, const RawFiles& found);

private:
    void putFacts(const LogEntry& entry);
    void putRawFiles(const LogEntry& entry, const RawFiles& found);
    void putRecord(const std::string& path);

    Html& html_;
    std::map<std::string, std::int64_t> shownAt_; // raw files, and the entries that show them
};

/** A row of a table of facts. */
Html& putFact(Html& html, Markup label, const std::string& text);

} // namespace tavrisk::tools
