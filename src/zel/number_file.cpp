// SPDX-License-Identifier: Apache-2.0
#include "zel/number_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>

namespace tavrisk::zel {
namespace {

// How many numbers are reserved at once: one more wait for the disk in as many entries.
constexpr std::int64_t block = 256;

} // namespace

NumberFile::Numbers NumberFile::read() const {
    Numbers numbers;
    std::array<char, 64> text{};
    const int file = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    const bool isRead = file >= 0 && pread(file, text.data(), text.size() - 1, 0) > 0;
    if (file >= 0) {
        close(file);
    }
    // NOLINTNEXTLINE(cert-err34-c): a number out of range is as wrong as no number
    if (!isRead ||
        std::sscanf(text.data(), "%20" SCNd64 " %20" SCNd64 "\n", &numbers.used,
                    &numbers.reserved) != 2 ||
        numbers.used < 0 || numbers.reserved < numbers.used) {
        return {};
    }
    return numbers;
}

void NumberFile::reserve(std::int64_t number) const {
    const auto numbers = read();
    if (numbers.reserved < number) {
        write({numbers.used, number + block - 1}, true);
    }
}

void NumberFile::use(std::int64_t number) const {
    auto numbers = read();
    numbers.used = std::max(numbers.used, number);
    numbers.reserved = std::max(numbers.reserved, number);
    write(numbers, false);
}

void NumberFile::write(Numbers numbers, bool synced) const {
    // Of one width, and written in its place: a full disk has room for it.
    std::array<char, 64> text{};
    const int size = std::snprintf(text.data(), text.size(), "%020" PRId64 " %020" PRId64 "\n",
                                   numbers.used, numbers.reserved);
    const int file = open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (file >= 0) {
        if (pwrite(file, text.data(), static_cast<std::size_t>(size), 0) == size && synced) {
            fdatasync(file);
        }
        close(file);
    }
}

} // namespace tavrisk::zel
