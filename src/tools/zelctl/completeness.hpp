// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tavrisk::tools {

struct Shortfall {
    std::string problem;
    std::string advice; // what to do, as a sentence without its full stop
};

/** Whether all that a database ought to have is there. Made before it is opened: that may make
 *  files. */
class Completeness {
public:
    explicit Completeness(const std::string& path);

    /** The write-ahead log with the latest entries is not beside it, as with a copy of the database
     *  alone. `highest` is the last number that the database knows of. */
    [[nodiscard]] std::optional<Shortfall> lacksItsLog(std::int64_t highest) const;

    /** Numbers were given out that the database knows nothing of. */
    [[nodiscard]] std::optional<Shortfall> lacksEntries(std::int64_t highest) const;

private:
    std::string path_;
    bool withoutLog_;
    std::int64_t highestUsed_ = 0; // as the small file beside it has it
};

} // namespace tavrisk::tools
