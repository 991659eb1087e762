// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/spill.hpp"
#include "zel/store.hpp"

#include <chrono>
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
        : path_{std::move(path)}, maxEntries_{maxEntries}, tell_{std::move(tell)}, spill_{path_} {}

    /** Returns when the entries are on the disk. Raises SqliteError, Refused and std::system_error
     *  when they are not. */
    void append(std::span<const Entry> entries);

    /** Has entries that could not be appended, for that cause, wait on the disk until others can
     * be. False when there is no room for them either. */
    bool keepWaiting(std::span<const Entry> entries, const std::string& cause);

    /** Events that did not become entries; told to the database as soon as it takes some. */
    void lose(const std::string& cause, std::int64_t events);

private:
    template <typename Body>
    void retry(Body body);
    void prepare(Condition condition);
    bool justLooked();
    Guard::State look();
    [[nodiscard]] Patience patience() const;
    void settle(Guard::State state);
    void open(Condition condition);
    bool takeWaiting();
    void add(std::span<const Entry> entries, const Losses& losses, std::int64_t spillMark = 0);
    Guard::State lookAndCheckpoint();
    bool isKept(std::size_t added);

    std::string path_;
    std::int64_t maxEntries_;
    Tell tell_;
    std::optional<Store> store_;
    std::chrono::steady_clock::time_point looked_; // when all was last sound
    bool seemsDamaged_ = false;                    // what is to be opened next
    std::vector<Entry> recent_;                    // that the database's own file may not have yet
    Losses losses_; // that neither the database nor the spill knows of yet
    Spill spill_;
    std::int64_t spillMark_ = 0; // of the last piece of it that was taken in
    bool isWaiting_ = false;     // something in it, which was told
};

} // namespace tavrisk::zel
