// SPDX-License-Identifier: Apache-2.0
#include "platform/mosslink/event_log.hpp"

#include "platform/config.hpp"
#include "platform/mosslink/notice.hpp"
#include "text/utc_time.hpp"
#include "zel/layout.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <new>
#include <system_error>
#include <utility>

namespace tavrisk::zel {
namespace {

constexpr std::size_t mostEntries = 256;
constexpr std::size_t mostBytes = 131'072;

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
        return error.extendedCode() == SQLITE_IOERR_SHMMAP ? MOSSLINK_NO_SHARED_MAPS
                                                           : MOSSLINK_STORAGE_FAILED;
    default:
        return MOSSLINK_INTERNAL;
    }
}

/** What the count of losses calls it. */
const char* causeOf(MOSSLINKError code) {
    switch (code) {
    case MOSSLINK_BUSY:
        return "busy";
    case MOSSLINK_NO_SPACE:
        return "no space";
    case MOSSLINK_OUT_OF_MEMORY:
        return "no memory";
    case MOSSLINK_CANNOT_OPEN:
        return "cannot open";
    case MOSSLINK_DATABASE_DAMAGED:
        return "damaged";
    case MOSSLINK_DATABASE_NEWER:
        return "newer";
    case MOSSLINK_STORAGE_FAILED:
        return "storage";
    case MOSSLINK_NO_SHARED_MAPS:
        return "no shared maps";
    default:
        return "other";
    }
}

/** Whether the database is likely to take entries again without another version or place. */
bool mayWait(MOSSLINKError code) {
    switch (code) {
    case MOSSLINK_DATABASE_NEWER:
    case MOSSLINK_NO_SHARED_MAPS:
    case MOSSLINK_INTERNAL:
        return false;
    default:
        return true;
    }
}

std::int64_t millisecondsSinceBoot() {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec * std::int64_t{1000} + now.tv_nsec / 1'000'000;
}

MOSSLINKError codeForCurrentException() {
    try {
        throw;
    } catch (const SqliteError& error) {
        return codeFor(error);
    } catch (const Refused& refused) {
        return refused.reason() == Refused::Reason::newer ? MOSSLINK_DATABASE_NEWER
                                                          : MOSSLINK_DATABASE_DAMAGED;
    } catch (const std::system_error&) {
        return MOSSLINK_STORAGE_FAILED;
    } catch (const std::bad_alloc&) {
        return MOSSLINK_OUT_OF_MEMORY;
    } catch (...) {
        return MOSSLINK_INTERNAL;
    }
}

} // namespace

EventLog::EventLog()
    : writer_{platform::zelPath, platform::zelMaxEntries,
              [](const std::string& sentence) { notice("%s", sentence.c_str()); }} {}

EventLog& EventLog::instance() {
    static auto* const log = new EventLog;
    return *log;
}

/** One that it still fits into: a batch is one transaction, and the write-ahead log has room for
 * that whatever else is on the disk. */
std::shared_ptr<EventLog::Batch> EventLog::batchFor(const Entry& entry) {
    const auto bytes = entry.messageId.size() + entry.arguments.size();
    if (!collecting_ || collecting_->entries.size() == mostEntries ||
        collecting_->bytes + bytes > mostBytes) {
        collecting_ = std::make_shared<Batch>();
        collecting_->number = ++batches_;
    }
    collecting_->bytes += bytes;
    return collecting_;
}

/** Those whose entries were just written may have more. Without them, threads that submit one entry
 *  after the other would go in halves, each waiting for the other's sync. */
void EventLog::gather(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Batch>& batch) {
    const std::chrono::steady_clock::duration most = std::chrono::milliseconds{2};
    gathered_.wait_for(lock, std::min(lastTook_ / 4, most),
                       [&] { return collecting_ != batch || batch->entries.size() >= lastSize_; });
    if (collecting_ == batch) {
        collecting_.reset();
    }
}

MOSSLINKError EventLog::submit(Entry entry) {
    std::unique_lock lock{mutex_};
    const auto batch = batchFor(entry);
    entry.sinceBoot = millisecondsSinceBoot();
    entry.time = text::UtcTime{std::chrono::system_clock::now()}.text();
    batch->entries.push_back(std::move(entry));
    if (batch->entries.size() > 1) {
        gathered_.notify_one();
        batch->finished.wait(lock, [&batch] { return batch->result.has_value(); });
        return *batch->result;
    }

    written_.wait(lock, [this, &batch] { return nextToWrite_ == batch->number; });
    gather(lock, batch);
    lock.unlock();
    const auto begun = std::chrono::steady_clock::now();
    const auto result = write(*batch);
    lock.lock();
    lastSize_ = batch->entries.size();
    lastTook_ = std::chrono::steady_clock::now() - begun;
    ++nextToWrite_;
    written_.notify_all();
    batch->result = result;
    batch->finished.notify_all();
    return result;
}

MOSSLINKError EventLog::write(const Batch& batch) noexcept {
    try {
        writer_.append(batch.entries);
        return MOSSLINK_OK;
    } catch (...) {
        return failed(batch, codeForCurrentException());
    }
}

MOSSLINKError EventLog::failed(const Batch& batch, MOSSLINKError code) noexcept {
    try {
        if (mayWait(code) && writer_.keepWaiting(batch.entries, causeOf(code))) {
            return MOSSLINK_OK;
        }
        writer_.lose(causeOf(code), static_cast<std::int64_t>(batch.entries.size()));
    } catch (const std::bad_alloc&) { // then this one is not counted
    }
    return code;
}

} // namespace tavrisk::zel
