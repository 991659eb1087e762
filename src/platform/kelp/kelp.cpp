// SPDX-License-Identifier: Apache-2.0
#include "contract/platform/kelp.h"

#include "platform/kelp/kelp_errors.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>

namespace {

constexpr std::uint32_t version = 17;
constexpr std::size_t nameCapacity = 64;

// Offsets within the two records that a client hands over; pointers are 64 bits wide.
constexpr std::size_t clientSize = 16;
constexpr std::size_t clientNameAt = 0;
constexpr std::size_t clientReservedAt = 8;
constexpr std::size_t clientVersionAt = 12;
constexpr std::size_t blockSize = 104;
constexpr std::size_t blockClientAt = 0;
constexpr std::size_t blockVersionAt = 40;
constexpr std::size_t blockReservedAt = 44;

/** Behind the opaque handle. The store that belongs to it is not part of this platform. */
struct Connection {
    std::array<char, nameCapacity> clientName{};
};

/** A record of `Size` bytes that another module has laid out. */
template <std::size_t Size>
class Record {
public:
    explicit Record(const void* start) { std::memcpy(bytes_.data(), start, Size); }

    template <typename Field>
    [[nodiscard]] Field read(std::size_t offset) const {
        Field field{};
        std::memcpy(&field, std::span{bytes_}.subspan(offset, sizeof field).data(), sizeof field);
        return field;
    }

    [[nodiscard]] bool isZero(std::size_t begin, std::size_t end) const {
        const auto range = std::span{bytes_}.subspan(begin, end - begin);
        return std::all_of(range.begin(), range.end(),
                           [](std::byte b) { return b == std::byte{}; });
    }

private:
    std::array<std::byte, Size> bytes_{};
};

KelpError checkClient(const Record<clientSize>& client) {
    const auto* name = client.read<const char*>(clientNameAt);
    if (name == nullptr || *name == '\0' || strnlen(name, nameCapacity) == nameCapacity) {
        return KELP_BAD_CLIENT_NAME;
    }
    if (!client.isZero(clientReservedAt, clientVersionAt)) {
        return KELP_BAD_RESERVED;
    }
    return client.read<std::uint32_t>(clientVersionAt) == version ? KELP_OK : KELP_BAD_VERSION;
}

KelpError checkBlock(const Record<blockSize>& block) {
    if (block.read<const void*>(blockClientAt) == nullptr) {
        return KELP_NO_CLIENT;
    }
    if (block.read<std::uint32_t>(blockVersionAt) != version) {
        return KELP_BAD_VERSION;
    }
    const bool reservedIsZero = block.isZero(blockClientAt + sizeof(void*), blockVersionAt) &&
                                block.isZero(blockReservedAt, blockSize);
    return reservedIsZero ? KELP_OK : KELP_BAD_RESERVED;
}

} // namespace

int32_t kelpc_initialize(void** handle, const void* init_block) {
    if (handle == nullptr || init_block == nullptr) {
        return KELP_INVALID_ARGUMENT;
    }
    const Record<blockSize> block{init_block};
    if (const auto error = checkBlock(block)) {
        return error;
    }
    const Record<clientSize> client{block.read<const void*>(blockClientAt)};
    if (const auto error = checkClient(client)) {
        return error;
    }

    auto* connection = new (std::nothrow) Connection;
    if (connection == nullptr) {
        return KELP_OUT_OF_MEMORY;
    }
    const auto* name = client.read<const char*>(clientNameAt);
    std::copy_n(name, strnlen(name, nameCapacity - 1), connection->clientName.begin());
    *handle = connection;
    return KELP_OK;
}

int32_t kelpc_destroy(void* handle) {
    if (handle == nullptr) {
        return KELP_INVALID_ARGUMENT;
    }
    delete static_cast<Connection*>(handle);
    return KELP_OK;
}
