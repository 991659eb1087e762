// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <span>
#include <string>

namespace tavrisk::tools {

/** A file that others could have put something else in the place of, opened for reading: a link is
 *  not followed, and a FIFO or device is not waited for. */
class RegularFile {
public:
    explicit RegularFile(const std::string& path);
    /** Takes what is open there already. */
    explicit RegularFile(int descriptor);
    ~RegularFile();
    RegularFile(const RegularFile&) = delete;
    RegularFile& operator=(const RegularFile&) = delete;

    /** Why there is nothing, or nothing more, to read; empty when there is. */
    [[nodiscard]] const std::string& problem() const { return problem_; }
    /** Whether that is because there is nothing of that name. */
    [[nodiscard]] bool isMissing() const { return isMissing_; }
    /** As it was when it was opened. */
    [[nodiscard]] const struct stat& status() const { return status_; }

    /** Reads on, as much as there is and has room; less is the end, or a problem. */
    [[nodiscard]] std::size_t read(std::span<char> room);
    /** Whether it was written since it was opened. */
    [[nodiscard]] bool hasChanged() const;

private:
    int file_;
    struct stat status_ {};
    std::string problem_;
    bool isMissing_ = false;
};

} // namespace tavrisk::tools
