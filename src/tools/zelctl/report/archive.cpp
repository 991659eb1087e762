// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/report/archive.hpp"

#include "tools/common/running_digest.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <utility>

namespace tavrisk::tools {
namespace {

constexpr std::size_t blockSize = 512;

struct Field {
    std::size_t at;
    std::size_t size; // with a NUL, where it has one
};
constexpr Field nameField{0, 100};
constexpr Field modeField{100, 8};
constexpr Field userField{108, 8};
constexpr Field groupField{116, 8};
constexpr Field sizeField{124, 12};
constexpr Field timeField{136, 12};
constexpr Field checksumField{148, 8};
constexpr std::size_t typeAt = 156;
constexpr Field magicField{257, 8};

/** One block, filled with NULs but for what is set. */
class Header {
public:
    void set(const Field& field, std::string_view text) {
        std::copy_n(text.begin(), std::min(text.size(), field.size),
                    block_.begin() + static_cast<std::ptrdiff_t>(field.at));
    }
    void set(const Field& field, std::int64_t number) {
        std::array<char, 24> text{};
        std::snprintf(text.data(), text.size(), "%0*llo", static_cast<int>(field.size - 1),
                      static_cast<unsigned long long>(number));
        set(field, std::string_view{text.data(), field.size - 1});
    }
    void setType(char type) { block_.at(typeAt) = type; }

    /** With its checksum, which is made with blanks in its own place. */
    std::string_view finish() {
        set(checksumField, "        ");
        const auto sum =
            std::accumulate(block_.begin(), block_.end(), 0U, [](unsigned sum, char c) {
                return sum + static_cast<unsigned char>(c);
            });
        set({checksumField.at, checksumField.size - 1}, std::int64_t{sum});
        block_.at(checksumField.at + checksumField.size - 2) = '\0';
        return {block_.data(), block_.size()};
    }

private:
    std::array<char, blockSize> block_{};
};

} // namespace

Archive::Archive(Sink sink, std::string top) : sink_{std::move(sink)}, top_{std::move(top)} {}

void Archive::putHeader(char type, const std::string& name, std::int64_t size, std::int64_t time) {
    Header header;
    header.set(nameField, name);
    header.set(modeField, 0600);
    header.set(userField, 0);
    header.set(groupField, 0);
    header.set(sizeField, size);
    header.set(timeField, std::clamp<std::int64_t>(time, 0, largestFile));
    header.setType(type);
    header.set(magicField, std::string_view{"ustar\00000", magicField.size});
    sink_(header.finish());
}

void Archive::putName(const std::string& name) {
    const auto size = static_cast<std::int64_t>(name.size()) + 1;
    putHeader('L', "././@LongLink", size, 0);
    sink_({name.c_str(), name.size() + 1});
    fillBlock(size);
}

void Archive::fillBlock(std::int64_t size) {
    const std::array<char, blockSize> zeros{};
    const auto beyond = static_cast<std::size_t>(size) % blockSize;
    sink_({zeros.data(), beyond == 0 ? 0 : blockSize - beyond});
}

Archived Archive::add(const std::string& name, RegularFile& file) {
    const auto whole = top_ + "/" + name;
    const auto size = std::int64_t{file.status().st_size};
    if (whole.size() > nameField.size) {
        putName(whole);
    }
    putHeader('0', whole, size, file.status().st_mtim.tv_sec);
    RunningDigest digest;
    std::array<char, std::size_t{64} << 10U> bytes{};
    for (auto left = static_cast<std::size_t>(size); left > 0;) {
        const std::span part{bytes.data(), std::min(left, bytes.size())};
        const auto count = file.read(part);
        std::fill(part.begin() + static_cast<std::ptrdiff_t>(count), part.end(), '\0');
        digest.add({part.data(), part.size()});
        sink_({part.data(), part.size()});
        left -= part.size();
    }
    fillBlock(size);
    return {size, digest.finish(), file.hasChanged(), file.problem()};
}

void Archive::finish() {
    const std::array<char, 2 * blockSize> zeros{};
    sink_({zeros.data(), zeros.size()});
}

} // namespace tavrisk::tools
