// SPDX-License-Identifier: Apache-2.0
#include "contract/platform/whelk.h"

#include "platform/whelk/log_file.hpp"
#include "text/hex.hpp"
#include "text/utc_time.hpp"
#include "text/utf8.hpp"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace {

using tavrisk::text::firstCharacter;

// A longer message is cut; the line has room for the prefix and for some escapes besides.
constexpr std::size_t messageCapacity = 4096;
constexpr std::size_t lineCapacity = messageCapacity + 512;
constexpr std::string_view cutMark = "...\n";

/** One line, built on the stack; what does not fit is cut. */
class Line {
public:
    void append(std::string_view text) {
        const auto room = lineCapacity - cutMark.size() - length_;
        cut_ = cut_ || text.size() > room;
        if (!cut_) {
            std::copy(text.begin(), text.end(), bytes_.begin() + static_cast<long>(length_));
            length_ += text.size();
        }
    }

    void append(long number) {
        std::array<char, 20> digits{};
        auto* const end = std::to_chars(digits.begin(), digits.end(), number).ptr;
        append({digits.data(), static_cast<std::size_t>(end - digits.begin())});
    }

    /** Control characters and bytes that are no UTF-8 become "\n" or "\x1b": one message stays one
     *  line, and harmless to a terminal. */
    void appendHarmless(std::string_view text) {
        while (!text.empty()) {
            const auto character = firstCharacter(text);
            const auto bytes = text.substr(0, character.length);
            if (character.valid && !character.isControl()) {
                append(bytes);
            } else {
                appendEscaped(bytes);
            }
            text.remove_prefix(character.length);
        }
    }

    void markCut() { cut_ = true; }

    std::string_view finish() {
        const auto end = cut_ ? cutMark : cutMark.substr(cutMark.size() - 1);
        std::copy(end.begin(), end.end(), bytes_.begin() + static_cast<long>(length_));
        return {bytes_.data(), length_ + end.size()};
    }

private:
    void appendEscaped(std::string_view bytes) {
        for (const char c : bytes) {
            const auto [high, low] = tavrisk::text::hexPair(static_cast<std::uint8_t>(c));
            const std::array escaped{'\\', 'x', high, low};
            append(c == '\n' ? std::string_view{"\\n"}
                             : std::string_view{escaped.data(), escaped.size()});
        }
    }

    std::array<char, lineCapacity> bytes_; // NOLINT(*-member-init): filled as far as it is used
    std::size_t length_ = 0;
    bool cut_ = false;
};

void putPrefix(Line& line, std::uint8_t level, int component) {
    line.append(tavrisk::text::UtcTime{std::chrono::system_clock::now()}.text());
    for (const long number : {long{level}, long{component}, long{getpid()}}) {
        line.append(" ");
        line.append(number);
    }
    line.append("/");
    line.append(gettid());
    line.append(" ");
}

} // namespace

// May run in a child between fork and execve, so nothing here takes a lock or memory from the heap.
// vsnprintf does neither for the conversions the daemon uses; floating-point and wide-character
// ones might allocate, which glibc makes safe after a fork.
void whelk_vprintf(uint8_t level, int component, const char* format, va_list args) {
    if (format == nullptr) {
        return;
    }
    const int errorOfCaller = errno;
    std::array<char, messageCapacity> buffer; // NOLINT(*-member-init): vsnprintf fills it
    const int length = std::vsnprintf(buffer.data(), buffer.size(), format, args);
    if (length >= 0) {
        const auto wanted = static_cast<std::size_t>(length);
        std::string_view message{buffer.data(), std::min(wanted, buffer.size() - 1)};
        const bool cut = message.size() < wanted;
        if (!cut && message.ends_with('\n')) {
            message.remove_suffix(1);
        }
        Line line;
        putPrefix(line, level, component);
        line.appendHarmless(message);
        if (cut) {
            line.markCut();
        }
        tavrisk::platform::appendToDebugLog(line.finish());
    }
    errno = errorOfCaller;
}
