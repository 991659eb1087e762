// SPDX-License-Identifier: Apache-2.0
#include "platform/retention/stage.hpp"

#include "platform/retention/plan.hpp"

#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>

namespace tavrisk::retention {
namespace {

constexpr auto stageName = ".saving";

/** The size that a directory of the stage stands for. */
std::optional<off_t> sizeOf(std::string_view name) {
    off_t size = 0;
    const auto* const end = name.data() + name.size();
    const auto [stopped, error] = std::from_chars(name.data(), end, size);
    return error == std::errc{} && stopped == end ? std::optional{size} : std::nullopt;
}

void place(int from, const File& file, int target) {
    if (renameat(from, file.name.c_str(), target, file.name.c_str()) != 0) {
        raiseErrno("giving a copy of a run that was killed its name");
    }
}

void recoverSize(int stage, const std::string& name, int target) {
    const Descriptor sized{
        openat(stage, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    const auto size = sizeOf(name);
    for (const auto& file : sized ? look(sized.get()).files : std::vector<File>{}) {
        if (file.identity.size == size) {
            place(sized.get(), file, target);
        } else {
            unlinkat(sized.get(), file.name.c_str(), 0);
        }
    }
    unlinkat(stage, name.c_str(), AT_REMOVEDIR);
}

} // namespace

Descriptor Stage::enter(off_t size) const {
    const auto stage = openOwnDirectory(directory_, stageName);
    auto sized = stage ? openOwnDirectory(stage.get(), std::to_string(size).c_str()) : Descriptor{};
    if (!sized) {
        raiseErrno("making a directory for copies");
    }
    return sized;
}

void Stage::leave(off_t size) const {
    const auto sized = std::string{stageName} + '/' + std::to_string(size);
    unlinkat(directory_, sized.c_str(), AT_REMOVEDIR);
    unlinkat(directory_, stageName, AT_REMOVEDIR);
}

void Stage::recover(int store) const {
    const Descriptor stage{
        openat(directory_, stageName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    if (!stage) {
        return;
    }
    if (syncfs(store) != 0) {
        raiseErrno("synchronising the store");
    }
    for (const auto& name : directoriesIn(stage.get())) {
        recoverSize(stage.get(), name, directory_);
    }
    unlinkat(directory_, stageName, AT_REMOVEDIR);
}

} // namespace tavrisk::retention
