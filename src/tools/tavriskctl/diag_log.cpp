// SPDX-License-Identifier: Apache-2.0
#include "log/diag_log.hpp"

// Stands in for the daemon's diagnostic log, whose functions this program shares: what it has to
// say goes to its user, and nothing of it into the machine's logs. The daemon's own definition is
// left behind in the archive, and the platform libraries with it.
void diag_log(int /*facility*/, int /*level*/, const char* /*format*/, ...) {}
