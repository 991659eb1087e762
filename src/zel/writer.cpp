// SPDX-License-Identifier: Apache-2.0
#include "zel/writer.hpp"

#include <algorithm>
#include <system_error>

namespace tavrisk::zel {
namespace {

/** Whether a database may be to blame that other tables, or other pages, have come into. */
bool mayBeDamage(const SqliteError& error) {
    return error.code() == SQLITE_CORRUPT || error.code() == SQLITE_NOTADB ||
           error.code() == SQLITE_ERROR;
}

} // namespace

void Writer::append(std::span<const Entry> entries) {
    do {
        retry([this, entries] {
            const auto last = store_->append(entries, maxEntries_, losses_);
            losses_.clear();
            remember(entries, last);
        });
    } while (!isKept());
}

/** Does what `body` does with a store that is as it should be. */
template <typename Body>
void Writer::retry(Body body) {
    using enum Store::Condition;
    // What is damaged shows when it is opened, or else when it cannot be written.
    for (const auto condition : {unknown, unknown, damaged}) {
        try {
            prepare(condition);
            body();
            return;
        } catch (const std::system_error&) { // What is still open may be all that is left.
            throw;
        } catch (const SqliteError& error) {
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

void Writer::prepare(Store::Condition condition) {
    if (store_) {
        settle(store_->look());
    }
    if (!store_) {
        open(condition);
    }
}

/** Closes what is not as it was left, and sees to it that it can be opened by its name. */
void Writer::settle(Guard::State state) {
    using enum Guard::State;
    if (state == removed) {
        store_->putBack();
        tell_("The event log was removed while it was open, and has been put back");
    }
    if (state == replaced) { // on purpose: it is the log now
        recent_.clear();
    }
    if (state != sound) {
        store_.reset();
    }
    seemsDamaged_ = state == damaged;
}

void Writer::open(Store::Condition condition) {
    store_.emplace(path_, seemsDamaged_ ? Store::Condition::damaged : condition);
    seemsDamaged_ = false;
    const auto restored = store_->restore(recent_, maxEntries_);
    if (const auto& salvage = store_->salvage()) {
        tell_("The event log was damaged. It is now " + salvage->asideAt +
              "; entries taken over: " + std::to_string(salvage->entries + restored));
    } else if (restored != 0) {
        tell_("The event log had lost entries. Put back: " + std::to_string(restored));
    }
}

void Writer::remember(std::span<const Entry> entries, std::int64_t last) {
    const auto oldest = store_->oldest();
    std::erase_if(recent_, [oldest](const Entry& entry) { return entry.sequence < oldest; });
    auto sequence = last - static_cast<std::int64_t>(entries.size());
    for (const auto& entry : entries) {
        recent_.push_back(entry);
        recent_.back().sequence = ++sequence;
    }
}

/** After a commit: sees to what was remembered. False when it went into a database that has lost
 * its place to another one. */
bool Writer::isKept() {
    auto state = store_->look();
    if (state == Guard::State::sound && store_->checkpoint()) {
        state = store_->look();
    }
    if (state != Guard::State::sound) {
        settle(state);
        retry([] {});
        return state != Guard::State::replaced;
    }
    if (store_->isCheckpointed()) {
        recent_.clear();
    }
    return true;
}

} // namespace tavrisk::zel
