// SPDX-License-Identifier: Apache-2.0
#include "contract/properties.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/report.hpp"

namespace tavrisk::ctl {
namespace {

/** What the daemon makes of a number that is out of the range that it uses. */
std::string effect(const Property& property) {
    const auto* number = std::get_if<std::uint8_t>(&property.second);
    if (number == nullptr) {
        return {};
    }
    const auto used = findProperty(property.first)->effective(*number);
    return used == *number ? "" : ", which counts as " + std::to_string(used);
}

} // namespace

Exit clear(const Options& options) {
    Report report{options};
    report.tell("data cache", Json::objectValue, [&] {
        const auto reply = Daemon{options.bus, options.timeout}.saveAndClearCache();
        // What the clearing came to is not in the reply.
        Outcome outcome{Exit::accepted, "saved, and cleared of what could be removed"};
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
    Report report{options};
    Json::Value about;
    about["property"] = property.first;
    about["value"] = toJson(property.second);
    report.tell(property.first, about, [&] {
        Daemon{options.bus, options.timeout}.set(property);
        return Outcome{Exit::accepted, "set to " + toText(property.second) + effect(property)};
    });
    return report.finish();
}

} // namespace tavrisk::ctl
