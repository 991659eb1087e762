// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/form.hpp"
#include "zel/acknowledgement.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

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

} // namespace

Exit ack(const Log& log, const Arguments& arguments) {
    std::vector<std::int64_t> sequences;
    for (const auto& text : arguments.operands) {
        sequences.push_back(toNumber("SEQ", text, 1));
    }
    const bool losses = arguments.has("losses");
    if (sequences.empty() && !losses) {
        failUsage("ack needs SEQ... or --losses");
    }
    if (!log.open()) {
        throw Failure{Exit::failed, "there are no entries yet"};
    }
    const auto form = formOf(arguments);
    Records records{form};
    auto status = Exit::done;
    zel::Acknowledger acknowledger{log.path(), userName(), arguments.value("note").value_or("")};
    for (const auto sequence : sequences) {
        const auto result = acknowledger.acknowledge(sequence);
        if (result == zel::Acknowledged::missing) {
            status = Exit::failed;
        }
        if (form == Form::text) {
            putLine("#" + std::to_string(sequence) + ": " + wordOf(result));
            continue;
        }
        Json::Value object;
        object["sequence"] = Json::Int64{sequence};
        object["result"] = wordOf(result);
        records.put(object);
    }
    if (losses) {
        acknowledger.acknowledgeLosses();
        form == Form::text ? putLine("losses: acknowledged") : void();
    }
    acknowledger.commit();
    return status;
}

} // namespace tavrisk::tools
