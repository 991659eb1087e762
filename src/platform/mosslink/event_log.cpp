// SPDX-License-Identifier: Apache-2.0
#include "platform/mosslink/event_log.hpp"

#include "platform/config.hpp"
#include "text/utc_time.hpp"
#include "zel/layout.hpp"

#include <chrono>
#include <new>
#include <utility>

namespace tavrisk::zel {
namespace {

MOSSLINKError codeFor(const SqliteError& error) {
    switch (error.code()) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return MOSSLINK_BUSY;
    case SQLITE_FULL:
        return MOSSLINK_NO_SPACE;
    case SQLITE_NOMEM:
        return MOSSLINK_OUT_OF_MEMORY;
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_READONLY:
        return MOSSLINK_CANNOT_OPEN;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return MOSSLINK_DATABASE_DAMAGED;
    case SQLITE_IOERR:
        return MOSSLINK_STORAGE_FAILED;
    default:
        return MOSSLINK_INTERNAL;
    }
}

MOSSLINKError codeForCurrentException() {
    try {
        throw;
    } catch (const SqliteError& error) {
        return codeFor(error);
    } catch (const Refused& refused) {
        return refused.reason() == Refused::Reason::newer ? MOSSLINK_DATABASE_NEWER
                                                          : MOSSLINK_DATABASE_DAMAGED;
    } catch (const std::bad_alloc&) {
        return MOSSLINK_OUT_OF_MEMORY;
    } catch (...) {
        return MOSSLINK_INTERNAL;
    }
}

} // namespace

EventLog& EventLog::instance() {
    static auto* const log = new EventLog;
    return *log;
}

MOSSLINKError EventLog::submit(Entry entry) {
    std::unique_lock lock{mutex_};
    if (!collecting_) {
        collecting_ = std::make_shared<Batch>();
    }
    const auto batch = collecting_;
    entry.time = text::UtcTime{std::chrono::system_clock::now()}.text();
    batch->entries.push_back(std::move(entry));
    if (batch->entries.size() > 1) {
        batch->finished.wait(lock, [&batch] { return batch->result.has_value(); });
        return *batch->result;
    }

    writerIsFree_.wait(lock, [this] { return !writing_; });
    writing_ = true;
    collecting_.reset();
    lock.unlock();
    const auto result = write(*batch);
    lock.lock();
    writing_ = false;
    writerIsFree_.notify_one();
    batch->result = result;
    batch->finished.notify_all();
    return result;
}

MOSSLINKError EventLog::write(const Batch& batch) noexcept {
    try {
        if (store_ && store_->hasMoved()) {
            store_.reset();
        }
        if (!store_) {
            store_.emplace(platform::zelPath);
        }
        store_->append(batch.entries, platform::zelMaxEntries);
        return MOSSLINK_OK;
    } catch (...) {
        const auto code = codeForCurrentException();
        // The next batch begins anew: whatever was wrong may have been put right.
        store_.reset();
        return code;
    }
}

} // namespace tavrisk::zel
