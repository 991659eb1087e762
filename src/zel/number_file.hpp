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
 * Stays open, so it is of no use when another one has taken its place.
 */
class NumberFile {
public:
    struct Numbers {
        std::int64_t used = 0;
        std::int64_t reserved = 0;
    };

    explicit NumberFile(const std::string& path);
    ~NumberFile();
    NumberFile(const NumberFile&) = delete;
    NumberFile& operator=(const NumberFile&) = delete;

    [[nodiscard]] Numbers read() const;

    /** Before a number is used for good: has it among the reserved ones, on the disk. */
    void reserve(std::int64_t number);

    /** After it was used. */
    void use(std::int64_t number) const;

private:
    [[nodiscard]] bool write(std::int64_t number, int place) const;

    int file_;
    std::int64_t reserved_ = 0; // at least
};

} // namespace tavrisk::zel
