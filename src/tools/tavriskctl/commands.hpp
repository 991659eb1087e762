// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/tavriskctl/options.hpp"

namespace tavrisk::ctl {

// One function per command. Each prints its results and returns the worst of them; a Failure that
// concerns the whole command is raised.

Exit logEvents(const Options& options);
Exit logCpers(const Options& options);
Exit save(const Options& options);
Exit clear(const Options& options);
Exit status(const Options& options);
Exit set(const Options& options);
Exit monitor(const Options& options);
Exit explain(const Options& options);

} // namespace tavrisk::ctl
