// SPDX-License-Identifier: Apache-2.0
#include "daemon/intake/data_file.hpp"

#include "contract/places.hpp"
#include "log/diag_log.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tavrisk {
namespace {

constexpr mode_t dataFileMode = 0774;

// No stream: it would take memory and thousands of instructions for each file, and have to be kept
// from buffering, since a full file system must fail the write and not a close that nobody looks
// at.
class DataFile {
public:
    explicit DataFile(const char* path)
        : descriptor_{open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)} {}
    ~DataFile() {
        if (isOpen()) {
            close(descriptor_);
        }
    }
    DataFile(const DataFile&) = delete;
    DataFile& operator=(const DataFile&) = delete;

    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }

    [[nodiscard]] bool writeAll(std::span<const std::uint8_t> bytes) const {
        while (!bytes.empty()) {
            const ssize_t written = write(descriptor_, bytes.data(), bytes.size());
            if (written < 0 && errno != EINTR) {
                return false;
            }
            bytes = bytes.subspan(written < 0 ? 0 : static_cast<std::size_t>(written));
        }
        return true;
    }

private:
    int descriptor_;
};

Kept createDataFile(const char* logName, const char* path, std::span<const std::uint8_t> bytes) {
    DataFile file{path};
    if (!file.isOpen()) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed opening data file: %s", logName, path);
        return Kept::notOpened;
    }
    if (!file.writeAll(bytes)) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed writing data file: %s", logName, path);
        return Kept::notWritten;
    }
    return Kept::yes;
}

} // namespace

Kept writeDataFile(const char* logName, const std::string& path,
                   std::span<const std::uint8_t> bytes) noexcept {
    const auto kept = createDataFile(logName, path.c_str(), bytes);
    if (kept != Kept::notOpened) {
        chmod(path.c_str(), dataFileMode);
    }
    return kept;
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
