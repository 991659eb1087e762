// SPDX-License-Identifier: Apache-2.0
#include "tools/common/running_digest.hpp"

#include "text/hex.hpp"
#include "tools/common/failure.hpp"

#include <openssl/evp.h>

#include <array>

namespace tavrisk::tools {
namespace {

void check(int result) {
    if (result != 1) {
        throw Failure{Exit::failed, "no SHA-512 can be computed"};
    }
}

} // namespace

void RunningDigest::Free::operator()(evp_md_ctx_st* context) const noexcept {
    EVP_MD_CTX_free(context);
}

RunningDigest::RunningDigest() : context_{EVP_MD_CTX_new()} {
    check(context_ ? EVP_DigestInit_ex(context_.get(), EVP_sha512(), nullptr) : 0);
}

void RunningDigest::add(std::string_view bytes) {
    check(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()));
}

std::string RunningDigest::finish() {
    std::array<unsigned char, 64> digest{};
    check(EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr));
    std::string text;
    for (const auto byte : digest) {
        const auto pair = text::hexPair(byte);
        text.append(pair.begin(), pair.end());
    }
    return text;
}

} // namespace tavrisk::tools
