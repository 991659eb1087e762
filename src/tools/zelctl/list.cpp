// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"

#include <iostream>

namespace tavrisk::tools {

Exit list(const Log& log, const Arguments& arguments) {
    const auto filter = filterOf(arguments);
    const auto limit = limitOf(arguments);
    const auto style = Style::ofStandardOutput();
    const bool titled = style.terminal && !arguments.json();
    std::int64_t printed = 0;
    if (const auto reader = log.open()) {
        const auto width = std::to_string(reader->health().last).size();
        reader->forEach(filter, arguments.has("reverse"), [&](const LogEntry& entry) {
            if (printed++ == 0 && titled) {
                putLine(titleLine(style, width));
            }
            putLine(arguments.json() ? jsonLine(toJson(entry)) : entryLine(style, entry, width));
            return !limit || printed < *limit;
        });
    }
    if (printed == 0 && titled) {
        std::cerr << "No entries.\n";
    }
    return Exit::done;
}

} // namespace tavrisk::tools
