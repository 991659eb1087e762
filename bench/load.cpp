// SPDX-License-Identifier: Apache-2.0
// load METHOD PAYLOAD CALLS WINDOW ROUNDS NAME...: sends CALLS calls with WINDOW of them under way
// to the server behind each bus name in turn, ROUNDS times, and prints what came of it as JSON:
// medians over the rounds, and of the ratios to the first server in each. PAYLOAD is a file, or a
// size in bytes of an event record to be made. With one name and a file /run/keep, the data tree is
// not emptied.
#include "bench/measure.hpp"

#include <openssl/evp.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <iterator>
#include <map>
#include <utility>

namespace fs = std::filesystem;
using bench::check;
using bench::Clock;

namespace {

struct Load {
    std::string method;
    std::string payload;
    std::string digest;
    std::size_t calls;
    std::size_t window;
};

struct Server {
    std::string name;
    pid_t process;
};

struct Outcome {
    double callsPerSecond;
    double p50;
    double p99;
    double longest;
    double cpu; // Of the server for one call, in microseconds like the times above.
    double peak;
    std::map<std::int32_t, std::size_t> replies;
};

/** An event record of this size, or the least that there is. */
std::string eventRecord(std::size_t size) {
    std::string record = R"({"EventType":"Event","Severity":"Warning","MessageArgs":["GPU0"],)"
                         R"("MessageId":"SensorEvent.1.0.0.ReadingAboveUpperCautionThreshold",)"
                         R"("Oem":")";
    record.resize(std::max(record.size() + 2, size) - 2, 'x');
    return record + "\"}";
}

std::string payloadFrom(const std::string& argument) {
    if (argument.find_first_not_of("0123456789") == std::string::npos) {
        return eventRecord(std::stoul(argument));
    }
    std::ifstream file{argument, std::ios::binary};
    return {std::istreambuf_iterator<char>{file}, {}};
}

std::string digestOf(const std::string& bytes) {
    std::array<unsigned char, 64> hash{};
    EVP_Q_digest(nullptr, "SHA512", nullptr, bytes.data(), bytes.size(), hash.data(), nullptr);
    std::string text;
    for (const unsigned byte : hash) {
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", byte);
        text += digits.data();
    }
    return text;
}

/** One server under one load. */
class Run {
public:
    Run(sd_bus* bus, const Load& load, const Server& server)
        : bus_{bus}, load_{load}, server_{server} {}

    Outcome measure() {
        bench::forgetPeak(server_.process);
        const double cpuBefore = bench::cpuSecondsAtRest(server_.process);
        const auto begin = Clock::now();
        send();
        const double lasted = bench::seconds(Clock::now() - begin);
        const double cpu = bench::cpuSecondsAtRest(server_.process) - cpuBefore;
        const auto calls = static_cast<double>(load_.calls);
        return {.callsPerSecond = calls / lasted,
                .p50 = bench::quantile(times_, 0.5) * 1e6,
                .p99 = bench::quantile(times_, 0.99) * 1e6,
                .longest = bench::quantile(times_, 1) * 1e6,
                .cpu = cpu / calls * 1e6,
                .peak = bench::statusKiB(server_.process, "VmHWM"),
                .replies = replies_};
    }

private:
    struct Call {
        Run* run;
        Clock::time_point began;
    };

    void send() {
        std::size_t sent = 0;
        while (times_.size() < load_.calls) {
            for (; sent < load_.calls && sent - times_.size() < load_.window; ++sent) {
                begin();
            }
            const int result = sd_bus_process(bus_, nullptr);
            check(result, "the connection");
            if (result == 0) {
                check(sd_bus_wait(bus_, UINT64_MAX), "waiting");
            }
        }
    }

    void begin() {
        constexpr auto path = "/com/vorn/bmc/tavrisk";
        constexpr auto interface = "com.vorn.bmc.tavrisk";
        constexpr std::uint64_t timeout = 600'000'000;
        sd_bus_message* call = nullptr;
        check(sd_bus_message_new_method_call(bus_, &call, server_.name.c_str(), path, interface,
                                             load_.method.c_str()),
              "making a call");
        check(sd_bus_message_append_basic(call, 's', load_.digest.c_str()), "a digest");
        check(sd_bus_message_append_array(call, 'y', load_.payload.data(), load_.payload.size()),
              "a payload");
        calls_.push_back({this, Clock::now()});
        check(sd_bus_call_async(bus_, nullptr, call, replied, &calls_.back(), timeout), "sending");
        sd_bus_message_unref(call);
    }

    static int replied(sd_bus_message* reply, void* context, sd_bus_error* /*error*/) {
        const auto& call = *static_cast<Call*>(context);
        auto& run = *call.run;
        std::int32_t value = -1; // An error.
        sd_bus_message_read_basic(reply, 'i', &value);
        ++run.replies_[value];
        run.times_.push_back(bench::seconds(Clock::now() - call.began));
        return 1;
    }

