// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"
#include "tools/zelctl/commands.hpp"
#include "zel/store.hpp"

namespace tavrisk::tools {

Exit clear(const Log& log, const Arguments& arguments) {
    if (!arguments.has("yes")) {
        failUsage("clear removes all entries for good; say so with --yes");
    }
    if (const auto reader = log.open()) {
        const auto entries = reader->health().entries;
        zel::Store{log.path()}.clear();
        putLine("entries removed: " + std::to_string(entries));
    } else {
        putLine("there is nothing to remove");
    }
    return Exit::done;
}

} // namespace tavrisk::tools
