// SPDX-License-Identifier: Apache-2.0
#include "daemon/events/worker.hpp"

#include "contract/platform/kelp.h"
#include "daemon/events/submission.hpp"
#include "daemon/threads/thread.hpp"
#include "log/diag_log.hpp"
#include "records/classifier.hpp"
#include "records/json_outline.hpp"

#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

namespace {

constexpr auto workerLogName = "zel_wux_fault_logging_thread";

// The blocks below are read by libkelp at fixed offsets.
static_assert(sizeof(void*) == 8, "libkelp's blocks hold 64-bit pointers");

struct ClientDescriptor {
    const char* name = "tavrisk";
    std::uint32_t reserved = 0;
    std::uint32_t version = 17;
};
static_assert(sizeof(ClientDescriptor) == 16);
static_assert(offsetof(ClientDescriptor, version) == 12);

struct InitialisationBlock {
    const ClientDescriptor* client;
    std::array<std::uint8_t, 32> reserved{};
    std::uint32_t version = 17;
    std::array<std::uint8_t, 60> reservedToo{};
};
static_assert(sizeof(InitialisationBlock) == 104);
static_assert(offsetof(InitialisationBlock, version) == 40);

/** Owns a data store connection; what a handle looks like is the library's business. */
class StoreConnection {
public:
    explicit StoreConnection(void* opened) : handle_{opened} {}
    ~StoreConnection() { kelpc_destroy(handle_); }
    StoreConnection(const StoreConnection&) = delete;
    StoreConnection& operator=(const StoreConnection&) = delete;

    [[nodiscard]] void* handle() const { return handle_; }

private:
    void* handle_;
};

void report(const tavrisk::Event& event, tavrisk::Severity severity) {
    const ClientDescriptor client;
    const InitialisationBlock block{.client = &client};
    void* opened = nullptr;
    if (const auto result = kelpc_initialize(&opened, &block)) {
        diag_log(LOG_USER, LOG_WARNING, "%s : kelpc_initialize failed, rc = %d \n", workerLogName,
                 result);
        return;
    }
    const StoreConnection store{opened};

    if (const auto result = tavrisk_generate_event(event.number, store.handle(),
                                                   event.device.c_str(), code(severity))) {
        diag_log(LOG_USER, LOG_WARNING, "%s : tavrisk_generate_event failed, rc = %d \n",
                 workerLogName, result);
    }
}

} // namespace

void zel_wux_fault_logging_thread(std::vector<std::uint8_t> eventData) {
    pthread_setname_np(pthread_self(), "tavrisk-worker"); // The unit waits for it at a stop.
    try {
        const auto verdict = tavrisk::classify(eventData);
        // Reporting may take long, and many workers may be at it: none keeps its record meanwhile.
        std::vector<std::uint8_t>{}.swap(eventData);
        if (verdict.event) {
            report(*verdict.event, *verdict.severity);
        }
    } catch (const std::exception& e) {
        // One event is lost for want of memory; the daemon is not.
        diag_log(LOG_USER, LOG_WARNING, "%s : event dropped: %s\n", workerLogName, e.what());
    }
}

namespace {

/** What the classifier reads of a large record, which is all that a worker gets of it: otherwise a
 *  burst of them would be in memory once for every worker that is behind. Outlining a record takes
 *  the bus thread a few times as long as its digest. */
std::vector<std::uint8_t> whatIsRead(std::vector<std::uint8_t> eventData) {
    constexpr std::size_t large = 65'536;
    if (eventData.size() < large) {
        return eventData;
    }
    const auto text = tavrisk::JsonOutline{eventData}.text();
    return {text.begin(), text.end()};
}

// A thread was refused for a whole second, and no worker has ended since.
constinit std::atomic<bool> refused{false};

class Worker {
public:
    explicit Worker(std::vector<std::uint8_t> record) : record_{std::move(record)} {}

    void operator()() {
        zel_wux_fault_logging_thread(std::move(record_));
        refused = false;
    }

private:
    std::vector<std::uint8_t> record_;
};

} // namespace

void startWorker(std::vector<std::uint8_t> eventData) {
    auto body = std::make_unique<Worker>(whatIsRead(std::move(eventData)));
    constexpr std::chrono::milliseconds pause{10};
    for (auto pauses = std::chrono::seconds{1} / pause;; --pauses) {
        try {
            tavrisk::startThread(body);
            return;
        } catch (const std::system_error&) {
            // The bus thread serves nobody while it waits here: it does so for the first of several
            // refusals in a row only.
            if (refused || pauses == 0) {
                refused = true;
                throw;
            }
        }
        std::this_thread::sleep_for(pause);
    }
}
