// SPDX-License-Identifier: Apache-2.0
// Calls the platform's three libraries as the daemon does, and says what they do to their process:
// vendor_probe CHECK prints a verdict ("ok", "note" or "FAILED"), a tab and a remark. It ends by a
// signal, or not at all, when a library makes it.
#include "contract/platform/kelp.h"
#include "contract/platform/mosslink.h"
#include "contract/platform/whelk.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

/** The libraries, loaded as the daemon's loader finds them. */
struct Platform {
    decltype(&MOSSLINKBuildMsgArgsBuffer) build{};
    decltype(&MOSSLINKCreateTLVList) create{};
    decltype(&MOSSLINKAddTLVToList) add{};
    decltype(&MOSSLINKSubmitEvent) submit{};
    decltype(&MOSSLINKFreeTLVList) free{};
    decltype(&kelpc_initialize) initialize{};
    decltype(&kelpc_destroy) destroy{};
    decltype(&whelk_vprintf) log{};
};
Platform platform;

int say(const char* verdict, const std::string& remark) {
    std::printf("%s\t%s\n", verdict, remark.c_str());
    return 0;
}

template <typename Function>
void find(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
}

/** False, with a word about why, when one cannot be loaded or lacks a call. */
bool load() {
    const auto open = [](const char* name) { return dlopen(name, RTLD_NOW | RTLD_GLOBAL); };
    auto* const whelk = open("libwhelk.so.9");
    auto* const kelp = open("libkelp.so");
    auto* const mosslink = open("libmosslink.so.9");
    if (whelk == nullptr || kelp == nullptr || mosslink == nullptr) {
        const auto* why = dlerror();
        say("FAILED", why != nullptr ? why : "a library cannot be loaded");
        return false;
    }
    find(mosslink, "MOSSLINKBuildMsgArgsBuffer", platform.build);
    find(mosslink, "MOSSLINKCreateTLVList", platform.create);
    find(mosslink, "MOSSLINKAddTLVToList", platform.add);
    find(mosslink, "MOSSLINKSubmitEvent", platform.submit);
    find(mosslink, "MOSSLINKFreeTLVList", platform.free);
    find(kelp, "kelpc_initialize", platform.initialize);
    find(kelp, "kelpc_destroy", platform.destroy);
    find(whelk, "whelk_vprintf", platform.log);
    if (!platform.build || !platform.create || !platform.add || !platform.submit ||
        !platform.free || !platform.initialize || !platform.destroy || !platform.log) {
        say("FAILED", "a call is missing");
        return false;
    }
    return true;
}

__attribute__((format(printf, 1, 2))) void logLine(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    platform.log(5, 998, format, arguments);
    va_end(arguments);
}

/** The codes of a connection to the data store and of a submission. */
struct Codes {
    int store = 0;
    int submission = 0;
};

int submitOne() {
    std::string device = "DIMM_3 correctable ECC error count";
    std::array arguments{device.data()};
    std::array<char, 1024> packed{};
    std::uint32_t length = packed.size();
    void* list = nullptr;
    if (const auto code = platform.build(arguments.data(), 1, packed.data(), &length)) {
        return code;
    }
    if (const auto code = platform.create(&list)) {
        return code;
    }
    auto code = platform.add(6, static_cast<std::uint16_t>(length), packed.data(), list);
    if (code == 0) {
        code = platform.submit(66, 1, 1, "HMC0004", nullptr, nullptr, list);
    }
    platform.free(list);
    return code;
}

/** All that a worker calls, in its order. */
Codes callAll() {
    struct {
        const char* name = "tavrisk";
        std::uint32_t reserved = 0;
        std::uint32_t version = 17;
    } client;
    struct {
        const void* client;
        std::array<std::uint8_t, 32> reserved{};
        std::uint32_t version = 17;
        std::array<std::uint8_t, 60> reservedToo{};
    } const block{.client = &client};
    static_assert(sizeof block == 104);

    Codes codes;
    void* handle = nullptr;
    codes.store = platform.initialize(&handle, &block);
    codes.submission = submitOne();
    logLine("%s: %d", "vendor-check", codes.submission);
    if (codes.store == 0) {
        platform.destroy(handle);
    }
    return codes;
}

std::string text(const Codes& codes) {
    return "store " + std::to_string(codes.store) + ", submission " +
           std::to_string(codes.submission);
}