    sd_bus* bus_;
    const Load& load_;
    const Server& server_;
    std::deque<Call> calls_;
    std::vector<double> times_;
    std::map<std::int32_t, std::size_t> replies_;
};

/** The process that has claimed the name, which it may be about to. */
pid_t processBehind(sd_bus* bus, const std::string& name) {
    sd_bus_creds* credentials = nullptr;
    int result = -1;
    for (int tries = 0; tries < 1'000 && result < 0; ++tries) {
        usleep(tries == 0 ? 0 : 10'000);
        result = sd_bus_get_name_creds(bus, name.c_str(), SD_BUS_CREDS_PID, &credentials);
    }
    check(result, name.c_str());
    pid_t process = 0;
    check(sd_bus_creds_get_pid(credentials, &process), "looking for the process");
    sd_bus_creds_unref(credentials);
    return process;
}

void emptyTree() {
    if (fs::exists("/run/keep")) {
        return;
    }
    for (const auto& entry : fs::recursive_directory_iterator{"/run/hmc"}) {
        if (entry.is_regular_file()) {
            fs::remove(entry.path());
        }
    }
}

double medianOf(const std::vector<Outcome>& outcomes, double Outcome::*figure) {
    std::vector<double> values;
    for (const auto& outcome : outcomes) {
        values.push_back(outcome.*figure);
    }
    return bench::median(values);
}

double medianRatio(const std::vector<Outcome>& outcomes, const std::vector<Outcome>& to,
                   double Outcome::*figure) {
    std::vector<double> ratios;
    for (std::size_t round = 0; round < outcomes.size(); ++round) {
        ratios.push_back(outcomes[round].*figure / to[round].*figure);
    }
    return bench::median(ratios);
}

std::string asJson(const std::vector<Outcome>& outcomes, const std::vector<Outcome>& limit) {
    std::map<std::int32_t, std::size_t> replies;
    for (const auto& outcome : outcomes) {
        for (const auto& [value, count] : outcome.replies) {
            replies[value] += count;
        }
    }
    std::string counts;
    for (const auto& [value, count] : replies) {
        counts +=
            (counts.empty() ? "\"" : ",\"") + std::to_string(value) + "\":" + std::to_string(count);
    }
    std::array<char, 512> text{};
    std::snprintf(text.data(), text.size(),
                  R"({"callsPerSecond":%.2f,"p50us":%.1f,"p99us":%.1f,"maxUs":%.1f,"cpuUs":%.2f,)"
                  R"("peakKiB":%.0f,"throughputRatio":%.4f,"cpuRatio":%.4f,"replies":{%s}})",
                  medianOf(outcomes, &Outcome::callsPerSecond), medianOf(outcomes, &Outcome::p50),
                  medianOf(outcomes, &Outcome::p99), medianOf(outcomes, &Outcome::longest),
                  medianOf(outcomes, &Outcome::cpu), medianOf(outcomes, &Outcome::peak),
                  medianRatio(outcomes, limit, &Outcome::callsPerSecond),
                  medianRatio(outcomes, limit, &Outcome::cpu), counts.c_str());
    return text.data();
}

void measureAll(const Load& load, std::size_t rounds, const std::vector<std::string>& names) {
    const auto bus = bench::connect();
    std::vector<Server> servers;
    for (const auto& name : names) {
        servers.push_back({name, processBehind(bus.get(), name)});
    }
    std::vector<std::vector<Outcome>> outcomes{servers.size()};
    for (std::size_t round = 0; round < rounds; ++round) {
        // Who comes first changes, so that neither has the machine warmer.
        for (std::size_t i = 0; i < servers.size(); ++i) {
            const auto turn = (i + round) % servers.size();
            outcomes[turn].push_back(Run{bus.get(), load, servers[turn]}.measure());
            emptyTree();
        }
    }
    std::printf(R"({"method":"%s","bytes":%zu,"calls":%zu,"window":%zu,"rounds":%zu)",
                load.method.c_str(), load.payload.size(), load.calls, load.window, rounds);
    for (std::size_t i = 0; i < servers.size(); ++i) {
        const auto name = servers[i].name.substr(servers[i].name.rfind('.') + 1);
        std::printf(",\"%s\":%s", name.c_str(), asJson(outcomes[i], outcomes.front()).c_str());
    }
    std::puts("}");
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments{argv + 1, argv + argc};
    if (arguments.size() < 6) {
        std::fputs("usage: load METHOD PAYLOAD CALLS WINDOW ROUNDS NAME...\n", stderr);
        return 2;
    }
    try {
        Load load{arguments[0], payloadFrom(arguments[1]), "", std::stoul(arguments[2]),
                  std::stoul(arguments[3])};
        load.digest = digestOf(load.payload);
        measureAll(load, std::stoul(arguments[4]), {arguments.begin() + 5, arguments.end()});
    } catch (const std::exception& e) {
        std::fprintf(stderr, "load: %s\n", e.what());
        return EXIT_FAILURE;
    }
}
