// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavrisk {

/** What jsoncpp's Json::Reader takes a piece of text for. */
enum class JsonToken : std::uint8_t {
    objectBegin,
    objectEnd,
    arrayBegin,
    arrayEnd,
    string,
    number,
    literal,
    comma,
    colon,
    comment,
    end,
    error,
};

/**
 * Cuts text into tokens as jsoncpp's Json::Reader does, byte for byte and with all its leniencies,
 * and takes no memory for it. The text has to outlive the object.
 */
class JsonTokens {
public:
    explicit JsonTokens(std::string_view text) noexcept
        : at_{text.data()}, end_{text.data() + text.size()} {}

    JsonToken next() noexcept;
    JsonToken nextButComments() noexcept;
    /** Passes over white space; whether `wanted` comes then. */
    bool comesNext(char wanted) noexcept;
    /** Passes over as many commas as follow with nothing but a few digits behind each, and over
     *  white space: behind an element of an array, elements that need no closer look. */
    void skipPlainElements() noexcept;
    /** The last token's text. */
    [[nodiscard]] std::string_view text() const noexcept { return {start_, at_}; }

private:
    JsonToken read(char first) noexcept;
    char take() noexcept { return at_ == end_ ? '\0' : *at_++; }
    void skipSpaces() noexcept;
    bool match(std::string_view rest) noexcept;
    bool skipString() noexcept;
    bool skipComment() noexcept;
    bool skipBlockComment() noexcept;
    void skipLineComment() noexcept;
    void skipNumber() noexcept;
    void skipDigits() noexcept;

    const char* at_;
    const char* end_;
    const char* start_ = nullptr;
};

/** The beginning of a decoded string: enough to tell whether it is one of a few ASCII texts that
 * are shorter than its capacity. */
class JsonName {
public:
    static constexpr std::size_t capacity = 64;

    void append(char byte) noexcept;
    void append(std::string_view bytes) noexcept;
    [[nodiscard]] bool empty() const noexcept { return size_ == 0; }
    bool operator==(std::string_view name) const noexcept;

private:
    std::array<char, capacity> bytes_{};
    std::size_t size_ = 0;
};

/** Decodes the text of a string token into `name`; false where jsoncpp refuses an escape. */
bool decodeJsonString(std::string_view token, JsonName& name) noexcept;

/** Whether jsoncpp makes a number of the text of a number token: of digits, also of none behind a
 *  "-", and of what the C++ library reads as a finite double. */
bool isJsonNumber(std::string_view token) noexcept;

} // namespace tavrisk
