// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/classifier.hpp"
#include "tools/common/content.hpp"
#include "tools/zelctl/log.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrisk::tools {

/** A place where raw data is kept, how its files tell when they were kept, and what the daemon
 *  classifies of them. */
struct RawPlace {
    std::string directory;
    std::optional<std::int64_t> (*secondsOf)(const std::filesystem::path& file);
    std::optional<std::vector<std::uint8_t>> (*toEventRecord)(const std::vector<std::uint8_t>& raw);
    /** What they say of themselves. */
    Summary (*summaryOf)(std::span<const std::uint8_t> raw);

    /** Passes its files and when they were kept. Returns why it could not be looked through, or
     *  nothing. */
    std::string forEachFile(
        const std::function<void(const std::filesystem::path&, std::chrono::seconds)>& take) const;

    /** What the daemon makes of a file's bytes; nothing of what it refuses. */
    [[nodiscard]] std::optional<Verdict> classify(const std::vector<std::uint8_t>& raw) const;
    /** And of the file; nothing of one that cannot be read. */
    [[nodiscard]] std::optional<Verdict> classify(const std::filesystem::path& file) const;
};

/** Event records and CPERs of a data tree. */
std::array<RawPlace, 2> rawPlacesBelow(const std::string& root);

/** The data files that an entry came from, as far as can be told. */
struct RawFiles {
    /** Usually one; several when the same was reported more than once in that second. */
    std::vector<std::string> paths;
    /** How long before the entry they were kept. A submission takes milliseconds: after more than a
     *  second they may be those of another report, whose file is the only one left. */
    std::chrono::seconds delay{0};
    /** Where could not be looked, and why; empty when all places could. */
    std::string unreadable{};
    /** What all of them say; empty where they differ. */
    Summary summary{};

    [[nodiscard]] bool isGuess() const { return delay > std::chrono::seconds{1}; }
};

/** A raw file's bytes; nothing when it cannot be read, is no regular file or larger than any
 * record.
 */
std::optional<std::vector<std::uint8_t>> readRawFile(const std::filesystem::path& file);

/** Whether a file is kept where CPERs are. */
bool isCper(const std::filesystem::path& file);

/** All that the file says, whose bytes these are; of an event record of more than 256 KiB, that it
 *  was not looked at. */
Content contentOf(const std::filesystem::path& file, std::span<const std::uint8_t> raw);

/** The part that the entry's record names, or else the device, and also where it is a guess. */
std::string partOf(const LogEntry& entry, const RawFiles& files);

/** The data files of this machine. Each is read once, when an entry may have come from it; the
 *  bytes are kept of the last one only that an entry was found to have come from. */
class RawFileIndex {
public:
    RawFileIndex();
    ~RawFileIndex();
    RawFileIndex(const RawFileIndex&) = delete;
    RawFileIndex& operator=(const RawFileIndex&) = delete;

    /** Those files kept last before the entry was made that the daemon would make the same entry
     *  of: of the data tree, or else of what SaveAndClearCache has saved of it. */
    RawFiles find(const LogEntry& entry);

    /** The bytes of a file that was found, until the next call; none when it cannot be read any
     *  more. It is read again unless it is the last. */
    const std::vector<std::uint8_t>& bytesOf(const std::string& path);

private:
    struct Contents {
        std::string path;
        std::vector<std::uint8_t> bytes;
    };
    class Tree;
    std::vector<Tree> trees_;
    Contents last_;
};

} // namespace tavrisk::tools
