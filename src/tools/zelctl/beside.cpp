// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/beside.hpp"

#include "tools/common/output.hpp"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <system_error>

namespace tavrisk::tools {

Beside lookBeside(const std::string& path) {
    const std::filesystem::path database{path};
    Beside beside;
    beside.waitingAt = path + ".spill";
    beside.waiting = zel::Spill::look(path);
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

std::vector<zel::Loss> allLosses(std::vector<zel::Loss> losses, std::int64_t spillMark,
                                 const Beside& beside) {
    if (beside.waiting.isTold(spillMark)) {
        return losses;
    }
    for (const auto& [cause, events] : beside.waiting.losses) {
        auto loss =
            std::find_if(losses.begin(), losses.end(),
                         [&cause = cause](const zel::Loss& known) { return known.cause == cause; });
        if (loss == losses.end()) {
            loss = losses.insert(loss, {cause, 0, 0, ""});
        }
        loss->events += events;
        loss->lastAt = std::max(loss->lastAt, beside.waiting.writtenAt);
    }
    std::stable_sort(losses.begin(), losses.end(),
                     [](const zel::Loss& a, const zel::Loss& b) { return a.events > b.events; });
    return losses;
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
