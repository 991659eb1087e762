// SPDX-License-Identifier: Apache-2.0
#include "records/digest.hpp"

#include "log/diag_log.hpp"

#include <openssl/evp.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <memory>
#include <sstream>

namespace {

constexpr std::size_t digestSize = 64;
constexpr std::size_t digestTextLength = 2 * digestSize;
using Digest = std::array<unsigned char, digestSize>;

struct FreeContext {
    void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
};

struct Free {
    void operator()(char* text) const noexcept { std::free(text); }
};

using Context = std::unique_ptr<EVP_MD_CTX, FreeContext>;

bool begin(const Context& context) {
    return context && EVP_DigestInit_ex(context.get(), EVP_sha512(), nullptr) == 1;
}

bool computeSha512(const std::uint8_t* data, std::uint32_t length, Digest& digest) {
    constexpr auto logName = "SignIt";
    diag_log(8, 7, "%s: Message: %s", logName, "512 INIT");
    const Context context{EVP_MD_CTX_new()};
    bool good = begin(context);
    diag_log(8, 7, "%s: Message: %s", logName, "512 UPDATE");
    good = good && EVP_DigestUpdate(context.get(), data, length) == 1;
    diag_log(8, 7, "%s: Message: %s", logName, "512 FINAL");
    return good && EVP_DigestFinal_ex(context.get(), digest.data(), nullptr) == 1;
}

std::string toText(const Digest& digest) {
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (const unsigned byte : digest) {
        text << std::setw(2) << byte;
    }
    return text.str();
}

} // namespace

void tavrisk::prepareDigests() {
    begin(Context{EVP_MD_CTX_new()});
}

int SignIt(const std::uint8_t* data, std::uint32_t length, char** text) {
    if (data == nullptr || length == 0 || text == nullptr) {
        diag_log(8, 4, "%s: Invalid parameters", __func__);
        return -1;
    }

    Digest digest{};
    if (!computeSha512(data, length, digest)) {
        diag_log(8, 4, "%s: Failed to compute hash", __func__);
        return -1;
    }
    diag_log(8, 7, "%s: SignIt: (%s)", __func__, "Memcpy");

    *text = strdup(toText(digest).c_str());
    if (*text == nullptr) {
        diag_log(8, 4, "%s: Failed to allocate memory", __func__);
        return -1;
    }
    diag_log(8, 7, "%s: SignIt: (%s): (%s)", __func__, "Done", *text);
    return 0;
}

int validateBuffer(const std::string& validationString,
                   const std::vector<std::uint8_t>& logDataBuffer) {
    char* signedText = nullptr;
    const int result =
        SignIt(logDataBuffer.data(), static_cast<std::uint32_t>(logDataBuffer.size()), &signedText);
    const std::unique_ptr<char, Free> digestText{signedText};
    if (result != 0) {
        diag_log(8, 4, "%s: Failed to generate hash: %s", __func__, std::strerror(errno));
        return result;
    }

    diag_log(8, 7, "%s: bufferh: %s", __func__, validationString.c_str());
    diag_log(8, 7, "%s: calculated hash  %s", __func__, digestText.get());
    if (std::strncmp(validationString.c_str(), digestText.get(), digestTextLength) != 0) {
        return -1;
    }
    diag_log(8, 7, "%s: Hashes match", __func__);
    return 0;
}
