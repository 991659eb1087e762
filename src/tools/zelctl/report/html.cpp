// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/html.hpp"

#include "tools/common/output.hpp"

#include <algorithm>

namespace tavrisk::tools {
namespace {

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

/** U+FFFE and U+FFFF, which XML does not have. */
std::string withoutNonCharacters(std::string text) {
    for (const auto* const bytes : {"\xef\xbf\xbe", "\xef\xbf\xbf"}) {
        for (auto at = text.find(bytes); at != std::string::npos; at = text.find(bytes, at)) {
            text.replace(at, 3, bytes[2] == '\xbe' ? "\\u{fffe}" : "\\u{ffff}");
        }
    }
    return text;
}

} // namespace

Html& Html::put(const std::string& text) {
    return putBytes(escaped(withoutNonCharacters(harmlessInFile(text))));
}

Html& Html::putBytes(std::string_view bytes) {
    sink_(bytes);
    size_ += bytes.size();
    return *this;
}

Html& Html::lines(std::string_view text) {
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        *this << std::string{text.substr(0, end)} << "\n";
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return *this;
}

std::string beginningOf(std::string_view text, std::size_t most) {
    if (text.size() <= most) {
        return std::string{text};
    }
    const auto isInCharacter = [&text](std::size_t at) {
        return (static_cast<unsigned char>(text[at]) & 0xc0U) == 0x80;
    };
    auto end = most;
    while (most - end < 3 && end > 0 && isInCharacter(end)) { // No character is longer.
        --end;
    }
    return std::string{text.substr(0, end)} + " ...";
}

} // namespace tavrisk::tools
