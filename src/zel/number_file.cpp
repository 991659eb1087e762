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

// Where the numbers stand, each in as many digits as fit between, and never moved: a full disk has
// room for another value, and two processes do not write over each other's.
constexpr int usedPlace = 0;
constexpr int reservedPlace = 21;

} // namespace

NumberFile::NumberFile(const std::string& path)
    : file_{open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)} {}

NumberFile::~NumberFile() {
    if (file_ >= 0) {
        close(file_);
    }
}

NumberFile::Numbers NumberFile::read() const {
    Numbers numbers;
    std::array<char, 64> text{};
    // NOLINTNEXTLINE(cert-err34-c): a number out of range is as wrong as no number
    if (pread(file_, text.data(), text.size() - 1, 0) <= 0 ||
        std::sscanf(text.data(), "%20" SCNd64 " %20" SCNd64 "\n", &numbers.used,
                    &numbers.reserved) != 2 ||
        numbers.used < 0 || numbers.reserved <= 0) {
        return {};
    }
    return {numbers.used, std::max(numbers.used, numbers.reserved)};
}

void NumberFile::reserve(std::int64_t number) {
    if (number <= reserved_) {
        return;
    }
    const auto numbers = read(); // Another process may have reserved more.
    reserved_ = numbers.reserved;
    if (number > reserved_ && (numbers.reserved != 0 || write(0, usedPlace)) &&
        write(number + block - 1, reservedPlace)) {
        fdatasync(file_);
        reserved_ = number + block - 1;
    }
}

void NumberFile::use(std::int64_t number) const {
    if (reserved_ != 0) {
        static_cast<void>(write(number, usedPlace));
    }
}

bool NumberFile::write(std::int64_t number, int place) const {
    std::array<char, 32> text{};
    const int size = std::snprintf(text.data(), text.size(), "%020" PRId64 "%c", number,
                                   place == usedPlace ? ' ' : '\n');
    return pwrite(file_, text.data(), static_cast<std::size_t>(size), place) == size;
}

} // namespace tavrisk::zel
