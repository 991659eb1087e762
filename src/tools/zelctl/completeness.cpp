// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/completeness.hpp"

#include <unistd.h>

#include <array>
#include <fstream>

namespace tavrisk::tools {
namespace {

/** The service never removes its write-ahead log; a copy may lack it. */
bool isWithoutLog(const std::string& path) {
    std::array<char, 20> head{};
    std::ifstream{path, std::ios::binary}.read(head.data(), head.size());
    const bool hasLog = head[18] == 2;
    return hasLog && access((path + "-wal").c_str(), F_OK) != 0;
}

} // namespace

Completeness::Completeness(const std::string& path) : path_{path}, withoutLog_{isWithoutLog(path)} {
    std::ifstream{path + ".numbers"} >> highestUsed_;
}

std::optional<Shortfall> Completeness::lacksItsLog(std::int64_t highest) const {
    if (!withoutLog_ || (highestUsed_ != 0 && highestUsed_ <= highest)) {
        return std::nullopt;
    }
    return Shortfall{"it is incomplete: " + path_ +
                         "-wal, which has the latest entries, is not beside it",
                     "copy that file as well, or make the copy with 'zelctl backup'"};
}

std::optional<Shortfall> Completeness::lacksEntries(std::int64_t highest) const {
    if (highestUsed_ <= highest) {
        return std::nullopt;
    }
    return Shortfall{"its last entry is #" + std::to_string(highest) + ", and #" +
                         std::to_string(highestUsed_) + " was given out",
                     "look for entries in what was set aside, or in a backup"};
}

} // namespace tavrisk::tools
