// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <utility>

namespace tavrisk {

namespace details {

/** Runs `run(argument)` on a thread as told below; `argument` is its own once this returns. */
void start(void* (*run)(void*), void* argument);

} // namespace details

/**
 * Runs `*body` on a thread of its own that nobody waits for, and takes it over. Raises
 * std::system_error when no thread is to be had; `body` is the caller's then as before, who may try
 * again. What leaves `*body` as an exception ends the daemon.
 *
 * The stack has a size of its own: by default it would be 8 MiB on one C library, at which
 * thousands of threads want more addresses than a limit may grant, and 128 KiB on another, which is
 * little for a vendor's library.
 */
template <typename Body>
void startThread(std::unique_ptr<Body>& body) {
    // No exception leaves it: there is nobody to take it.
    constexpr auto run = [](void* argument) noexcept -> void* {
        const std::unique_ptr<Body> owned{static_cast<Body*>(argument)};
        (*owned)();
        return nullptr;
    };
    details::start(run, body.get());
    static_cast<void>(body.release()); // The thread's from now on.
}

/** The same for a body that is wanted once only. Raises std::bad_alloc when there is no memory for
 *  it. */
template <typename Body>
void startThread(Body body) {
    auto owned = std::make_unique<Body>(std::move(body));
    startThread(owned);
}

} // namespace tavrisk
