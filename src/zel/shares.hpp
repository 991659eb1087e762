// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/sqlite.hpp"
#include "zel/totals.hpp"

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string_view>
#include <tuple>
#include <utility>

namespace tavrisk::zel {

struct Entry;

/**
 * Which entries give way when there are more than the cap. Each severity has a share of it that the
 * others cannot take; the severity that is furthest above its own gives. Of its entries give those
 * of the message and device with the most of them, so that one chatty sensor drops its own:
 * acknowledged ones first, then the oldest.
 */
class Ranking {
public:
    void add(std::int64_t severity, std::string_view messageId, std::string_view arguments,
             bool acknowledged, std::int64_t sequence);

    [[nodiscard]] std::int64_t size() const { return counts_[0] + counts_[1] + counts_[2]; }

    /** Takes the entry that gives way next, when `most` are to stay, off and returns its number. */
    std::int64_t takeNext(std::int64_t most);

private:
    /** Whether it is still open, and its sequence number: the lesser one goes first. */
    using Place = std::pair<bool, std::int64_t>;
    using Places = std::set<Place>;
    /** A message and its arguments, as a hash: two that share it count as one, which does no harm.
     */
    using Pair = std::size_t;
    /** Begins with the pair of most entries; among pairs of as many, with the oldest entry. */
    using Order = std::set<std::tuple<std::int64_t, Place, Pair>>;

    template <typename Change>
    void change(std::size_t severity, Pair pair, Change body);
    [[nodiscard]] std::size_t mostAboveItsShare(std::int64_t most) const;

    std::array<std::map<Pair, Places>, 3> pairs_;
    std::array<Order, 3> orders_;
    std::array<std::int64_t, 3> counts_{};
};

/** Keeps the entries of a database to their cap. */
class Shares {
public:
    Shares(const Connection& connection, Totals& totals);

    /** Within the transaction that has added these entries, the last of them with that number:
     *  removes those beyond `most`. */
    void keepTo(std::int64_t most, std::span<const Entry> added, std::int64_t last);

    /** After its commit. Until then, and when another process writes, nothing is taken as known. */
    void committed() { version_ = seen_; }
    void forget() { version_ = -1; }

    /** Whether that, or another process before it, removed entries. */
    [[nodiscard]] bool mayHaveRemoved() const { return mayHaveRemoved_; }

private:
    std::int64_t dataVersion();
    void rank();
    void drop(std::int64_t sequence);

    const Connection& connection_;
    Totals& totals_;
    Statement dataVersion_, delete_, countDropped_;
    Ranking ranking_; // made when there are more than the cap
    bool ranked_ = false;
    std::int64_t kept_ = 0;     // how many entries there are
    std::int64_t version_ = -1; // of all three: another one when other processes write
    std::int64_t seen_ = -1;    // the version that the transaction began with
    bool mayHaveRemoved_ = true;
};

} // namespace tavrisk::zel
