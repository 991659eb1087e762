// SPDX-License-Identifier: Apache-2.0
#include "records/catalogue.hpp"
#include "records/classifier.hpp"

#include <cstddef>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto verdict = tavrisk::classify({data, size});
    const bool isBad =
        verdict.severity.value_or(tavrisk::Severity::other) != tavrisk::Severity::other;
    const bool good = verdict.event
                          ? isBad && tavrisk::findMessage(verdict.event->number) != nullptr
                          : !verdict.reason.empty();
    if (!good) {
        std::abort();
    }
    return 0;
}
