// SPDX-License-Identifier: Apache-2.0
#include "records/cper_parser.hpp"

#include <json/value.h>

#include <cstddef>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Json::Value summary;
    const int result = nvCperParse({data, data + size}, summary);
    if (summary.size() != (result == 0 ? 6 : 0)) {
        std::abort();
    }
    return 0;
}
