// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <system_error>

namespace tavrisk::tools {

/** The regular files of a directory, without those below it. */
struct DirectorySize {
    std::uintmax_t files = 0;
    std::uintmax_t bytes = 0;
    std::error_code error; // why it could not be looked through, if so
};

DirectorySize sizeOfDirectory(const std::string& path);

} // namespace tavrisk::tools
