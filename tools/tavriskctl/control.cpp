// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/report.hpp"

namespace tavrisk::ctl {
Exit clear(const Options& options) {
    Daemon daemon{options.bus, options.timeout};
    Report report{options};
    report.tell("data cache", Json::objectValue, [&] {
        const auto reply = daemon.saveAndClearCache();
        Outcome outcome{Exit::accepted, "saved and cleared"};
        if (reply != 0) {
            outcome = {Exit::refused, "saving failed, nothing was cleared"};
        }
        outcome.details["reply"] = reply;
        return outcome;
    });
    return report.finish();
}

Exit set(const Options& options) {
    const auto property = parseProperty(options.property, options.value);
    Daemon daemon{options.bus, options.timeout};
    Report report{options};
    Json::Value about;
    about["property"] = property.first;
    about["value"] = toJson(property.second);
    report.tell(property.first, about, [&] {
        daemon.set(property);
        return Outcome{Exit::accepted, "set to " + options.value};
    });
    return report.finish();
}

} // namespace tavrisk::ctl
