// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/plan.hpp"

#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <tuple>

namespace tavrisk::retention {
namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Stream = std::unique_ptr<DIR, CloseDirectory>;

/** With a position of its own, so that the caller's descriptor can be listed again. */
Stream openStream(int directory) {
    const int number = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Stream stream{number < 0 ? nullptr : fdopendir(number)};
    if (!stream) {
        raiseErrno("listing a directory");
    }
    return stream;
}

const dirent* next(DIR* stream) {
    errno = 0;
    const auto* const entry = readdir(stream);
    if (entry == nullptr && errno != 0) {
        raiseErrno("listing a directory");
    }
    return entry;
}

void add(Plan& plan, const char* name, const struct stat& status) {
    if (S_ISREG(status.st_mode)) {
        plan.files.push_back({name, Identity{status}});
        plan.bytes += static_cast<std::uint64_t>(status.st_size);
    } else if (!S_ISDIR(status.st_mode)) {
        plan.hasOthers = true;
    }
}

} // namespace

Plan look(int directory) {
    Plan plan;
    const auto stream = openStream(directory);
    while (const auto* const entry = next(stream.get())) {
        if (entry->d_name[0] != '.' && entry->d_type != DT_DIR) {
            // One that has vanished meanwhile is left out.
            if (const auto status = statusOf(directory, entry->d_name)) {
                add(plan, entry->d_name, *status);
            }
        }
    }
    std::ranges::sort(plan.files, isOlder);
    return plan;
}

std::vector<std::string> directoriesIn(int directory) {
    std::vector<std::string> names;
    const auto stream = openStream(directory);
    while (const auto* const entry = next(stream.get())) {
        const auto status = statusOf(directory, entry->d_name);
        if (entry->d_name[0] != '.' && status && S_ISDIR(status->st_mode)) {
            names.emplace_back(entry->d_name);
        }
    }
    return names;
}

std::span<const File> excess(const Plan& plan, std::uint64_t limit) {
    std::size_t count = 0;
    for (auto left = plan.bytes; left > limit; ++count) {
        left -= static_cast<std::uint64_t>(plan.files[count].identity.size);
    }
    return {plan.files.data(), count};
}

bool isOlder(const File& one, const File& other) {
    const auto& [inode, size, seconds, nanoseconds] = one.identity;
    const auto& [otherInode, otherSize, otherSeconds, otherNanoseconds] = other.identity;
    return std::tie(seconds, nanoseconds, inode) <
           std::tie(otherSeconds, otherNanoseconds, otherInode);
}

} // namespace tavrisk::retention
