// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/connection.hpp"

#include "tools/tavriskctl/exit.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string_view>

namespace tavrisk::ctl {
namespace {

/** An error reply, freed with its owner. */
struct Error {
    Error() = default;
    ~Error() { sd_bus_error_free(&reply); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    sd_bus_error reply{};
};

struct Meaning {
    std::string_view errorName;
    Exit status;
    const char* sentence;
    /** Whether the sentence leaves open what the reply's own text tells. */
    bool addText;
};

// The first row whose name the error's begins with counts.
constexpr std::array meanings{
    Meaning{SD_BUS_ERROR_SERVICE_UNKNOWN, Exit::unreachable,
            "the daemon is not running, and the bus cannot start it", false},
    Meaning{SD_BUS_ERROR_NAME_HAS_NO_OWNER, Exit::unreachable, "the daemon is not running", false},
    Meaning{"org.freedesktop.DBus.Error.Spawn.", Exit::unreachable,
            "the bus could not start the daemon", true},
    Meaning{"org.freedesktop.DBus.Error.TimedOut", Exit::unreachable,
            "the bus could not start the daemon", true},
    Meaning{SD_BUS_ERROR_NO_REPLY, Exit::unreachable,
            "the daemon went away or was cut off before it replied", false},
    Meaning{SD_BUS_ERROR_UNKNOWN_OBJECT, Exit::unreachable,
            "who owns the name does not serve the daemon's object: the daemon's start-up has "
            "failed, or it is another program",
            false},
    Meaning{SD_BUS_ERROR_UNKNOWN_INTERFACE, Exit::unreachable,
            "who answers there is no daemon of this interface", true},
    Meaning{SD_BUS_ERROR_UNKNOWN_METHOD, Exit::unreachable,
            "who answers there is no daemon of this interface", true},
    Meaning{SD_BUS_ERROR_ACCESS_DENIED, Exit::refused,
            "permission denied: the bus's policy or the daemon does not let this user do that",
            false},
    Meaning{SD_BUS_ERROR_PROPERTY_READ_ONLY, Exit::refused, "the property is read-only", false},
    Meaning{SD_BUS_ERROR_LIMITS_EXCEEDED, Exit::refused, "the bus refused the message", true},
    Meaning{"", Exit::refused, "the call failed", true},
};

Failure noReplyWithin(std::chrono::microseconds timeout) {
    std::ostringstream sentence;
    sentence << "no reply within " << std::chrono::duration<double>{timeout}.count()
             << " s; the daemon serves one call at a time and may still carry this one out";
    return {Exit::unreachable, sentence.str()};
}

[[noreturn]] void fail(int result, const sd_bus_error& error, std::chrono::microseconds timeout) {
    switch (result) {
    case -ECONNRESET:
    case -ENOTCONN:
    case -EPIPE:
        throw Disconnected{};
    default:
        break;
    }
    if (error.name == nullptr) {
        throw Failure{Exit::refused, std::strerror(-result)};
    }
    const std::string_view name{error.name};
    if (name == SD_BUS_ERROR_TIMEOUT) {
        throw noReplyWithin(timeout);
    }
    const Meaning* meaning =
        std::find_if(meanings.begin(), meanings.end(),
                     [name](const Meaning& row) { return name.starts_with(row.errorName); });
    std::string sentence{meaning->sentence};
    if (meaning->addText) {
        sentence += std::string{": "} + (error.message != nullptr ? error.message : error.name);
    }
    throw Failure{meaning->status, sentence};
}

std::uint64_t microseconds(std::chrono::microseconds timeout) {
    return timeout == forever ? UINT64_MAX : static_cast<std::uint64_t>(timeout.count());
}

int open(sd_bus** opened, const std::string& where) {
    if (where == "system") {
        return sd_bus_open_system(opened);
    }
    if (where == "session") {
        return sd_bus_open_user(opened);
    }
    int result = sd_bus_new(opened);
    if (result >= 0) {
        result = sd_bus_set_address(*opened, where.c_str());
    }
    if (result >= 0) {
        result = sd_bus_set_bus_client(*opened, 1);
    }
    return result >= 0 ? sd_bus_start(*opened) : result;
}

/** Until the bus has said hello: only then is it known to be there. */
int waitUntilReady(sd_bus* bus, std::chrono::microseconds timeout) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + timeout;
    int ready = 0;
    for (; ready == 0; ready = sd_bus_is_ready(bus)) {
        const int processed = sd_bus_process(bus, nullptr);
        if (processed < 0) {
            return processed;
        }
        if (processed > 0) {
            continue;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
        if (timeout != forever && left.count() <= 0) {
            return -ETIMEDOUT;
        }
        const int waited = sd_bus_wait(bus, timeout == forever ? UINT64_MAX : microseconds(left));
        if (waited < 0 && waited != -EINTR) {
            return waited;
        }
    }
    return ready;
}

std::string whyNotConnected(int result) {
    switch (result) {
    case -ENOMEDIUM:
        return "its address is not known: neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is "
               "set";
    case -EINVAL:
        return "that is no complete bus address";
    default:
        return std::strerror(-result);
    }
}

} // namespace

void check(int result) {
    if (result < 0) {
        fail(result, sd_bus_error{}, forever);
    }
}

Bus connect(const std::string& where, std::chrono::microseconds timeout) {
    sd_bus* opened = nullptr;
    int result = open(&opened, where);
    Bus bus{opened};
    if (result >= 0) {
        result = waitUntilReady(bus.get(), timeout);
    }
    if (result >= 0) {
        result = sd_bus_set_method_call_timeout(bus.get(), microseconds(timeout));
    }
    if (result < 0) {
        const bool named = where == "system" || where == "session";
        throw Failure{Exit::unreachable, "cannot connect to the " +
                                             (named ? where + " bus" : "bus at '" + where + "'") +
                                             ": " + whyNotConnected(result)};
    }
    return bus;
}

Message call(sd_bus* bus, sd_bus_message* request, std::chrono::microseconds timeout) {
    Error error;
    sd_bus_message* reply = nullptr;
    const int result = sd_bus_call(bus, request, microseconds(timeout), &error.reply, &reply);
    if (result < 0) {
        fail(result, error.reply, timeout);
    }
    return Message{reply};
}

} // namespace tavrisk::ctl
