// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/files.hpp"

#include <cerrno>

namespace tavrisk::retention {

void raiseErrno(const std::string& doing) {
    throw std::system_error{errno, std::generic_category(), doing};
}

bool isFull(const std::system_error& error) {
    return error.code() == std::errc::no_space_on_device || error.code().value() == EDQUOT;
}

Descriptor opened(int number, const std::string& doing) {
    if (number < 0) {
        raiseErrno(doing);
    }
    return Descriptor{number};
}

std::optional<struct stat> statusOf(int directory, const char* name) {
    struct stat status {};
    if (fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return status;
    }
    if (errno == ENOENT) {
        return std::nullopt;
    }
    raiseErrno("looking at a file");
}

struct stat statusOf(const Descriptor& file) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        raiseErrno("looking at an open file");
    }
    return status;
}

Descriptor openToRead(int directory, const std::string& name) {
    return Descriptor{
        openat(directory, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
}

Descriptor openOwnDirectory(int parent, const char* name) {
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    constexpr mode_t ownerOnly = 0700;
    mkdirat(parent, name, ownerOnly);
    Descriptor directory{openat(parent, name, flags)};
    if (!directory && (errno == ENOTDIR || errno == ELOOP) && unlinkat(parent, name, 0) == 0 &&
        mkdirat(parent, name, ownerOnly) == 0) {
        directory.reset(openat(parent, name, flags));
    }
    return directory;
}

} // namespace tavrisk::retention
