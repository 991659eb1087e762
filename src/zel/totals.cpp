// SPDX-License-Identifier: Apache-2.0
#include "zel/totals.hpp"

#include "contract/severity.hpp"
#include "zel/store.hpp"

namespace tavrisk::zel {

// Rows are never removed, so the highest rowid tells how many there are. Beyond a thousand, events
// count in a row of their severity alone.
Totals::Totals(const Connection& connection)
    : device_{connection, "SELECT json_extract(?, '$[0]')"},
      add_{connection, "UPDATE totals SET recorded = recorded + 1"
                       " WHERE message_id = ? AND severity = ? AND device = ? RETURNING 1"},
      insert_{connection, "INSERT INTO totals (message_id, severity, device, recorded)"
                          " SELECT ?1, ?2, ?3, 1 WHERE ?1 = ''"
                          " OR coalesce((SELECT max(rowid) FROM totals), 0) < 1000 RETURNING 1"} {}

void Totals::count(const Entry& entry) {
    device_.bind(1, entry.arguments);
    device_.step();
    const auto device = device_.text(0);
    device_.reset();
    const auto severity = code(severityOf(entry.severity));
    if (!addTo(entry.messageId, severity, device)) {
        addTo("", severity, "");
    }
}

bool Totals::addTo(std::string_view messageId, std::int64_t severity, std::string_view device) {
    bool done = false;
    for (auto* statement : {&add_, &insert_}) {
        if (!done) {
            statement->bind(1, messageId);
            statement->bind(2, severity);
            statement->bind(3, device);
            done = statement->step();
            statement->reset();
        }
    }
    return done;
}

void addLosses(const Connection& connection, const Losses& losses) {
    for (const auto& [cause, events] : losses) {
        Statement add{connection, "INSERT INTO losses VALUES (?1, ?2) ON CONFLICT (cause)"
                                  " DO UPDATE SET events = events + ?2"};
        add.bind(1, cause);
        add.bind(2, events);
        add.step();
    }
}

} // namespace tavrisk::zel
