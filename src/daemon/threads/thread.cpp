// SPDX-License-Identifier: Apache-2.0
#include "daemon/threads/thread.hpp"

#include <pthread.h>

#include <cstddef>
#include <system_error>

namespace tavrisk {
namespace {

#ifdef __has_feature
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TAVRISK_SANITIZED
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAVRISK_SANITIZED
#endif

// A worker takes 20 KiB of it, jsoncpp 508 KiB if it ever got all the levels that it accepts, and a
// vendor's library may want 256 KiB.
#ifdef TAVRISK_SANITIZED
// A sanitizer has 780 KiB of its own at the top of each, and frames several times as large.
constexpr std::size_t stackSize = std::size_t{4} << 20;
#else
constexpr std::size_t stackSize = std::size_t{1} << 20;
#endif

void check(int code) {
    if (code != 0) {
        throw std::system_error{code, std::generic_category()};
    }
}

class Attributes {
public:
    Attributes() { check(pthread_attr_init(&attributes_)); }
    ~Attributes() { pthread_attr_destroy(&attributes_); }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;

    pthread_attr_t* get() { return &attributes_; }

private:
    pthread_attr_t attributes_{};
};

} // namespace

void details::start(void* (*run)(void*), void* argument) {
    Attributes attributes;
    check(pthread_attr_setstacksize(attributes.get(), stackSize));
    check(pthread_attr_setdetachstate(attributes.get(), PTHREAD_CREATE_DETACHED));
    pthread_t thread{};
    check(pthread_create(&thread, attributes.get(), run, argument));
}

} // namespace tavrisk
