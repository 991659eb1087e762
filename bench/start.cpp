// SPDX-License-Identifier: Apache-2.0
// start ROUNDS NAME=PROGRAM...: starts each program in turn, ROUNDS times, and prints as JSON how
// long it takes until it has claimed its bus name, what it then keeps in memory, and how often its
// threads woke up in two seconds without a call.
#include "bench/measure.hpp"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <utility>

using bench::check;
using bench::Clock;

namespace {

struct Program {
    std::string name;
    std::string path;
    std::vector<double> milliseconds;
    std::vector<double> residentKiB;
    std::vector<double> wakeUps;
};

class Process {
public:
    explicit Process(const std::string& path) : pid_{fork()} {
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            execl(path.c_str(), path.c_str(), nullptr);
            _exit(127);
        }
    }
    ~Process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

private:
    pid_t pid_;
};

/** Voluntary context switches of all threads. */
double switches(pid_t process) {
    double all = 0;
    for (const auto& task :
         std::filesystem::directory_iterator{"/proc/" + std::to_string(process) + "/task"}) {
        std::ifstream status{task.path() / "status"};
        for (std::string word; status >> word;) {
            if (word == "voluntary_ctxt_switches:") {
                double count = 0;
                status >> count;
                all += count;
            }
        }
    }
    return all;
}

int noteOwner(sd_bus_message* signal, void* context, sd_bus_error* /*error*/) {
    const char* name = nullptr;
    const char* before = nullptr;
    const char* now = nullptr;
    if (sd_bus_message_read(signal, "sss", &name, &before, &now) >= 0 && *now != '\0') {
        *static_cast<std::string*>(context) = name;
    }
    return 0;
}

void measure(sd_bus* bus, Program& program, std::string& claimed) {
    claimed.clear();
    const auto begin = Clock::now();
    const Process process{program.path};
    while (claimed != program.name) {
        check(sd_bus_process(bus, nullptr), "the connection");
        check(sd_bus_wait(bus, 1000), "waiting");
        if (Clock::now() - begin > std::chrono::seconds{10}) {
            throw std::runtime_error{program.path + " does not claim its name"};
        }
    }
    program.milliseconds.push_back(bench::seconds(Clock::now() - begin) * 1e3);
    sleep(1);
    program.residentKiB.push_back(bench::statusKiB(process.pid(), "VmRSS"));
    if (program.wakeUps.empty()) {
        sleep(4); // The monitor's first run has ended by then, also on a busy machine.
        const double before = switches(process.pid());
        sleep(2);
        program.wakeUps.push_back(switches(process.pid()) - before);
    }
}

double medianRatio(const std::vector<double>& values, const std::vector<double>& to) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < values.size(); ++i) {
        ratios.push_back(values[i] / to[i]);
    }
    return bench::median(ratios);
}

void print(const std::vector<Program>& programs) {
    const char* separator = "{";
    for (const auto& program : programs) {
        const auto name = program.name.substr(program.name.rfind('.') + 1);
        std::printf(R"(%s"%s":{"startMs":%.3f,"startRatio":%.4f,"idleKiB":%.0f,"idleRatio":%.4f,)"
                    R"("wakeUps":%.0f})",
                    separator, name.c_str(), bench::median(program.milliseconds),
                    medianRatio(program.milliseconds, programs.front().milliseconds),
                    bench::median(program.residentKiB),
                    medianRatio(program.residentKiB, programs.front().residentKiB),
                    program.wakeUps.front());
        separator = ",";
    }
    std::puts("}");
}

void measureAll(std::size_t rounds, std::vector<Program>& programs) {
    const auto bus = bench::connect();
    std::string claimed;
    check(sd_bus_match_signal(bus.get(), nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "NameOwnerChanged", noteOwner, &claimed),
          "a match");
    for (std::size_t round = 0; round < rounds; ++round) {
        for (auto& program : programs) {
            measure(bus.get(), program, claimed);
        }
    }
    print(programs);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: start ROUNDS NAME=PROGRAM...\n", stderr);
        return 2;
    }
    try {
        std::vector<Program> programs;
        for (int i = 2; i < argc; ++i) {
            const std::string argument{argv[i]};
            const auto equals = argument.find('=');
            programs.push_back(
                {argument.substr(0, equals), argument.substr(equals + 1), {}, {}, {}});
        }
        measureAll(std::stoul(argv[1]), programs);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "start: %s\n", e.what());
        return EXIT_FAILURE;
    }
}
