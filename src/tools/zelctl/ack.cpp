// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"
#include "tools/zelctl/beside.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/form.hpp"
#include "zel/acknowledgement.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>
#include <vector>

namespace tavrisk::tools {
namespace {

/** Who acts: the user behind a sudo, not root. */
std::string userName() {
    // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
    if (const char* const behind = std::getenv("SUDO_USER"); behind != nullptr) {
        return behind;
    }
    const auto* const user = getpwuid(getuid());
    // NOLINTEND(concurrency-mt-unsafe)
    return user != nullptr ? user->pw_name : std::to_string(getuid());
}

const char* wordOf(zel::Acknowledged result) {
    switch (result) {
    case zel::Acknowledged::now:
        return "acknowledged";
    case zel::Acknowledged::before:
        return "was acknowledged before";
    case zel::Acknowledged::missing:
        break;
    }
    return "there is no such entry";
}

Json::Value jsonOf(std::int64_t sequence, zel::Acknowledged result) {
    Json::Value object;
    object["sequence"] = Json::Int64{sequence};
    object["result"] = wordOf(result);
    return object;
}

using Results = std::vector<std::pair<std::int64_t, zel::Acknowledged>>;

/** All of it at once, and before anything is told: whoever reads slowly shall not hold up events.
 */
Results acknowledge(const Log& log, const Arguments& arguments, const Results& wanted) {
    zel::Acknowledger acknowledger{log.path(), userName(), arguments.value("note").value_or("")};
    auto results = wanted;
    for (auto& [sequence, result] : results) {
        result = acknowledger.acknowledge(sequence);
    }
    if (arguments.has("losses")) {
        acknowledger.acknowledgeLosses();
    }
    acknowledger.commit();
    return results;
}

} // namespace

Exit ack(const Log& log, const Arguments& arguments) {
    Results wanted;
    for (const auto& text : arguments.operands) {
        wanted.emplace_back(toNumber("SEQ", text, 1), zel::Acknowledged::missing);
    }
    if (wanted.empty() && !arguments.has("losses")) {
        failUsage("ack needs SEQ... or --losses");
    }
    const auto form = formOf(arguments);
    if (!log.open()) {
        throw Failure{Exit::failed, "there are no entries yet"};
    }
    auto status = Exit::done;
    Records records{form};
    for (const auto& [sequence, result] : acknowledge(log, arguments, wanted)) {
        if (form == Form::text) {
            putLine("#" + std::to_string(sequence) + ": " + wordOf(result));
        } else {
            records.put(jsonOf(sequence, result));
        }
        status = result == zel::Acknowledged::missing ? Exit::failed : status;
    }
    if (arguments.has("losses") && form == Form::text) {
        putLine(lookBeside(log.path()).waiting.losses.empty()
                    ? "losses: acknowledged"
                    : "losses: acknowledged, but for those that wait for the database");
    }
    return status;
}

} // namespace tavrisk::tools
