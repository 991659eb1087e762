// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/list.hpp"

#include "tools/zelctl/output.hpp"
#include "tools/zelctl/render.hpp"

#include <iostream>

namespace tavrisk::zelctl {

void list(const LogReader* reader, const Options& options) {
    const auto style = Style::ofStandardOutput();
    const bool titled = style.terminal && !options.json;
    std::int64_t printed = 0;
    if (reader != nullptr) {
        const auto width = std::to_string(reader->health().last).size();
        reader->forEach(options.filter, options.reverse, [&](const LogEntry& entry) {
            if (printed++ == 0 && titled) {
                putLine(titleLine(style, width));
            }
            putLine(options.json ? jsonLine(toJson(entry)) : entryLine(style, entry, width));
            return !options.limit || printed < *options.limit;
        });
    }
    if (printed == 0 && titled) {
        std::cerr << "No entries.\n";
    }
}

} // namespace tavrisk::zelctl
