// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace tavrisk::zel {

/**
 * The highest sequence number given out, in a small file beside the database, so that numbers rise
 * even when the database is lost. The file may fall behind by what was not yet written to the disk;
 * so it also holds a number up to which all may have been used, and that one never does.
 *
 * A file that cannot be read or written is as good as none: the database knows its numbers too.
 */
class NumberFile {
public:
    struct Numbers {
        std::int64_t used = 0;
        std::int64_t reserved = 0;
    };

    explicit NumberFile(std::string path) : path_{std::move(path)} {}

    [[nodiscard]] Numbers read() const;

    /** Before a number is used for good: has it among the reserved ones, on the disk. */
    void reserve(std::int64_t number) const;

    /** After it was used. */
    void use(std::int64_t number) const;

private:
    void write(Numbers numbers, bool synced) const;

    std::string path_;
};

} // namespace tavrisk::zel
