// SPDX-License-Identifier: Apache-2.0
#include "zel/writer.hpp"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

namespace tavrisk::zel {
namespace {

// There is room for no more from the beginning.
constexpr std::int64_t mostWithRoom = 100'000;

/** Whether a database may be to blame that other tables, or other pages, have come into. */
bool mayBeDamage(const SqliteError& error) {
    return error.code() == SQLITE_CORRUPT || error.code() == SQLITE_NOTADB ||
           error.code() == SQLITE_ERROR;
}

/** Whether nothing is wrong with the database itself. */
bool mayPass(const SqliteError& error) {
    return error.code() == SQLITE_BUSY || error.code() == SQLITE_FULL;
}

} // namespace

void Writer::append(std::span<const Entry> entries) {
    do {
        retry([this, entries] {
            add(entries, losses_);
            losses_.clear();
        });
    } while (!isKept(entries.size()));
    isWaiting_ = false;
}

/** Does what `body` does with a store that is as it should be. */
template <typename Body>
void Writer::retry(Body body) {
    using enum Condition;
    // What is damaged shows when it is opened, or else when it cannot be written.
    for (const auto condition : {unknown, unknown, damaged}) {
        try {
            prepare(condition);
            body();
            return;
        } catch (const std::system_error&) { // What is still open may be all that is left.
            throw;
        } catch (const SqliteError& error) {
            if (mayPass(error)) {
                throw;
            }
            // The next try begins anew: whatever was wrong may have been put right.
            store_.reset();
            if (condition == damaged || !mayBeDamage(error)) {
                throw;
            }
        } catch (...) {
            store_.reset();
            throw;
        }
    }
}

void Writer::prepare(Condition condition) {
    do {
        if (store_ && !justLooked()) {
            settle(look());
        }
        if (!store_) {
            open(condition);
        }
        if (store_->isLogTooLong()) {
            throw SqliteError{SQLITE_BUSY, "kept by a reader"};
        }
        store_->setPatience(patience());
    } while (!takeWaiting());
}

/** Under a flood each commit's last look is the next one's first. What becomes of the files between
 *  the two is seen after that. */
bool Writer::justLooked() {
    store_->growSharedMemory();
    return std::chrono::steady_clock::now() - looked_ < std::chrono::milliseconds{1};
}

Guard::State Writer::look() {
    const auto state = store_->look();
    looked_ = state == Guard::State::sound ? std::chrono::steady_clock::now() : decltype(looked_){};
    return state;
}

/** How long a batch waits for other processes: those that follow one which has waited in vain need
 *  not. */
Patience Writer::patience() const {
    return std::chrono::milliseconds{isWaiting_ ? 50 : 2000};
}

/** Closes what is not as it was left, and sees to it that it can be opened by its name. */
void Writer::settle(Guard::State state) {
    using enum Guard::State;
    if (state == sound) {
        return;
    }
    // Replaced by another on purpose, that one is the log now. Else the entries that may be gone
    // wait like any others, but have their numbers.
    if (state == replaced || spill_.add(recent_)) {
        recent_.clear();
    }
    if (state == removed) {
        store_->putBack();
        tell_("The event log was removed while it was open, and has been put back");
    }
    store_.reset();
    seemsDamaged_ = state == damaged;
}

void Writer::open(Condition condition) {
    store_.emplace(path_, Opening{seemsDamaged_ ? Condition::damaged : condition, patience(),
                                  std::min(maxEntries_, mostWithRoom)});
    seemsDamaged_ = false;
    if (const auto& salvage = store_->salvage()) {
        tell_("The event log was damaged. It is now " + salvage->asideAt +
              "; entries taken over: " + std::to_string(salvage->entries));
    }
    if (!recent_.empty()) { // There was no room for them to wait.
        try {
            add(std::vector{recent_}, {});
        } catch (...) {
            store_.reset();
            throw;
        }
    }
}

/** False when the files were not sound meanwhile: it has to be done again then. */
bool Writer::takeWaiting() {
    if (spill_.isEmpty()) {
        return true;
    }
    Spill::Reading reading{spill_};
    reading.goOnBehind(store_->spillMark());
    reading.goOnBehind(spillMark_); // as far as a database that is no more had got
    do {
        const auto entries = reading.next();
        add(entries, reading.isAtEnd() ? reading.losses() : Losses{}, reading.mark());
        spillMark_ = reading.mark();
        if (lookAndCheckpoint() != Guard::State::sound) {
            return false;
        }
    } while (!reading.isAtEnd());
    reading.finish();
    return true;
}

/** Adds entries, and remembers them: the database's own file does not have them yet. */
void Writer::add(std::span<const Entry> entries, const Losses& losses, std::int64_t spillMark) {
    const auto numbers = store_->append(entries, maxEntries_, losses, spillMark);
    const auto oldest = store_->oldest();
    std::erase_if(recent_, [oldest](const Entry& entry) { return entry.sequence < oldest; });
    std::int64_t restored = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        recent_.push_back(entries[i]);
        if (numbers[i] != 0) {
            restored += entries[i].sequence != 0 ? 1 : 0;
            recent_.back().sequence = numbers[i];
        }
    }
    if (restored != 0) {
        tell_("The event log had lost entries. Put back: " + std::to_string(restored));
    }
}

/** After a commit. */
Guard::State Writer::lookAndCheckpoint() {
    auto state = look();
    if (state == Guard::State::sound && store_->checkpoint()) {
        state = look();
    }
    if (state == Guard::State::sound && store_->isCheckpointed()) {
        recent_.clear();
    }
    return state;
}

/** After the commit of so many entries: sees to what they went into. False when that has lost its
 *  place to another database. */
bool Writer::isKept(std::size_t added) {
    const auto state = lookAndCheckpoint();
    if (state == Guard::State::sound) {
        return true;
    }
    try {
        retry([] {});
    } catch (...) {
        if (!recent_.empty()) { // they do not wait either
            recent_.resize(recent_.size() - added);
            throw;
        }
    }
    return state != Guard::State::replaced;
}

bool Writer::keepWaiting(std::span<const Entry> entries, const std::string& cause) {
    if (!spill_.add(entries)) {
        return false;
    }
    if (!std::exchange(isWaiting_, true)) {
        tell_("The event log takes no entries (" + cause + "). They wait in " + spill_.path());
    }
    return true;
}

void Writer::lose(const std::string& cause, std::int64_t events) {
    if (!spill_.count(cause, events)) {
        losses_[cause] += events;
    }
}

} // namespace tavrisk::zel
