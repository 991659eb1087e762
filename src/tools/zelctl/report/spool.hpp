// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace tavrisk::tools {

/** Bytes that wait until their number is known: in a file without a name, gone with this. */
class Spool {
public:
    /** In the directory of that file, or where temporary files are for "-". Raises Failure. */
    explicit Spool(const std::string& beside);

    void write(std::string_view bytes);
    /** Its bytes from the first on, in a descriptor that is the caller's. */
    [[nodiscard]] int reopen();

private:
    struct Close {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> file_;
};

} // namespace tavrisk::tools
