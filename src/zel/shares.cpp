// SPDX-License-Identifier: Apache-2.0
#include "zel/shares.hpp"

#include "contract/severity.hpp"
#include "zel/store.hpp"

#include <functional>
#include <string>
#include <utility>

namespace tavrisk::zel {
namespace {

/** Critical, warning, other: half of the cap, a third, and the rest. */
std::array<std::int64_t, 3> sharesOf(std::int64_t cap) {
    return {cap - cap / 3 - cap / 6, cap / 3, cap / 6};
}

} // namespace

template <typename Change>
void Ranking::change(std::size_t severity, Pair pair, Change body) {
    auto& order = orders_.at(severity);
    const auto found = pairs_.at(severity).try_emplace(pair).first;
    auto& places = found->second;
    const auto position = [&places, pair] {
        return std::tuple{-static_cast<std::int64_t>(places.size()), *places.begin(), pair};
    };
    if (!places.empty()) {
        order.erase(position());
    }
    body(places);
    if (!places.empty()) {
        order.insert(position());
    } else {
        pairs_.at(severity).erase(found);
    }
}

void Ranking::add(std::int64_t severity, std::string_view messageId, std::string_view arguments,
                  bool acknowledged, std::int64_t sequence) {
    const std::size_t group = code(severityOf(severity)) - 1;
    const std::hash<std::string> hash;
    change(group, hash(std::string{messageId} + '\n' + std::string{arguments}),
           [&](Places& places) { places.emplace(!acknowledged, sequence); });
    ++counts_.at(group);
}

std::size_t Ranking::mostAboveItsShare(std::int64_t most) const {
    const auto shares = sharesOf(most);
    std::size_t giving = 2;
    for (const std::size_t severity : {1U, 0U}) {
        if (counts_.at(severity) - shares.at(severity) > counts_.at(giving) - shares.at(giving)) {
            giving = severity;
        }
    }
    return giving;
}

std::int64_t Ranking::takeNext(std::int64_t most) {
    const auto severity = mostAboveItsShare(most);
    const auto [size, place, pair] = *orders_.at(severity).begin();
    change(severity, pair, [](Places& places) { places.erase(places.begin()); });
    --counts_.at(severity);
    return place.second;
}

Shares::Shares(const Connection& connection, Totals& totals)
    : connection_{connection},
      totals_{totals},
      dataVersion_{connection, "PRAGMA data_version"},
      delete_{connection, "DELETE FROM entries WHERE sequence = ?"
                          " RETURNING time, message_id, severity, arguments"},
      countDropped_{connection, "UPDATE state SET dropped = dropped + ?1, gone = gone + ?1"} {}

/** Another one whenever another process has written. */
std::int64_t Shares::dataVersion() {
    dataVersion_.step();
    const auto version = dataVersion_.integer(0);
    dataVersion_.reset();
    return version;
}

void Shares::keepTo(std::int64_t most, std::span<const Entry> added, std::int64_t last) {
    seen_ = dataVersion(); // Its own commit leaves it as it is.
    mayHaveRemoved_ = std::exchange(version_, -1) != seen_;
    if (mayHaveRemoved_) {
        ranked_ = false;
        kept_ = connection_.queryInteger("SELECT count(*) FROM entries");
    } else if (ranked_) {
        auto sequence = last - static_cast<std::int64_t>(added.size());
        for (const auto& entry : added) {
            ranking_.add(entry.severity, entry.messageId, entry.arguments, false, ++sequence);
        }
        kept_ = ranking_.size();
    } else {
        kept_ += static_cast<std::int64_t>(added.size());
    }
    if (kept_ <= most) {
        return;
    }
    mayHaveRemoved_ = true;
    if (!ranked_) {
        rank();
    }
    countDropped_.bind(1, kept_ - most);
    countDropped_.step();
    countDropped_.reset();
    for (; kept_ > most; --kept_) {
        drop(ranking_.takeNext(most));
    }
}

void Shares::rank() {
    ranking_ = {};
    Statement entries{connection_, "SELECT severity, message_id, arguments,"
                                   " acknowledged_at IS NOT NULL, sequence FROM entries"};
    while (entries.step()) {
        ranking_.add(entries.integer(0), entries.text(1), entries.text(2), entries.integer(3) != 0,
                     entries.integer(4));
    }
    ranked_ = true;
}

void Shares::drop(std::int64_t sequence) {
    delete_.bind(1, sequence);
    if (delete_.step()) {
        const Entry entry{delete_.text(0), delete_.text(1),
                          static_cast<std::uint16_t>(delete_.integer(2)), delete_.text(3)};
        totals_.countDropped(entry, sequence);
    }
    delete_.reset();
}

} // namespace tavrisk::zel
