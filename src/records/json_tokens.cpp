// SPDX-License-Identifier: Apache-2.0
#include "records/json_tokens.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace tavrisk {
namespace {

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool isSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Fewer than any number has that is too large for a double.
constexpr std::ptrdiff_t mostPlainDigits = 300;

const char* find(const char* begin, const char* end, char wanted) noexcept {
    const auto* found =
        static_cast<const char*>(std::memchr(begin, wanted, static_cast<std::size_t>(end - begin)));
    return found != nullptr ? found : end;
}

} // namespace

JsonToken JsonTokens::next() noexcept {
    skipSpaces();
    start_ = at_;
    return read(take());
}

JsonToken JsonTokens::nextButComments() noexcept {
    JsonToken token = next();
    while (token == JsonToken::comment) {
        token = next();
    }
    return token;
}

bool JsonTokens::comesNext(char wanted) noexcept {
    skipSpaces();
    return at_ != end_ && *at_ == wanted;
}

// A zero byte is the end of the text, wherever a token may begin.
JsonToken JsonTokens::read(char first) noexcept {
    const auto unless = [](bool good, JsonToken token) { return good ? token : JsonToken::error; };
    switch (first) {
    case '{':
        return JsonToken::objectBegin;
    case '}':
        return JsonToken::objectEnd;
    case '[':
        return JsonToken::arrayBegin;
    case ']':
        return JsonToken::arrayEnd;
    case ',':
        return JsonToken::comma;
    case ':':
        return JsonToken::colon;
    case '"':
        return unless(skipString(), JsonToken::string);
    case '/':
        return unless(skipComment(), JsonToken::comment);
    case 't':
        return unless(match("rue"), JsonToken::literal);
    case 'f':
        return unless(match("alse"), JsonToken::literal);
    case 'n':
        return unless(match("ull"), JsonToken::literal);
    case '\0':
        return JsonToken::end;
    default:
        break;
    }
    if (first != '-' && !isDigit(first)) {
        return JsonToken::error;
    }
    skipNumber();
    return JsonToken::number;
}

void JsonTokens::skipSpaces() noexcept {
    at_ = std::find_if_not(at_, end_, isSpace);
}

void JsonTokens::skipPlainElements() noexcept {
    for (skipSpaces(); at_ != end_ && *at_ == ','; skipSpaces()) {
        const char* const first = std::find_if_not(at_ + 1, end_, isSpace);
        const char* const last = std::find_if_not(first, end_, isDigit);
        const bool goesOn = last != end_ && (*last == '.' || *last == 'e' || *last == 'E');
        if (first == last || last - first > mostPlainDigits || goesOn) {
            return;
        }
        at_ = last;
    }
}

bool JsonTokens::match(std::string_view rest) noexcept {
    const bool matches = std::string_view{at_, end_}.substr(0, rest.size()) == rest;
    at_ += matches ? rest.size() : 0;
    return matches;
}

// From escape to escape; the quote is only looked for again when it was an escaped one, or many
// escapes would each cost a look at all that follows.
bool JsonTokens::skipString() noexcept {
    const char* quote = find(at_, end_, '"');
    while (true) {
        at_ = find(at_, quote, '\\');
        if (at_ == quote) {
            break;
        }
        ++at_;
        take();
        if (at_ > quote) {
            quote = find(at_, end_, '"');
        }
    }
    return at_ != end_ && take() == '"';
}

bool JsonTokens::skipComment() noexcept {
    switch (take()) {
    case '*':
        return skipBlockComment();
    case '/':
        skipLineComment();
        return true;
    default:
        return false;
    }
}

bool JsonTokens::skipBlockComment() noexcept {
    while (at_ + 1 < end_) {
        if (take() == '*' && *at_ == '/') {
            break;
        }
    }
    return take() == '/';
}

// It ends at a carriage return too.
void JsonTokens::skipLineComment() noexcept {
    at_ = std::find_if(at_, end_, [](char c) { return c == '\n' || c == '\r'; });
    if (take() == '\r' && at_ != end_ && *at_ == '\n') {
        ++at_;
    }
}

void JsonTokens::skipNumber() noexcept {
    skipDigits();
    if (at_ != end_ && *at_ == '.') {
        ++at_;
        skipDigits();
    }
    if (at_ != end_ && (*at_ == 'e' || *at_ == 'E')) {
        ++at_;
        if (at_ != end_ && (*at_ == '+' || *at_ == '-')) {
            ++at_;
        }
        skipDigits();
    }
}

void JsonTokens::skipDigits() noexcept {
    at_ = std::find_if_not(at_, end_, isDigit);
}

void JsonName::append(char byte) noexcept {
    if (size_ < capacity) {
        bytes_[size_++] = byte;
    }
}

void JsonName::append(std::string_view bytes) noexcept {
    const auto taken = std::min(bytes.size(), capacity - size_);
    std::copy_n(bytes.data(), taken, bytes_.data() + size_);
    size_ += taken;
}

bool JsonName::operator==(std::string_view name) const noexcept {
    return std::string_view{bytes_.data(), size_} == name;
}

