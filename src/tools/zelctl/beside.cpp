// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/beside.hpp"

#include "tools/common/output.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace tavrisk::tools {
namespace {

/** What the file of events that wait begins with, twice, 512 bytes apart: the later one counts. */
struct SpillHeader {
    std::array<char, 8> format;
    std::uint64_t serial;
    std::uint64_t generation;
};

/** And what each of them begins with, the first at 4096: of an earlier generation, it waits no
 *  more. */
struct SpillRecord {
    std::uint64_t checksum;
    std::uint32_t size;
    std::uint32_t generation;
};

template <typename Value>
Value valueAt(std::ifstream& file, std::streamoff at) {
    std::array<char, sizeof(Value)> bytes{};
    file.clear();
    file.seekg(at).read(bytes.data(), bytes.size());
    return std::bit_cast<Value>(bytes);
}

bool holdsEvents(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    SpillHeader latest{};
    for (const std::streamoff at : {0, 512}) {
        const auto header = valueAt<SpillHeader>(file, at);
        const bool known = std::string_view{header.format.data(), 8} == "zelspil1";
        latest = known && header.serial >= latest.serial ? header : latest;
    }
    const auto first = valueAt<SpillRecord>(file, 4096);
    return latest.generation != 0 && first.size != 0 && first.generation == latest.generation;
}

} // namespace

Beside lookBeside(const std::string& path) {
    const std::filesystem::path database{path};
    Beside beside;
    beside.waitingAt = path + ".spill";
    beside.waiting = holdsEvents(beside.waitingAt);
    std::error_code none;
    const auto name = database.filename().string() + ".damaged-";
    const auto directory = database.has_parent_path() ? database.parent_path() : ".";
    for (const auto& file : std::filesystem::directory_iterator{directory, none}) {
        const auto found = file.path().filename().string();
        if (found.starts_with(name) && found.ends_with('Z')) {
            beside.setAside.push_back(file.path().string());
        }
    }
    std::sort(beside.setAside.begin(), beside.setAside.end());
    return beside;
}

std::string lossesText(const std::vector<zel::Loss>& losses) {
    std::int64_t events = 0;
    std::int64_t acknowledged = 0;
    std::string causes;
    for (const auto& loss : losses) {
        events += loss.events;
        acknowledged += loss.acknowledged;
        causes += (causes.empty() ? ": " : ", ") + harmless(loss.cause) + " " +
                  std::to_string(loss.events);
    }
    return events == 0
               ? "none"
               : std::to_string(events) + causes +
                     (acknowledged != 0 ? " (" + std::to_string(acknowledged) + " acknowledged)"
                                        : "");
}

} // namespace tavrisk::tools
