// SPDX-License-Identifier: Apache-2.0
#include "daemon/intake/data_file.hpp"

#include "contract/places.hpp"
#include "log/diag_log.hpp"

#include <sys/stat.h>

#include <exception>
#include <fstream>

namespace tavrisk {
namespace {

constexpr mode_t dataFileMode = 0774;

Kept createDataFile(const char* logName, const std::string& path,
                    std::span<const std::uint8_t> bytes) {
    std::ofstream file;
    // Without a buffer a full file system fails the write, not a close that nobody looks at.
    file.rdbuf()->pubsetbuf(nullptr, 0);
    file.open(path, std::ios::out | std::ios::trunc | std::ios::binary);
    if (!file.is_open()) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed opening data file: %s", logName, path.c_str());
        return Kept::notOpened;
    }

    Kept result = Kept::yes;
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    if (!file.good()) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed writing data file: %s", logName, path.c_str());
        result = Kept::notWritten;
    }
    file.close();
    chmod(path.c_str(), dataFileMode);
    return result;
}

} // namespace

Kept writeDataFile(const char* logName, const std::string& path,
                   std::span<const std::uint8_t> bytes) {
    try {
        return createDataFile(logName, path, bytes);
    } catch (const std::exception&) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed writing data file: %s", logName, path.c_str());
        return Kept::failed;
    }
}

} // namespace tavrisk

int SaveData(const std::string& validationString, const std::vector<std::uint8_t>& logDataBuffer) {
    using tavrisk::Kept;
    if (validationString.empty()) {
        return static_cast<int>(Kept::failed);
    }
    const auto path = tavrisk::dataRoot + (tavrisk::dumpDirectory + validationString);
    return static_cast<int>(tavrisk::writeDataFile(__func__, path, logDataBuffer));
}