namespace {

/** Takes four hexadecimal digits from the beginning of `text`; -1 when they are not there. */
int takeCodeUnit(std::string_view& text) noexcept {
    if (text.size() < 4) {
        return -1;
    }
    int unit = 0;
    for (const char c : text.substr(0, 4)) {
        const int digit = isDigit(c)             ? c - '0'
                          : c >= 'a' && c <= 'f' ? c - 'a' + 10
                          : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                 : -1;
        if (digit < 0) {
            return -1;
        }
        unit = unit * 16 + digit;
    }
    text.remove_prefix(4);
    return unit;
}

/** What follows "\u", taken from the beginning of `text`. The second of a pair may be any; a second
 *  one without a first is let through. */
bool decodeCodePoint(std::string_view& text, JsonName& name) noexcept {
    const int unit = takeCodeUnit(text);
    if (unit >= 0xd800 && unit <= 0xdbff) {
        if (text.substr(0, 2) != "\\u") {
            return false;
        }
        text.remove_prefix(2);
        if (takeCodeUnit(text) < 0) {
            return false;
        }
    }
    // No text that is looked for has other than ASCII characters.
    name.append(unit <= 0x7f ? static_cast<char>(unit) : '\x80');
    return unit >= 0;
}

bool decodeEscape(std::string_view& text, JsonName& name) noexcept {
    constexpr std::string_view letters = "\"/\\bfnrt";
    constexpr std::string_view meant = "\"/\\\b\f\n\r\t";
    if (text.empty()) {
        return false;
    }
    const char letter = text.front();
    text.remove_prefix(1);
    if (letter == 'u') {
        return decodeCodePoint(text, name);
    }
    const auto found = letters.find(letter);
    if (found == std::string_view::npos) {
        return false;
    }
    name.append(meant[found]);
    return true;
}

} // namespace

bool decodeJsonString(std::string_view token, JsonName& name) noexcept {
    auto text = token.substr(1, token.size() - 2);
    while (!text.empty()) {
        const char* const escape = find(text.data(), text.data() + text.size(), '\\');
        const auto plain = static_cast<std::size_t>(escape - text.data());
        name.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (!text.empty()) {
            text.remove_prefix(1);
            if (!decodeEscape(text, name)) {
                return false;
            }
        }
    }
    return true;
}

namespace {

/** A number's text in its parts, without its sign. */
struct Parts {
    std::string_view digits; // Before the point.
    std::string_view decimals;
    std::string_view exponent; // With its sign.
    bool hasPoint;
    bool hasExponent;

    [[nodiscard]] std::size_t size() const noexcept { return digits.size() + decimals.size(); }
    [[nodiscard]] char digit(std::size_t i) const noexcept {
        return i < digits.size() ? digits[i] : i < size() ? decimals[i - digits.size()] : '0';
    }
};

std::string_view takeDigits(std::string_view& text) noexcept {
    const auto* end = std::find_if_not(text.begin(), text.end(), isDigit);
    const auto length = static_cast<std::size_t>(end - text.begin());
    const auto digits = text.substr(0, length);
    text.remove_prefix(length);
    return digits;
}

bool takeOneOf(std::string_view& text, std::string_view characters) noexcept {
    const bool there = !text.empty() && characters.find(text.front()) != std::string_view::npos;
    text.remove_prefix(there ? 1 : 0);
    return there;
}

Parts partsOf(std::string_view text) noexcept {
    takeOneOf(text, "-");
    Parts parts{};
    parts.digits = takeDigits(text);
    parts.hasPoint = takeOneOf(text, ".");
    parts.decimals = takeDigits(text);
    parts.hasExponent = takeOneOf(text, "eE");
    parts.exponent = text;
    return parts;
}

/** Far more than any text has digits is as good as more than that. */
std::int64_t exponentOf(std::string_view text) noexcept {
    constexpr std::int64_t plenty = 1'000'000'000'000;
    const bool negative = text.substr(0, 1) == "-";
    takeOneOf(text, "+-");
    std::int64_t exponent = 0;
    for (const char c : text) {
        exponent = std::min(exponent * 10 + (c - '0'), plenty);
    }
    return negative ? -exponent : exponent;
}

// The digits of 2^1024 - 2^970, the least number that is rounded beyond the greatest double.
constexpr std::string_view tooLarge =
    "17976931348623158079372897140530341507993413271003782693617377898044496829276475094664901797"
    "75872070963302864166928879109465555478519404026306574886715058206819089020007083836762738548"
    "45817711531764475730270069855571366959622842914819860834936475292719074168444365510704342711"
    "559699508093042880177904174497792";
static_assert(tooLarge.size() == 309);

bool isFinite(const Parts& parts) noexcept {
    std::size_t first = 0;
    while (first < parts.size() && parts.digit(first) == '0') {
        ++first;
    }
    if (first == parts.size()) {
        return true; // Zero, with whatever exponent.
    }
    const auto places = static_cast<std::int64_t>(parts.digits.size()) -
                        static_cast<std::int64_t>(first) + exponentOf(parts.exponent);
    constexpr auto limit = static_cast<std::int64_t>(tooLarge.size());
    if (places != limit) {
        return places < limit;
    }
    for (std::size_t i = 0; i < tooLarge.size(); ++i) {
        if (const char digit = parts.digit(first + i); digit != tooLarge[i]) {
            return digit < tooLarge[i];
        }
    }
    return false;
}

} // namespace

bool isJsonNumber(std::string_view token) noexcept {
    const Parts parts = partsOf(token);
    if (parts.hasPoint || parts.hasExponent) {
        const bool hasMantissa = parts.size() != 0;
        const bool endsInDigit =
            !parts.hasExponent || (!parts.exponent.empty() && isDigit(parts.exponent.back()));
        return hasMantissa && endsInDigit && isFinite(parts);
    }
    return isFinite(parts);
}

} // namespace tavrisk
