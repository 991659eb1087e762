// SPDX-License-Identifier: Apache-2.0
#include "zel/totals.hpp"

#include "contract/severity.hpp"
#include "text/utc_time.hpp"
#include "zel/store.hpp"

#include <chrono>
#include <string_view>
#include <tuple>

namespace tavrisk::zel {

// Rows are never removed, so the highest rowid tells how many there are. Beyond a thousand, events
// count in a row of their severity alone. ?4 is the number of a dropped entry, or 0; ?5 its time;
// ?6 is how many were recorded.
Totals::Totals(const Connection& connection)
    : device_{connection, "SELECT CASE WHEN json_valid(?1) THEN json_extract(?1, '$[0]') END"},
      add_{connection,
           "UPDATE totals SET recorded = recorded + ?6, dropped = dropped + (?4 <> 0),"
           " last_dropped_at = iif(?4 > coalesce(last_dropped, 0), ?5, last_dropped_at),"
           " last_dropped = iif(?4 > coalesce(last_dropped, 0), ?4, last_dropped)"
           " WHERE message_id = ?1 AND severity = ?2 AND device = ?3 RETURNING 1"},
      insert_{connection, "INSERT INTO totals SELECT ?1, ?2, ?3, ?6, ?4 <> 0, nullif(?4, 0),"
                          " iif(?4, ?5, NULL) WHERE ?1 = ''"
                          " OR coalesce((SELECT max(rowid) FROM totals), 0) < 1000 RETURNING 1"} {}

/** Of a batch, most entries are of one kind. */
void Totals::count(const std::vector<const Entry*>& entries) {
    std::map<std::tuple<std::string_view, std::uint16_t, std::string_view>, std::int64_t> counts;
    std::vector<const Entry*> kinds;
    for (const auto* entry : entries) {
        if (counts[{entry->messageId, entry->severity, entry->arguments}]++ == 0) {
            kinds.push_back(entry);
        }
    }
    for (const auto* entry : kinds) {
        count(*entry, counts[{entry->messageId, entry->severity, entry->arguments}], 0);
    }
}

void Totals::count(const Entry& like, std::int64_t recorded, std::int64_t dropped) {
    device_.bind(1, like.arguments);
    device_.step();
    const auto device = device_.text(0);
    device_.reset();
    const auto severity = code(severityOf(like.severity));
    for (auto* statement : {&add_, &insert_}) {
        statement->bind(4, dropped);
        statement->bind(5, like.time);
        statement->bind(6, recorded);
    }
    if (!addTo(like.messageId, severity, device)) {
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
        Statement add{connection, "INSERT INTO losses (cause, events, last_at) VALUES (?1, ?2, ?3)"
                                  " ON CONFLICT (cause)"
                                  " DO UPDATE SET events = events + ?2, last_at = ?3"};
        const text::UtcTime now{std::chrono::system_clock::now()};
        add.bind(1, cause);
        add.bind(2, events);
        add.bind(3, now.text());
        add.step();
    }
}

} // namespace tavrisk::zel
