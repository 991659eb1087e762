// SPDX-License-Identifier: Apache-2.0
#include "records/catalogue.hpp"
#include "records/classifier.hpp"

#include <cstddef>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::int32_t event = 0;
    char* device = nullptr;
    std::uint32_t severity = 0;
    const bool reportable = checkRedfishData({data, size}, event, device, severity) == 1;
    if (reportable != (device != nullptr) ||
        reportable != (tavrisk::findMessage(event) != nullptr)) {
        std::abort();
    }
    std::free(device);
    return 0;
}
