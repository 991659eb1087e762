// SPDX-License-Identifier: Apache-2.0
#include "zel/json_text.hpp"

#include "text/hex.hpp"
#include "text/utf8.hpp"

#include <cstdint>

namespace tavrisk::zel {
namespace {

constexpr std::string_view replacement = "\xef\xbf\xbd";

template <typename Consumer>
void forEachCharacter(std::string_view text, Consumer consume) {
    while (!text.empty()) {
        const auto character = text::firstCharacter(text);
        consume(character, character.valid ? text.substr(0, character.length) : replacement);
        text.remove_prefix(character.length);
    }
}

void appendQuoted(std::string& json, std::string_view text) {
    json += '"';
    forEachCharacter(text, [&json](const text::Character& character, std::string_view utf8) {
        if (character.valid && character.isControl()) {
            json += "\\u00";
            const auto pair = text::hexPair(static_cast<std::uint8_t>(character.codePoint));
            json.append(pair.data(), pair.size());
            return;
        }
        if (utf8 == "\"" || utf8 == "\\") {
            json += '\\';
        }
        json += utf8;
    });
    json += '"';
}

} // namespace

std::string toUtf8(std::string_view bytes) {
    std::string text;
    forEachCharacter(bytes, [&text](const text::Character& /*character*/, std::string_view utf8) {
        text += utf8;
    });
    return text;
}

std::string toJsonArray(std::span<const std::string_view> strings) {
    std::string json = "[";
    for (const auto string : strings) {
        if (json.size() > 1) {
            json += ',';
        }
        appendQuoted(json, string);
    }
    json += ']';
    return json;
}

} // namespace tavrisk::zel
