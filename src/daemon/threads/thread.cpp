// SPDX-License-Identifier: Apache-2.0
#include "daemon/threads/thread.hpp"

#include <pthread.h>

#include <memory>
#include <system_error>
#include <utility>

namespace tavrisk {
namespace {

using Body = std::function<void()>;

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

// No exception leaves it: there is nobody to take it.
void* run(void* argument) noexcept {
    const std::unique_ptr<Body> body{static_cast<Body*>(argument)};
    (*body)();
    return nullptr;
}

} // namespace

void startThread(std::function<void()> body) {
    auto owned = std::make_unique<Body>(std::move(body));
    Attributes attributes;
    check(pthread_attr_setstacksize(attributes.get(), stackSize));
    check(pthread_attr_setdetachstate(attributes.get(), PTHREAD_CREATE_DETACHED));
    pthread_t thread{};
    check(pthread_create(&thread, attributes.get(), run, owned.get()));
    static_cast<void>(owned.release()); // The thread's from now on.
}

} // namespace tavrisk
