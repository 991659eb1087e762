// SPDX-License-Identifier: Apache-2.0
#include "tools/common/directory.hpp"

#include <filesystem>

namespace tavrisk::tools {

DirectorySize sizeOfDirectory(const std::string& path) {
    DirectorySize size;
    std::filesystem::directory_iterator entry{path, size.error};
    while (!size.error && entry != std::filesystem::directory_iterator{}) {
        // A file may be gone again before it is looked at: it is not counted then.
        std::error_code gone;
        if (entry->symlink_status(gone).type() == std::filesystem::file_type::regular) {
            const auto bytes = entry->file_size(gone);
            size.files += gone ? 0 : 1;
            size.bytes += gone ? 0 : bytes;
        }
        entry.increment(size.error);
    }
    return size;
}

} // namespace tavrisk::tools
