// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/trim.hpp"

#include "platform/retention/plan.hpp"

#include <sys/file.h>

#include <cerrno>

namespace tavrisk::retention {
namespace {

constexpr auto asideName = ".removing";

} // namespace

Remover::Remover(int directory)
    : directory_{directory}, alone_{flock(directory, LOCK_EX | LOCK_NB) == 0}, mayMove_{alone_} {
    if (alone_) {
        aside_.reset(openat(directory, asideName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (aside_) {
            putAllBack();
        }
    }
}

Remover::~Remover() {
    if (aside_) {
        unlinkat(directory_, asideName, AT_REMOVEDIR);
    }
}

bool Remover::isStill(int directory, const File& file) const {
    const auto status = statusOf(directory, file.name.c_str());
    return status && S_ISREG(status->st_mode) && Identity{*status} == file.identity;
}

bool Remover::remove(const File& file) {
    if (!isStill(directory_, file)) {
        return false;
    }
    if (!moveAside(file)) {
        return unlinkat(directory_, file.name.c_str(), 0) == 0;
    }
    if (isStill(aside_.get(), file) && unlinkat(aside_.get(), file.name.c_str(), 0) == 0) {
        return true;
    }
    putBack(file.name.c_str());
    return false;
}

bool Remover::moveAside(const File& file) {
    if (!mayMove_) {
        return false;
    }
    if (!aside_) {
        aside_ = openOwnDirectory(directory_, asideName);
    }
    const auto* const name = file.name.c_str();
    // One that has vanished shows later. After any other failure it is not tried for every file.
    mayMove_ = aside_ && (renameat(directory_, name, aside_.get(), name) == 0 || errno == ENOENT);
    return mayMove_;
}

void Remover::putBack(const char* name) const {
    // When it has been replaced once more meanwhile, this one would have been lost anyhow.
    if (renameat2(aside_.get(), name, directory_, name, RENAME_NOREPLACE) != 0 && errno == EEXIST) {
        unlinkat(aside_.get(), name, 0);
    }
}

void Remover::putAllBack() {
    for (const auto& file : look(aside_.get()).files) {
        putBack(file.name.c_str());
    }
}

bool trim(int directory, std::uint64_t limit) {
    constexpr int attempts = 3;
    Remover remover{directory};
    // Files may come and go meanwhile, so it looks again.
    auto plan = look(directory);
    for (int attempt = 0; attempt < attempts && plan.bytes > limit; ++attempt) {
        for (const auto& file : excess(plan, limit)) {
            remover.remove(file);
        }
        plan = look(directory);
    }
    return plan.bytes <= limit;
}

} // namespace tavrisk::retention
