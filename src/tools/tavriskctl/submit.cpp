// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/commands.hpp"
#include "tools/tavriskctl/daemon.hpp"
#include "tools/tavriskctl/input.hpp"
#include "tools/tavriskctl/report.hpp"

#include <filesystem>
#include <optional>
#include <system_error>

using namespace std::chrono_literals;

namespace tavrisk::tools {
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

using Files = std::span<const std::string>;
using Name = std::optional<std::string>;

Outcome meaningOf(std::int32_t reply, const Method& method) {
    switch (reply) {
    case 0:
        return {Exit::done, "accepted"};
    case 1:
        return {Exit::failed, method.refusal};
    case 2:
        return {Exit::failed, "refused: empty input"};
    default:
        return {Exit::failed, "refused with the unknown reply " + std::to_string(reply)};
    }
}

/** Sends one file, under its digest or under the name that `save` was given. */
Outcome send(Daemon& daemon, const Method& method, const Name& name, const std::string& file) {
    const auto bytes = readInput(file);
    const auto digest = digestText(bytes);
    const auto reply = daemon.submit(method.name, name.value_or(digest), bytes);

    auto outcome = meaningOf(reply, method);
    if (name) {
        outcome.sentence += (reply == 0 ? " as '" : "'") + *name + "'";
        outcome.details["name"] = *name;
    }
    outcome.details["bytes"] = Json::UInt64{bytes.size()};
    outcome.details["digest"] = digest;
    outcome.details["reply"] = reply;
    return outcome;
}

/** When the file's contents were last written; nothing for what is no file. */
std::optional<std::filesystem::file_time_type> timeOf(const std::string& file) {
    std::error_code none;
    const auto time = std::filesystem::last_write_time(file, none);
    return none ? std::nullopt : std::optional{time};
}

/** Removes a file that was accepted: the daemon keeps the same bytes anew. What was written since
 *  it was sent stays, for that may be the new one. */
void removeSent(const std::string& file, std::filesystem::file_time_type sent, Outcome& outcome) {
    std::error_code error;
    const bool removed = timeOf(file) == sent && std::filesystem::remove(file, error);
    if (error) {
        throw Failure{Exit::failed, "accepted, but not removed: " + error.message()};
    }
    outcome.sentence += removed ? ", and removed" : ", and kept: it was written meanwhile";
    outcome.details["removed"] = removed;
}

Exit submit(const Method& method, const Arguments& arguments, Files files, const Name& name = {}) {
    const auto target = targetOf(arguments, 60s);
    std::optional<Daemon> daemon;
    Report report{arguments, files.size()};
    for (const auto& file : files) {
        report.tellOfFile(file, [&] {
            // Once the daemon could not be reached, the rest would only wait for nothing.
            if (report.worst() == Exit::unreachable) {
                throw Failure{Exit::unreachable,
                              "not sent, because the daemon could not be reached"};
            }
            if (!daemon) {
                daemon.emplace(target);
            }
            const auto time = timeOf(file);
            auto outcome = send(*daemon, method, name, file);
            if (arguments.has("remove-accepted") && outcome.status == Exit::done && time) {
                removeSent(file, *time, outcome);
            }
            return outcome;
        });
    }
    return report.finish();
}

} // namespace

Exit logEvents(const Arguments& arguments) {
    return submit(logMethod, arguments, arguments.operands);
}

Exit logCpers(const Arguments& arguments) {
    return submit(cperMethod, arguments, arguments.operands);
}

Exit save(const Arguments& arguments) {
    return submit(saveMethod, arguments, Files{arguments.operands}.last(1),
                  arguments.operands.front());
}

} // namespace tavrisk::tools
