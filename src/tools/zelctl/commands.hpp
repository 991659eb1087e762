// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/command_line.hpp"
#include "tools/zelctl/log.hpp"

#include <json/value.h>

namespace tavrisk::tools {

// One function per command. What keeps it from being done is raised: a Failure, or what the reader
// of the log raises.

Exit list(const Log& log, const Arguments& arguments);
/** Ends when it has printed as many entries as asked for, the filter's time is over, or nobody
 *  reads any more. Waits for a log that is not there yet. */
Exit follow(const Log& log, const Arguments& arguments);
Exit show(const Log& log, const Arguments& arguments);
Exit stats(const Log& log, const Arguments& arguments);
/** What that prints as JSON, with the parts. */
Json::Value statisticsOf(const Log& log, const Arguments& arguments);
/** Of a damaged log the findings are what it prints, and the status is Exit::failed. */
Exit verify(const Log& log, const Arguments& arguments);
Exit clear(const Log& log, const Arguments& arguments);
Exit ack(const Log& log, const Arguments& arguments);
/** The status is what monitors know: 0 well, 1 a warning, 2 critical, 3 unknown. */
Exit check(const Log& log, const Arguments& arguments);
/** For Prometheus. Of a log that cannot be read it writes that, and raises why. */
Exit metrics(const Log& log, const Arguments& arguments);
Exit backup(const Log& log, const Arguments& arguments);
/** Writes a page of HTML, a bundle with it, or both, each whole or not at all. */
Exit report(const Log& log, const Arguments& arguments);
Exit recover(const Log& log, const Arguments& arguments);

} // namespace tavrisk::tools
