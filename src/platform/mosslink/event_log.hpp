// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/mosslink/mosslink_errors.h"
#include "zel/writer.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace tavrisk::zel {

/**
 * Brings the submissions of any number of threads into the database. What arrives while a write is
 * under way waits together and then goes in with one transaction: the first to arrive of such a
 * batch writes it, the others wait for its result.
 */
class EventLog {
public:
    /** The log of this process. Never destroyed: detached threads may still submit while the
     *  process exits. */
    static EventLog& instance();

    /** Returns once the entry is durable, or has failed with the code returned. The entry's time
     *  is set here, so that times and sequence numbers rise together. */
    MOSSLINKError submit(Entry entry);

private:
    EventLog();

    struct Batch {
        std::uint64_t number = 0;
        std::vector<Entry> entries;
        std::size_t bytes = 0; // of their texts
        std::optional<MOSSLINKError> result;
        std::condition_variable finished;
    };

    std::shared_ptr<Batch> batchFor(const Entry& entry);
    void gather(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Batch>& batch);
    MOSSLINKError write(const Batch& batch) noexcept;
    MOSSLINKError failed(const Batch& batch, MOSSLINKError code) noexcept;

    std::mutex mutex_;
    std::shared_ptr<Batch> collecting_;
    std::uint64_t batches_ = 0; // so many have begun
    std::uint64_t nextToWrite_ = 1;
    std::condition_variable written_;
    std::size_t lastSize_ = 1; // of the batch that was written last, and how long that took
    std::chrono::steady_clock::duration lastTook_{};
    std::condition_variable gathered_;

    Writer writer_; // of who is writing, without the mutex
};

} // namespace tavrisk::zel
