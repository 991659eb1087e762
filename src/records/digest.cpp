// SPDX-License-Identifier: Apache-2.0
#include "records/digest.hpp"

#include "log/diag_log.hpp"
#include "text/hex.hpp"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace {

constexpr auto digestLogName = "SignIt";

constexpr std::size_t digestSize = 64;
constexpr std::size_t digestTextLength = 2 * digestSize;
using Digest = std::array<unsigned char, digestSize>;

struct FreeContext {
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

using Context = std::unique_ptr<EVP_MD_CTX, FreeContext>;

/** The calling thread's context with a digest begun in it; null when that failed. It is kept from
 *  digest to digest: all but a thread's first take no memory. */
EVP_MD_CTX* begin() {
    thread_local Context context;
    const EVP_MD* algorithm = nullptr; // The one that it has.
    if (!context) {
        context.reset(EVP_MD_CTX_new());
        algorithm = EVP_sha512();
    }
    if (context && EVP_DigestInit_ex(context.get(), algorithm, nullptr) != 1) {
        context.reset();
    }
    return context.get();
}

bool computeSha512(std::span<const std::uint8_t> bytes, Digest& digest) {
    diag_log(LOG_USER, LOG_DEBUG, "%s: Message: %s", digestLogName, "512 INIT");
    auto* const context = begin();
    diag_log(LOG_USER, LOG_DEBUG, "%s: Message: %s", digestLogName, "512 UPDATE");
    const bool good =
        context != nullptr && EVP_DigestUpdate(context, bytes.data(), bytes.size()) == 1;
    diag_log(LOG_USER, LOG_DEBUG, "%s: Message: %s", digestLogName, "512 FINAL");
    return good && EVP_DigestFinal_ex(context, digest.data(), nullptr) == 1;
}

std::string toText(const Digest& digest) {
    std::string text(digestTextLength, '\0');
    auto at = text.begin();
    for (const auto byte : digest) {
        const auto pair = tavrisk::text::hexPair(byte);
        at = std::copy(pair.begin(), pair.end(), at);
    }
    return text;
}

void logWantOfMemory() {
    diag_log(LOG_USER, LOG_WARNING, "%s: Failed to allocate memory", digestLogName);
}

} // namespace

void tavrisk::prepareDigests() {
    // Nobody here reads OpenSSL's words for its errors, which take half a MiB.
    OPENSSL_init_crypto(OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS, nullptr);
    begin();
}

std::optional<std::string> tavrisk::sha512Text(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Invalid parameters", digestLogName);
        return std::nullopt;
    }
    Digest digest{};
    if (!computeSha512(bytes, digest)) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed to compute hash", digestLogName);
        return std::nullopt;
    }
    diag_log(LOG_USER, LOG_DEBUG, "%s: SignIt: (%s)", digestLogName, "Memcpy");
    try {
        auto text = toText(digest);
        diag_log(LOG_USER, LOG_DEBUG, "%s: SignIt: (%s): (%s)", digestLogName, "Done",
                 text.c_str());
        return text;
    } catch (const std::bad_alloc&) {
        logWantOfMemory();
        return std::nullopt;
    }
}

int validateBuffer(const std::string& validationString,
                   const std::vector<std::uint8_t>& logDataBuffer) {
    const auto digestText = tavrisk::sha512Text(logDataBuffer);
    if (!digestText) {
        diag_log(LOG_USER, LOG_WARNING, "%s: Failed to generate hash: %s", __func__,
                 std::strerror(errno));
        return -1;
    }

    diag_log(LOG_USER, LOG_DEBUG, "%s: bufferh: %s", __func__, validationString.c_str());
    diag_log(LOG_USER, LOG_DEBUG, "%s: calculated hash  %s", __func__, digestText->c_str());
    if (std::strncmp(validationString.c_str(), digestText->c_str(), digestTextLength) != 0) {
        return -1;
    }
    diag_log(LOG_USER, LOG_DEBUG, "%s: Hashes match", __func__);
    return 0;
}

int SignIt(const std::uint8_t* data, std::uint32_t length, char** text) {
    // Nothing is hashed for a result that has no place to go.
    const bool usable = data != nullptr && text != nullptr;
    const auto made = tavrisk::sha512Text({data, usable ? length : 0});
    if (!made) {
        return -1;
    }
    *text = strdup(made->c_str());
    if (*text == nullptr) {
        logWantOfMemory();
        return -1;
    }
    return 0;
}
