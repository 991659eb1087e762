// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/input.hpp"

#include "records/digest.hpp"
#include "tools/common/failure.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>

namespace tavrisk::tools {
namespace {

/** The longest array that D-Bus can carry, in bytes; a bus may be configured for less. */
constexpr std::uintmax_t largestPayload = 64U << 20U;

struct CloseUnlessStandard {
    void operator()(std::FILE* stream) const noexcept {
        if (stream != stdin) {
            std::fclose(stream);
        }
    }
};

[[noreturn]] void failReading() {
    throw Failure{Exit::failed, std::string{"cannot be read: "} + std::strerror(errno)};
}

void refuseIfTooLarge(std::uintmax_t bytes) {
    if (bytes > largestPayload) {
        throw Failure{Exit::failed,
                      "is larger than 64 MiB, the most that a D-Bus message can carry"};
    }
}

/** Size of a regular file; 0 for all else, whose size shows only when it is read. */
std::uintmax_t expectedSize(const std::string& file) {
    std::error_code error;
    const auto size = std::filesystem::file_size(file, error);
    return error ? 0 : size;
}

} // namespace

std::vector<std::uint8_t> readInput(const std::string& file) {
    const std::unique_ptr<std::FILE, CloseUnlessStandard> stream{
        file == "-" ? stdin : std::fopen(file.c_str(), "re")};
    if (stream == nullptr) {
        failReading();
    }
    std::vector<std::uint8_t> bytes;
    if (stream.get() != stdin) {
        const auto expected = expectedSize(file);
        refuseIfTooLarge(expected);
        bytes.reserve(expected);
    }
    std::array<std::uint8_t, std::size_t{64} * 1024> piece; // NOLINT(*-member-init): is read into
    while (const auto got = std::fread(piece.data(), 1, piece.size(), stream.get())) {
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
        refuseIfTooLarge(bytes.size());
    }
    if (std::ferror(stream.get()) != 0) {
        failReading();
    }
    return bytes;
}

std::string displayName(const std::string& file) {
    if (file.empty()) {
        return "''";
    }
    return file == "-" ? "standard input" : file;
}

std::string digestText(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        return {};
    }
    auto text = sha512Text(bytes);
    if (!text) {
        throw Failure{Exit::failed, "its SHA-512 digest could not be computed"};
    }
    return std::move(*text);
}

} // namespace tavrisk::tools
