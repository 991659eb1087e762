// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/classifier.hpp"
#include "tools/zelctl/log.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tavrisk::tools {

/** A place where raw data is kept, how its files tell when they were kept, and what the daemon
 *  classifies of them. */
struct RawPlace {
    std::string directory;
    std::optional<std::int64_t> (*secondsOf)(const std::filesystem::path& file);
    std::optional<std::vector<std::uint8_t>> (*toEventRecord)(const std::vector<std::uint8_t>& raw);

    /** Passes its files and when they were kept. Returns why it could not be looked through, or
     *  nothing. */
    std::string forEachFile(
        const std::function<void(const std::filesystem::path&, std::chrono::seconds)>& take) const;

    /** What the daemon makes of a file; nothing of one that cannot be read. */
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
    std::string unreadable;

    [[nodiscard]] bool isGuess() const { return delay > std::chrono::seconds{1}; }
};

/** Those files kept last before the entry was made that the daemon would make the same entry of:
 *  of the data tree, or else of what SaveAndClearCache has saved of it. */
RawFiles findRawFiles(const LogEntry& entry);

} // namespace tavrisk::tools
