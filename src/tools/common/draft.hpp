// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace tavrisk::tools {

/** A file in the making, which takes the place of another one once it is complete; or standard
 *  output, for "-". Gone when it was not finished, and where the file system has files without a
 *  name also when the program is killed. A name that it has meanwhile does not end as that of the
 *  other. */
class Draft {
public:
    /** Raises Failure, also when there is something at `path` that is no regular file. */
    explicit Draft(std::string path, mode_t mode = 0600);
    ~Draft();
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    void write(std::string_view bytes);
    void finish();

    /** For a program that writes the bytes in our place. */
    [[nodiscard]] int descriptor() const;

private:
    [[nodiscard]] bool giveName();

    std::string path_;
    mode_t mode_;
    std::string beside_;
    int file_ = -1;
};

} // namespace tavrisk::tools
