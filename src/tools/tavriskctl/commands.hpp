// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/command_line.hpp"

namespace tavrisk::tools {

// One function per command. Each prints its results and returns the worst of them; a Failure that
// concerns the whole command is raised.

Exit logEvents(const Arguments& arguments);
Exit logCpers(const Arguments& arguments);
Exit save(const Arguments& arguments);
Exit clear(const Arguments& arguments);
Exit status(const Arguments& arguments);
Exit set(const Arguments& arguments);
Exit monitor(const Arguments& arguments);
Exit explain(const Arguments& arguments);

} // namespace tavrisk::tools
