// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/store.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tavrisk::zel {

/**
 * Writes to the event log, whatever becomes of its files meanwhile: what was emptied, overwritten
 * or removed while it was open is replaced from what is left of it, and from the entries that only
 * its write-ahead log had, which are kept in memory. Used by one thread at a time.
 */
class Writer {
public:
    /** What an operator has to know, in a sentence. */
    using Tell = std::function<void(const std::string&)>;

    Writer(std::string path, std::int64_t maxEntries, Tell tell)
        : path_{std::move(path)}, maxEntries_{maxEntries}, tell_{std::move(tell)} {}

    /** Returns when the entries are on the disk. Raises SqliteError, Refused and std::system_error
     *  when they are not. */
    void append(std::span<const Entry> entries);

    /** Events that did not become entries; told to the database as soon as it takes some. */
    void lose(const std::string& cause, std::int64_t events) { losses_[cause] += events; }

private:
    template <typename Body>
    void retry(Body body);
    void prepare(Store::Condition condition);
    void settle(Guard::State state);
    void open(Store::Condition condition);
    void remember(std::span<const Entry> entries, std::int64_t last);
    bool isKept();

    std::string path_;
    std::int64_t maxEntries_;
    Tell tell_;
    std::optional<Store> store_;
    bool seemsDamaged_ = false; // what is to be opened next
    std::vector<Entry> recent_; // that the database's own file may not have yet
    Losses losses_;             // that the database does not know of yet
};

} // namespace tavrisk::zel
