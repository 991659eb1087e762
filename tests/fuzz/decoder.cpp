// SPDX-License-Identifier: Apache-2.0
#include "records/cper/printed.hpp"
#include "records/cper/record.hpp"

#include <json/value.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace {

bool isPlain(const std::string& text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return c == '\n' || (c >= ' ' && c <= '~'); });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto record = tavrisk::cper::decode({data, size});
    // Printing takes most of the time, and reads nothing of the bytes any more.
    if (size == 0 || data[size - 1] % 16 != 0) {
        return 0;
    }
    const auto json = tavrisk::cper::toJson(record);
    const auto sentence = tavrisk::cper::sentence(record);
    if (!json["header"].isObject() || !json["sections"].isArray() || sentence.empty() ||
        !isPlain(sentence) || !isPlain(tavrisk::cper::toText(record))) {
        std::abort();
    }
    return 0;
}
