// SPDX-License-Identifier: Apache-2.0
//
// Keeps tavrisk's data within limits. The daemon runs it as wuxRetensionChk.sh; the misspelt name
// is the one that it calls.

#include "platform/retention/limit.hpp"
#include "platform/retention/plan.hpp"
#include "platform/retention/save.hpp"
#include "platform/retention/trim.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace {

using namespace tavrisk::retention;

enum Exit { done = 0, notDone = 1, wrongArguments = 2 };

/** The daemon waits for five minutes and then takes the save for a success and clears the cache, so
 *  the answer must be there before that. */
constexpr int secondsToSave = 240;

int usage() {
    std::fprintf(stderr, "usage: %s DIR SIZE_MB | cache\n", program_invocation_short_name);
    return wrongArguments;
}

/** Decimal digits without leading zeros, as bytes. A number that is too large for that stands for
 *  no limit at all. */
std::optional<std::uint64_t> limitOf(std::string_view sizeInMB) {
    constexpr auto noLimit = std::numeric_limits<std::uint64_t>::max();
    const bool isNumber = !sizeInMB.empty() && std::ranges::all_of(sizeInMB, [](char c) {
        return c >= '0' && c <= '9';
    });
    if (!isNumber || (sizeInMB.size() > 1 && sizeInMB.front() == '0')) {
        return std::nullopt;
    }
    std::uint64_t size = 0;
    const auto result = std::from_chars(sizeInMB.data(), sizeInMB.data() + sizeInMB.size(), size);
    return result.ec != std::errc{} || size > noLimit / bytesPerMB ? noLimit : size * bytesPerMB;
}

int trimTo(const char* directory, std::uint64_t limit) {
    const auto files = opened(open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC), directory);
    if (!trim(files.get(), limit)) {
        complain(std::string{directory} + " is still larger than " +
                 std::to_string(limit / bytesPerMB) + " MB");
        return notDone;
    }
    return done;
}

/** Nothing that goes wrong ends in anything but its status. */
template <typename Work>
int guarded(Work work) {
    try {
        return work();
    } catch (const std::exception& error) {
        complain(error.what());
        return notDone;
    }
}

int saveInTime() {
    const auto ending =
        withinTime(secondsToSave, [] { return guarded([] { return save() ? done : notDone; }); });
    switch (ending.kind) {
    case Ending::Kind::exited:
        return ending.value;
    case Ending::Kind::killed:
        complain("the save was ended by signal " + std::to_string(ending.value));
        break;
    case Ending::Kind::late:
        complain("the save was not done in " + std::to_string(secondsToSave) + " seconds");
        break;
    case Ending::Kind::notStarted:
        complain(std::string{"the save was not started: "} + std::strerror(ending.value));
        break;
    }
    return notDone;
}

} // namespace

int main(int argc, char** argv) {
    const std::span<char*> arguments{argv, static_cast<std::size_t>(argc)};
    if (arguments.size() == 2 && std::string_view{arguments[1]} == "cache") {
        return guarded(saveInTime);
    }
    if (arguments.size() != 3 || *arguments[1] == '\0') {
        return usage();
    }
    const auto limit = limitOf(arguments[2]);
    return limit ? guarded([&] { return trimTo(arguments[1], *limit); }) : usage();
}
