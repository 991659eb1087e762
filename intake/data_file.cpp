// SPDX-License-Identifier: Apache-2.0
#include "intake/data_file.hpp"

#include "events/fault_logging.hpp"
#include "service/diag_log.hpp"

#include <sys/stat.h>

#include <ctime>
#include <exception>
#include <fstream>
#include <system_error>
#include <thread>
#include <utility>

namespace tavrisk {
namespace {

constexpr mode_t dataFileMode = 0774;

int createDataFile(const char* logName, const std::string& path,
                   std::span<const std::uint8_t> bytes) {
    std::ofstream file;
    // Without a buffer a full file system fails the write, not a close that nobody looks at.
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(path, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!file.is_open()) {
        diag_log(8, 4, "%s: Failed opening data file: %s", logName, path.c_str());
        return -2;
    }

    int result = 0;
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file.good()) {
        diag_log(8, 4, "%s: Failed writing data file: %s", logName, path.c_str());
        result = -3;
    }
    file.close();
    chmod(path.c_str(), dataFileMode);
    return result;
}

} // namespace

int writeDataFile(const char* logName, const std::string& path,
                  std::span<const std::uint8_t> bytes) {
    try {
        return createDataFile(logName, path, bytes);
    } catch (const std::exception&) {
        diag_log(8, 4, "%s: Failed writing data file: %s", logName, path.c_str());
        return -1;
    }
}

} // namespace tavrisk

int SaveData(const std::string& validationString, const std::vector<std::uint8_t>& logDataBuffer) {
    if (validationString.empty()) {
        return -1;
    }
    return tavrisk::writeDataFile(__func__, tavrisk::dataRoot + ("dump/" + validationString),
                                  logDataBuffer);
}

int tavrisk_daemon_thread(std::vector<std::uint8_t> logDataBuffer, std::string validationString) {
    const auto path = tavrisk::dataRoot + validationString + "." + std::to_string(time(nullptr));
    const int result = tavrisk::writeDataFile(__func__, path, logDataBuffer);
    if (result == -1) {
        return result;
    }
    try {
        std::thread{zel_wux_fault_logging_thread, std::move(logDataBuffer)}.detach();
    } catch (const std::system_error& e) {
        diag_log(8, 4, "%s: Failed starting worker thread: %s", __func__, e.what());
        return -1;
    }
    return result;
}
