// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/regular_file.hpp"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tavrisk::tools {

/** What became of a file in an archive. */
struct Archived {
    std::int64_t size = 0;
    std::string digest; // SHA-512 of what the archive has
    bool hasChanged = false;
    std::string problem; // why its end could not be read
};

/** A tar archive in the making, in POSIX's form (ustar), with GNU's of long names. */
class Archive {
public:
    using Sink = std::function<void(std::string_view)>;
    static constexpr std::int64_t largestFile = 077777777777; // eleven octal digits

    /** All files are put below the directory `top`. */
    Archive(Sink sink, std::string top);

    /** As many bytes as the file has now, at most `largestFile`: zeros for those that are gone when
     *  they are read, or cannot be. */
    Archived add(const std::string& name, RegularFile& file);
    /** Behind the last file. */
    void finish();

private:
    void putHeader(char type, const std::string& name, std::int64_t size, std::int64_t time);
    void putName(const std::string& name);
    void fillBlock(std::int64_t size);

    Sink sink_;
    std::string top_;
};

} // namespace tavrisk::tools
