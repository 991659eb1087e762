// SPDX-License-Identifier: Apache-2.0
// The functions that see every byte of a record, without the daemon around them.
#include "records/classifier.hpp"
#include "records/cper_parser.hpp"
#include "records/digest.hpp"
#include "records/json_outline.hpp"

#include <json/value.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::string_view head =
    R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU0"],)"
    R"("MessageId":"SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold","Oem":)";

/** An event record of about this size; what fills it begins, goes on and ends with these. */
Bytes record(std::size_t size, std::string_view begin, std::string_view piece,
             std::string_view end) {
    std::string text{head};
    text += begin;
    while (text.size() + piece.size() + end.size() < size) {
        text += piece;
    }
    text += end;
    return {text.begin(), text.end()};
}

Bytes ofText(std::size_t size) {
    return record(size, "\"", "x", "\"}");
}

Bytes ofNumbers(std::size_t size) {
    return record(size, "[0", ",0", "]}");
}

Bytes ofReadings(std::size_t size) {
    return record(size, "[{}", R"(, {"Name": "Temp_3", "Reading": 71.25, "Ok": true})", "]}");
}

Bytes sample(const std::string& name) {
    std::ifstream file{BENCH_SAMPLES "/" + name, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

void processed(benchmark::State& state, const Bytes& bytes) {
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes.size()) * state.iterations());
}

void digest(benchmark::State& state, const Bytes& bytes) {
    const std::string given(128, '0');
    for (auto _ : state) {
        benchmark::DoNotOptimize(validateBuffer(given, bytes));
    }
    processed(state, bytes);
}

void outline(benchmark::State& state, const Bytes& bytes) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavrisk::JsonOutline{bytes}.text());
    }
    processed(state, bytes);
}

void classify(benchmark::State& state, const Bytes& bytes) {
    for (auto _ : state) {
        std::int32_t event = 0;
        char* device = nullptr;
        std::uint32_t severity = 0;
        benchmark::DoNotOptimize(checkRedfishData(bytes, event, device, severity));
        std::free(device);
    }
    processed(state, bytes);
}

void parseCper(benchmark::State& state, const Bytes& bytes) {
    for (auto _ : state) {
        Json::Value summary;
        benchmark::DoNotOptimize(nvCperParse(bytes, summary));
    }
    processed(state, bytes);
}

constexpr std::size_t small = 300;
constexpr std::size_t large = std::size_t{16} << 20;

BENCHMARK_CAPTURE(digest, 300_bytes, ofText(small));
BENCHMARK_CAPTURE(digest, 16_MiB, ofText(large));
BENCHMARK_CAPTURE(outline, 300_bytes, ofText(small));
BENCHMARK_CAPTURE(outline, 16_MiB_of_text, ofText(large));
BENCHMARK_CAPTURE(outline, 16_MiB_of_numbers, ofNumbers(large));
BENCHMARK_CAPTURE(outline, 16_MiB_of_readings, ofReadings(large));
BENCHMARK_CAPTURE(classify, 300_bytes, ofText(small));
BENCHMARK_CAPTURE(classify, sample, sample("events/event5-above-upper-caution.json"));
BENCHMARK_CAPTURE(parseCper, memory_error, sample("cper/memory-error.cper"));

} // namespace

BENCHMARK_MAIN();
