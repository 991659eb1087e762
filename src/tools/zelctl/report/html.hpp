// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace tavrisk::tools {

/** Markup of ours. Only a literal becomes one, so that nothing of a record can. */
class Markup {
public:
    consteval Markup(const char* literal) : text_{literal} {} // NOLINT(google-explicit-constructor)
    [[nodiscard]] constexpr std::string_view text() const { return text_; }

private:
    std::string_view text_;
};

/** Writes HTML that is XML as well. Whatever is no literal is escaped. */
class Html {
public:
    using Sink = std::function<void(std::string_view)>;
    explicit Html(Sink sink) : sink_{std::move(sink)} {}

    Html& operator<<(Markup markup) { return putBytes(markup.text()); }
    /** Escaped, and with what would not be seen, or change how others are, made visible. */
    template <std::same_as<std::string> Text> // A literal is markup.
    Html& operator<<(const Text& text) {
        return put(text);
    }
    /** The same, with its line ends kept. */
    Html& lines(std::string_view text);

    /** How many bytes it has become. */
    [[nodiscard]] std::size_t size() const { return size_; }

private:
    Html& put(const std::string& text);
    Html& putBytes(std::string_view bytes);

    Sink sink_;
    std::size_t size_ = 0;
};

/** The text, or as much of a longer one as `most` bytes have. */
std::string beginningOf(std::string_view text, std::size_t most);

} // namespace tavrisk::tools
