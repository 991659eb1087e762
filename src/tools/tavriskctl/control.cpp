// SPDX-License-Identifier: Apache-2.0
#include "contract/properties.hpp"
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/report.hpp"

using namespace std::chrono_literals;

namespace tavrisk::tools {
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

Exit clear(const Arguments& arguments) {
    // Saving and three clearings have five minutes each; one more for what comes before.
    const auto target = targetOf(arguments, 21min);
    Report report{arguments};
    report.tell("data cache", Json::objectValue, [&] {
        const auto reply = Daemon{target}.saveAndClearCache();
        // What the clearing came to is not in the reply.
        Outcome outcome{Exit::done, "saved, and cleared of what could be removed"};
        if (reply != 0) {
            outcome = {Exit::failed, "saving failed, nothing was cleared"};
        }
        outcome.details["reply"] = reply;
        return outcome;
    });
    return report.finish();
}

Exit set(const Arguments& arguments) {
    const auto target = targetOf(arguments, 25s);
    const auto property = parseProperty(arguments.operands[0], arguments.operands[1]);
    Report report{arguments};
    Json::Value about;
    about["property"] = property.first;
    about["value"] = toJson(property.second);
    report.tell(property.first, about, [&] {
        Daemon{target}.set(property);
        return Outcome{Exit::done, "set to " + toText(property.second) + effect(property)};
    });
    return report.finish();
}

} // namespace tavrisk::tools
