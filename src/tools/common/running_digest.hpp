// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <string_view>

struct evp_md_ctx_st;

namespace tavrisk::tools {

/** The SHA-512 of bytes that are never in memory all at once. Its members raise Failure for want of
 *  memory. */
class RunningDigest {
public:
    RunningDigest();

    void add(std::string_view bytes);
    /** In hexadecimal; nothing can be added then. */
    std::string finish();

private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const noexcept;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};

} // namespace tavrisk::tools
