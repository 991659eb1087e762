// SPDX-License-Identifier: Apache-2.0
#include "daemon/service/logger_object.hpp"

#include "daemon/intake/data_file.hpp"
#include "daemon/intake/request.hpp"
#include "daemon/retention/save_and_clear.hpp"
#include "daemon/service/spare_memory.hpp"

#include <utility>

namespace {

/** 0 (accepted) and 2 (empty input) reach the caller as they are, every other result as 1. */
std::int32_t foldIntakeResult(int result) {
    return result == 0 || result == 2 ? result : 1;
}

} // namespace

std::int32_t Tavrisk::log(std::string validationString, std::vector<std::uint8_t> logDataBuffer) {
    tavrisk::giveBackMemoryAfter(logDataBuffer.size());
    return foldIntakeResult(LogEvent(std::move(validationString), std::move(logDataBuffer)));
}

std::int32_t Tavrisk::save(std::string validationString, std::vector<std::uint8_t> logDataBuffer) {
    tavrisk::giveBackMemoryAfter(logDataBuffer.size());
    return SaveData(validationString, logDataBuffer) == 0 ? 0 : 1;
}

std::int32_t Tavrisk::cPERlog(std::string validationString,
                              std::vector<std::uint8_t> logDataBuffer) {
    tavrisk::giveBackMemoryAfter(logDataBuffer.size());
    return foldIntakeResult(LogCPEREvent(std::move(validationString), std::move(logDataBuffer)));
}

std::int32_t Tavrisk::saveAndClearCache() {
    return ::saveAndClearCache();
}
