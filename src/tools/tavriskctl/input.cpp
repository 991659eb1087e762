// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/input.hpp"

#include "records/digest.hpp"
#include "tools/tavriskctl/exit.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tavrisk::ctl {
namespace {

class Descriptor {
public:
    explicit Descriptor(const std::string& file)
        : descriptor_{file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC)} {}
    ~Descriptor() {
        if (descriptor_ > STDERR_FILENO) {
            close(descriptor_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const noexcept { return descriptor_; }

private:
    int descriptor_;
};

[[noreturn]] void failReading() {
    throw Failure{Exit::refused, std::string{"cannot be read: "} + std::strerror(errno)};
}

[[noreturn]] void failForSize() {
    throw Failure{Exit::refused, "is larger than 64 MiB, the most that a D-Bus message can carry"};
}

/** Size of a regular file; 0 for all else, whose size shows only when it is read. */
std::size_t expectedSize(int descriptor) {
    struct stat info {};
    if (fstat(descriptor, &info) != 0) {
        failReading();
    }
    return S_ISREG(info.st_mode) ? static_cast<std::size_t>(info.st_size) : 0;
}

} // namespace

std::vector<std::uint8_t> readInput(const std::string& file) {
    const Descriptor descriptor{file};
    if (descriptor.get() < 0) {
        failReading();
    }
    const std::size_t expected = expectedSize(descriptor.get());
    if (expected > largestPayload) {
        failForSize();
    }

    // One byte more than expected: the end then shows with the read that follows.
    std::vector<std::uint8_t> bytes(std::max<std::size_t>(expected + 1, std::size_t{64} * 1024));
    std::size_t used = 0;
    for (;;) {
        const ssize_t got = read(descriptor.get(), bytes.data() + used, bytes.size() - used);
        if (got < 0 && errno != EINTR) {
            failReading();
        }
        if (got == 0) {
            break;
        }
        used += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
        if (used > largestPayload) {
            failForSize();
        }
        if (used == bytes.size()) {
            bytes.resize(std::min(2 * used, largestPayload + 1));
        }
    }
    bytes.resize(used);
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
        throw Failure{Exit::refused, "its SHA-512 digest could not be computed"};
    }
    return std::move(*text);
}

} // namespace tavrisk::ctl
