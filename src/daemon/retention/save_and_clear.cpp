// SPDX-License-Identifier: Apache-2.0
#include "daemon/retention/save_and_clear.hpp"

#include "contract/places.hpp"
#include "daemon/retention/child_runner.hpp"
#include "log/diag_log.hpp"

#include <filesystem>
#include <string>

namespace {

constexpr auto clearingLogName = "saveAndClearCache";

constexpr std::uint32_t minutesPerCommand = 5;

int clear(const char* directory) {
    std::filesystem::current_path(std::string{tavrisk::dataRoot} + directory);
    return tavrisk::runInShell("rm -f *", minutesPerCommand);
}

} // namespace

std::int32_t saveAndClearCache() {
    const auto workingDirectory = std::filesystem::current_path();
    const auto command = std::string{tavrisk::retentionScript} + " cache";
    if (const int result = tavrisk::runInShell(command.c_str(), minutesPerCommand)) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed saving HMC cache data : %d", clearingLogName,
                 result);
        return 1;
    }

    // A directory that cannot be entered raises an exception that ends the call on purpose: what
    // follows would clear whatever directory the daemon is in.
    if (const int result = clear(tavrisk::rawCperDirectory)) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed policing rawCPER data location : %d",
                 clearingLogName, result);
    }
    if (const int result = clear(tavrisk::dumpDirectory)) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed policing dump data location : %d",
                 clearingLogName, result);
    }
    // This one always fails when the directories above are there: rm refuses them.
    if (const int result = clear("")) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed policing HMC data location : %d",
                 clearingLogName, result);
    }
    std::filesystem::current_path(workingDirectory);
    return 0;
}
