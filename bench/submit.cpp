// SPDX-License-Identifier: Apache-2.0
// submit THREADS ENTRIES: has so many threads submit so many entries each to the event log library,
// the first of all before the clock runs, and prints entries per second and the processor time of
// each in microseconds.
#include "bench/measure.hpp"
#include "contract/platform/mosslink.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

std::atomic<bool> failed{false};

void submit() {
    char device[] = "GPU0";       // NOLINT(modernize-avoid-c-arrays)
    char* arguments[] = {device}; // NOLINT(modernize-avoid-c-arrays)
    char buffer[64];              // NOLINT(modernize-avoid-c-arrays)
    std::uint32_t length = sizeof buffer;
    void* list = nullptr;
    if (MOSSLINKBuildMsgArgsBuffer(arguments, 1, buffer, &length) != 0 ||
        MOSSLINKCreateTLVList(&list) != 0 ||
        MOSSLINKAddTLVToList(6, static_cast<std::uint16_t>(length), buffer, list) != 0 ||
        MOSSLINKSubmitEvent(66, 1, 2, "HMC0005", nullptr, nullptr, list) != 0) {
        failed = true;
    }
    MOSSLINKFreeTLVList(list);
}

} // namespace

int main(int argc, char** argv) {
    const auto threads = argc == 3 ? std::stoul(argv[1]) : 0;
    const auto entries = argc == 3 ? std::stoul(argv[2]) : 0;
    submit();
    const double cpu = bench::cpuSeconds(getpid());
    const auto begin = bench::Clock::now();
    {
        std::vector<std::jthread> all;
        for (std::size_t i = 0; i < threads; ++i) {
            all.emplace_back([entries] {
                for (std::size_t entry = 0; entry < entries; ++entry) {
                    submit();
                }
            });
        }
    }
    const auto count = static_cast<double>(threads * entries);
    std::printf("%.1f %.2f\n", count / bench::seconds(bench::Clock::now() - begin),
                (bench::cpuSeconds(getpid()) - cpu) / count * 1e6);
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}
