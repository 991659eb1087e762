// SPDX-License-Identifier: Apache-2.0
#include "daemon/interface/carried_exception.hpp"

#include <exception>
#include <utility>

namespace tavrisk {
namespace {

thread_local std::exception_ptr carried;

} // namespace

void carryException() noexcept {
    if (!carried) {
        carried = std::current_exception();
    }
}

void rethrowCarriedException() {
    if (carried) {
        std::rethrow_exception(std::exchange(carried, nullptr));
    }
}

void dropCarriedException() noexcept {
    carried = nullptr;
}

} // namespace tavrisk
