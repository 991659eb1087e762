// SPDX-License-Identifier: Apache-2.0
#include "tools/common/metrics.hpp"

#include "contract/places.hpp"
#include "platform/config.hpp"
#include "tools/common/directory.hpp"
#include "tools/zelctl/beside.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/time_text.hpp"

#include <chrono>
#include <exception>
#include <utility>

namespace tavrisk::tools {
namespace {

using Samples = std::vector<Metrics::Sample>;

Samples recorded(const std::vector<zel::Total>& totals) {
    Samples samples;
    for (const auto& total : totals) {
        samples.push_back({total.recorded,
                           {{"message", total.messageId},
                            {"severity", name(total.severity)},
                            {"device", total.device}}});
    }
    return samples;
}

Samples lost(const std::vector<zel::Loss>& losses, std::int64_t zel::Loss::*which) {
    Samples samples;
    for (const auto& loss : losses) {
        samples.push_back({loss.*which, {{"cause", loss.cause}}});
    }
    return samples;
}

void addLog(Metrics& metrics, const zel::Figures& figures) {
    metrics.add("tavrisk_zel_recorded_entries_total", "counter",
                "Entries recorded since the database was made; of those beyond a thousand kinds, "
                "the severity alone.",
                recorded(figures.totals));
    metrics.add("tavrisk_zel_dropped_entries_total", "counter",
                "Entries dropped to stay below the limit.", {{figures.dropped}});
    metrics.add("tavrisk_zel_lost_events_total", "counter", "Events that never became entries.",
                lost(figures.losses, &zel::Loss::events));
    metrics.add("tavrisk_zel_acknowledged_losses_total", "counter",
                "Those of the lost events that somebody has seen to.",
                lost(figures.losses, &zel::Loss::acknowledged));
    metrics.addGauge("tavrisk_zel_entries", "Entries in the log.", figures.entries);
    metrics.addGauge("tavrisk_zel_entries_limit", "Entries that the log has room for.",
                     platform::zelMaxEntries);
    if (const auto time = fromLogTime(figures.last.time)) {
        const auto since1970 = std::chrono::floor<std::chrono::seconds>(time->time_since_epoch());
        metrics.addGauge("tavrisk_zel_last_entry_timestamp_seconds",
                         "When the last entry was made.", since1970.count());
    }
}

void addBeside(Metrics& metrics, const Beside& beside) {
    metrics.addGauge("tavrisk_zel_waiting_entries", "Entries that wait for the database.",
                     beside.waiting.entries);
    metrics.addGauge("tavrisk_zel_set_aside_databases",
                     "Damaged databases that others took the place of.",
                     static_cast<std::int64_t>(beside.setAside.size()));
}

/** Without what this user may not look at. */
void addCache(Metrics& metrics) {
    Samples files;
    Samples bytes;
    for (const auto* below : {"", dumpDirectory, rawCperDirectory}) {
        auto path = std::string{dataRoot} + below;
        path.pop_back();
        if (const auto size = sizeOfDirectory(path); !size.error) {
            files.push_back({static_cast<std::int64_t>(size.files), {{"directory", path}}});
            bytes.push_back({static_cast<std::int64_t>(size.bytes), {{"directory", path}}});
        }
    }
    metrics.add("tavrisk_cache_files", "gauge", "Files in a directory of the data cache.", files);
    metrics.add("tavrisk_cache_bytes", "gauge", "Bytes of these files.", bytes);
}

} // namespace

Exit metrics(const Log& log, const Arguments& arguments) {
    Metrics metrics;
    const auto beside = lookBeside(log.path());
    std::exception_ptr problem;
    zel::Figures figures;
    try {
        if (const auto reader = log.open()) {
            figures = reader->figures();
        }
    } catch (const std::exception&) { // Told once the rest is written.
        problem = std::current_exception();
    }
    metrics.addGauge("tavrisk_zel_readable", "Whether the log can be read.", problem ? 0 : 1);
    if (!problem) {
        figures.losses = allLosses(std::move(figures.losses), figures.spillMark, beside);
        addLog(metrics, figures);
    }
    addBeside(metrics, beside);
    addCache(metrics);
    metrics.write(arguments);
    if (problem) {
        std::rethrow_exception(problem);
    }
    return Exit::done;
}

} // namespace tavrisk::tools
