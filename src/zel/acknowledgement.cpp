// SPDX-License-Identifier: Apache-2.0
#include "zel/acknowledgement.hpp"

#include "text/utc_time.hpp"

#include <chrono>
#include <utility>

namespace tavrisk::zel {

Acknowledger::Acknowledger(const std::string& path, std::string by, std::string note)
    : store_{path},
      by_{std::move(by)},
      at_{text::UtcTime{std::chrono::system_clock::now()}.text()},
      note_{std::move(note)},
      transaction_{store_.connection()},
      find_{store_.connection(), "SELECT acknowledged_at FROM entries WHERE sequence = ?"},
      set_{store_.connection(), "UPDATE entries SET acknowledged_by = ?2, acknowledged_at = ?3,"
                                " acknowledgement_note = nullif(?4, '') WHERE sequence = ?1"} {}

Acknowledged Acknowledger::acknowledge(std::int64_t sequence) {
    find_.bind(1, sequence);
    const bool found = find_.step();
    const bool open = found && find_.isNull(0);
    find_.reset();
    if (open) {
        set_.bind(1, sequence);
        set_.bind(2, by_);
        set_.bind(3, at_);
        set_.bind(4, note_);
        set_.step();
        set_.reset();
    }
    return open ? Acknowledged::now : found ? Acknowledged::before : Acknowledged::missing;
}

void Acknowledger::acknowledgeLosses() {
    store_.connection().execute("UPDATE losses SET acknowledged = events");
}

} // namespace tavrisk::zel
