// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/input.hpp"
#include "tools/tavriskctl/report.hpp"

#include <optional>

namespace tavrisk::ctl {
namespace {

struct Method {
    const char* name;
    /** What the reply 1 says. */
    const char* refusal;
};

// The digest is ours and right, so a reply of 1 has another reason.
constexpr Method logMethod{
    "Log", "refused: its file could not be written, and the event is reported all the same (do not "
           "send it again); or no worker could be started. The daemon's log says which"};
constexpr Method cperMethod{"CPERlog", "refused: it is too short for a CPER, or the daemon has no "
                                       "memory for it"};
constexpr Method saveMethod{"Save", "refused: the daemon cannot write a file of the name "};

Outcome meaningOf(std::int32_t reply, const Method& method) {
    switch (reply) {
    case 0:
        return {Exit::accepted, "accepted"};
    case 1:
        return {Exit::refused, method.refusal};
    case 2:
        return {Exit::refused, "refused: empty input"};
    default:
        return {Exit::refused, "refused with the unknown reply " + std::to_string(reply)};
    }
}

/** Sends one file, under its digest or under the name that `save` was given. */
Outcome send(Daemon& daemon, const Method& method, const Options& options,
             const std::string& file) {
    const auto bytes = readInput(file);
    const auto digest = digestText(bytes);
    const bool named = options.command == save;
    const auto reply = daemon.submit(method.name, named ? options.name : digest, bytes);

    auto outcome = meaningOf(reply, method);
    if (named) {
        outcome.sentence += (reply == 0 ? " as '" : "'") + options.name + "'";
        outcome.details["name"] = options.name;
    }
    outcome.details["bytes"] = Json::UInt64{bytes.size()};
    outcome.details["digest"] = digest;
    outcome.details["reply"] = reply;
    return outcome;
}

Exit submit(const Method& method, const Options& options) {
    std::optional<Daemon> daemon;
    Report report{options, options.files.size()};
    for (const auto& file : options.files) {
        Json::Value about;
        about["file"] = file;
        report.tell(displayName(file), about, [&] {
            // Once the daemon could not be reached, the rest would only wait for nothing.
            if (report.worst() == Exit::unreachable) {
                throw Failure{Exit::unreachable,
                              "not sent, because the daemon could not be reached"};
            }
            if (!daemon) {
                daemon.emplace(options.bus, options.timeout);
            }
            return send(*daemon, method, options, file);
        });
    }
    return report.finish();
}

} // namespace

Exit logEvents(const Options& options) {
    return submit(logMethod, options);
}

Exit logCpers(const Options& options) {
    return submit(cperMethod, options);
}

Exit save(const Options& options) {
    return submit(saveMethod, options);
}

} // namespace tavrisk::ctl