/** From several threads at once, since each event has one. */
int calls() {
    std::array<Codes, 8> last;
    std::vector<std::thread> workers;
    for (auto& codes : last) {
        workers.emplace_back([&codes] {
            for (int call = 0; call < 25; ++call) {
                codes = callAll();
            }
        });
    }
    for (auto& worker : workers) {
        worker.join();
    }
    const bool refused = last[0].store != 0 || last[0].submission != 0;
    return say(refused ? "note" : "ok", "200 from 8 threads, last codes: " + text(last[0]));
}

/** How deep the calls go: a stack full of a pattern, of which some is left. */
int stack() {
    constexpr std::size_t size = std::size_t{8} << 20;
    constexpr std::size_t share = 256; // KiB of a worker's are for the libraries
    constexpr unsigned char pattern = 0xa5;
    auto* const area = static_cast<unsigned char*>(mmap(
        nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0));
    std::memset(area, pattern, size);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, area, size);
    pthread_t thread{};
    pthread_create(
        &thread, &attributes,
        [](void*) -> void* {
            callAll();
            return nullptr;
        },
        nullptr);
    pthread_join(thread, nullptr);
    const auto* const deepest =
        std::find_if(area, area + size, [](unsigned char byte) { return byte != pattern; });
    const auto used = static_cast<std::size_t>(area + size - deepest) / 1024;
    return say(used > share ? "FAILED" : "ok",
               std::to_string(used) + " KiB of " + std::to_string(share));
}

std::ptrdiff_t countThreads() {
    return std::distance(std::filesystem::directory_iterator{"/proc/self/task"}, {});
}

int threads(std::ptrdiff_t before) {
    const auto loaded = countThreads() - before;
    callAll();
    const auto called = countThreads() - before - loaded;
    return say(loaded + called == 0 ? "ok" : "note",
               std::to_string(loaded) + " when loaded, " + std::to_string(called) + " when called");
}

/** Whether a child can log while other threads are at it, as between fork and execve. */
bool childLogs() {
    const pid_t child = fork();
    if (child == 0) {
        alarm(5);
        logLine("%s", "vendor-check: of a child");
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status);
}

int logAfterFork() {
    std::atomic<bool> done{false};
    std::vector<std::thread> others;
    for (int other = 0; other < 3; ++other) {
        others.emplace_back([&done] {
            while (!done) {
                logLine("%s", "vendor-check: of a thread");
            }
        });
    }
    int children = 0;
    bool well = true;
    for (; well && children < 300; ++children) {
        well = childLogs();
    }
    done = true;
    for (auto& other : others) {
        other.join();
    }
    return well ? say("ok", std::to_string(children) + " children logged beside three threads")
                : say("FAILED", "child " + std::to_string(children) + " hung or died in it");
}

/** What of a process is everybody's, and has to stay as the daemon has it. */
struct Surroundings {
    std::array<struct sigaction, 65> actions{};
    sigset_t mask{};
    mode_t modes = 0;
    std::string directory;
    std::string locale;

    Surroundings() {
        for (int signal = 1; signal < static_cast<int>(actions.size()); ++signal) {
            sigaction(signal, nullptr, &actions[signal]);
        }
        sigprocmask(SIG_SETMASK, nullptr, &mask);
        umask(modes = umask(0));
        directory = std::filesystem::current_path();
        locale = std::setlocale(LC_ALL, nullptr);
    }
};

int changes(const Surroundings& before) {
    callAll();
    const Surroundings after;
    std::string changed;
    for (int signal = 1; signal < static_cast<int>(before.actions.size()); ++signal) {
        const auto& was = before.actions[signal];
        const auto& is = after.actions[signal];
        if (was.sa_handler != is.sa_handler || was.sa_flags != is.sa_flags ||
            sigismember(&before.mask, signal) != sigismember(&after.mask, signal)) {
            const auto* name = sigabbrev_np(signal);
            changed += " SIG" + (name != nullptr ? std::string{name} : std::to_string(signal));
        }
    }
    changed += before.modes != after.modes ? " umask" : "";
    changed += before.directory != after.directory ? " directory" : "";
    changed += before.locale != after.locale ? " locale" : "";
    return changed.empty() ? say("ok", "no signal, mask, umask, directory or locale")
                           : say("FAILED", "changed:" + changed);
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view check{argc == 2 ? argv[1] : ""};
    const Surroundings before;
    const auto threadsBefore = countThreads();
    if (!load()) {
        return 0;
    }
    return check == "calls"     ? calls()
           : check == "stack"   ? stack()
           : check == "threads" ? threads(threadsBefore)
           : check == "fork"    ? logAfterFork()
           : check == "changes" ? changes(before)
                                : 2;
}
