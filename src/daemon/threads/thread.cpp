// SPDX-License-Identifier: Apache-2.0
#include "daemon/threads/thread.hpp"

#include <pthread.h>

#include <memory>
#include <system_error>
#include <utility>

namespace tavrisk {
namespace {

using Body = std::function<void()>;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t stackSize = std::size_t{4} << 20; // Its frames are several times as large.
#else
constexpr std::size_t stackSize = std::size_t{512} << 10;
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
