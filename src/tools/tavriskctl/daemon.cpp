// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/daemon.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>

namespace tavrisk::tools {
namespace {

using std::chrono::microseconds;

/** The bus ended the connection. */
class Disconnected final : public Failure {
public:
    Disconnected() : Failure{Exit::unreachable, "the bus closed the connection"} {}
};

bool isDisconnection(int result) {
    return result == -ECONNRESET || result == -ENOTCONN || result == -EPIPE;
}

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
    Meaning{SD_BUS_ERROR_ACCESS_DENIED, Exit::failed,
            "permission denied: the bus's policy or the daemon does not let this user do that",
            false},
    Meaning{SD_BUS_ERROR_PROPERTY_READ_ONLY, Exit::failed, "the property is read-only", false},
    Meaning{SD_BUS_ERROR_LIMITS_EXCEEDED, Exit::failed, "the bus refused the message", true},
    Meaning{"", Exit::failed, "the call failed", true},
};

Failure noReplyWithin(microseconds timeout) {
    std::ostringstream sentence;
    sentence << "no reply within " << std::chrono::duration<double>{timeout}.count()
             << " s; the daemon serves one call at a time and may still carry this one out";
    return {Exit::unreachable, sentence.str()};
}

Failure meaningOf(const sd_bus_error& error) {
    const std::string_view name{error.name};
    const Meaning* meaning =
        std::find_if(meanings.begin(), meanings.end(),
                     [name](const Meaning& row) { return name.starts_with(row.errorName); });
    std::string sentence{meaning->sentence};
    if (meaning->addText) {
        sentence += std::string{": "} + (error.message != nullptr ? error.message : error.name);
    }
    return {meaning->status, sentence};
}

std::uint64_t toMicroseconds(microseconds timeout) {
    return timeout == microseconds{0} ? UINT64_MAX : static_cast<std::uint64_t>(timeout.count());
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
int waitUntilReady(sd_bus* bus, microseconds timeout) {
    using std::chrono::steady_clock;
    const auto deadline = steady_clock::now() + timeout;
    int ready = 0;
    for (; ready == 0; ready = sd_bus_is_ready(bus)) {
        const int processed = sd_bus_process(bus, nullptr);
        if (processed < 0) {
            return processed;
        }
        if (processed > 0) {
            continue;
        }
        const auto left = std::chrono::ceil<microseconds>(deadline - steady_clock::now());
        if (timeout != microseconds{0} && left.count() <= 0) {
            return -ETIMEDOUT;
        }
        const int waited =
            sd_bus_wait(bus, timeout == microseconds{0} ? UINT64_MAX : toMicroseconds(left));
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

Bus connect(const Target& target) {
    sd_bus* opened = nullptr;
    int result = open(&opened, target.bus);
    Bus bus{opened};
    if (result >= 0) {
        result = waitUntilReady(bus.get(), target.timeout);
    }
    if (result >= 0) {
        result = sd_bus_set_method_call_timeout(bus.get(), toMicroseconds(target.timeout));
    }
    if (result < 0) {
        const bool named = target.bus == "system" || target.bus == "session";
        throw Failure{Exit::unreachable,
                      "cannot connect to the " +
                          (named ? target.bus + " bus" : "bus at '" + target.bus + "'") + ": " +
                          whyNotConnected(result)};
    }
    return bus;
}

/** sd_bus_message_append(), which leaves open what is wrong with a text. */
template <typename... Values>
void append(const Message& message, const char* types, Values... values) {
    const int result = sd_bus_message_append(message.get(), types, values...);
    if (result == -EINVAL) {
        throw Failure{Exit::failed, "D-Bus carries no text that is not UTF-8"};
    }
    check(result);
}

std::string commandOf(sd_bus_creds* credentials) {
    char** words = nullptr;
    if (sd_bus_creds_get_cmdline(credentials, &words) < 0) {
        return {};
    }
    std::string command;
    for (; words != nullptr && *words != nullptr; ++words) {
        command += (command.empty() ? "" : " ") + std::string{*words};
    }
    return command;
}

microseconds toTimeout(const std::string& text) {
    constexpr double aYear = 365.0 * 24 * 60 * 60;
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0 && seconds <= aYear)) {
        failUsage("--timeout takes a number of seconds, a year's at most, not '" + text + "'");
    }
    return microseconds{static_cast<std::int64_t>(std::ceil(seconds * 1e6))};
}

} // namespace

void check(int result) {
    if (isDisconnection(result)) {
        throw Disconnected{};
    }
    if (result < 0) {
        throw Failure{Exit::failed, std::strerror(-result)};
    }
}

Target targetOf(const Arguments& arguments, std::chrono::seconds defaultTimeout) {
    const auto timeout = arguments.value("timeout");
    Target target{arguments.value("bus").value_or("system"),
                  timeout ? toTimeout(*timeout) : microseconds{defaultTimeout}};
    if (target.bus != "system" && target.bus != "session" &&
        target.bus.find(':') == std::string::npos) {
        failUsage("--bus takes system, session or an address such as unix:path=/run/bus, not '" +
                  target.bus + "'");
    }
    return target;
}

Daemon::Daemon(Target target) : target_{std::move(target)}, bus_{connect(target_)} {}

Message Daemon::newCall(const char* interface, const char* member) const {
    sd_bus_message* made = nullptr;
    check(sd_bus_message_new_method_call(bus(), &made, busName, objectPath, interface, member));
    return Message{made};
}

Message Daemon::call(const Message& request) {
    sd_bus_error error{};
    const std::unique_ptr<sd_bus_error, void (*)(sd_bus_error*)> freed{&error, sd_bus_error_free};
    sd_bus_message* reply = nullptr;
    const int result =
        sd_bus_call(bus(), request.get(), toMicroseconds(target_.timeout), &error, &reply);
    if (result < 0 && !isDisconnection(result) && error.name != nullptr) {
        const bool late = std::string_view{error.name} == SD_BUS_ERROR_TIMEOUT;
        throw late ? noReplyWithin(target_.timeout) : meaningOf(error);
    }
    check(result);
    return Message{reply};
}

std::int32_t Daemon::callForNumber(const Message& request) {
    std::int32_t value = 0;
    check(sd_bus_message_read_basic(call(request).get(), 'i', &value));
    return value;
}

std::int32_t Daemon::submit(const char* method, const std::string& validationString,
                            std::span<const std::uint8_t> bytes) {
    const auto request = newCall(interfaceName, method);
    append(request, "s", validationString.c_str());
    check(sd_bus_message_append_array(request.get(), 'y', bytes.data(), bytes.size()));
    try {
        return callForNumber(request);
    } catch (const Disconnected&) {
        bus_ = connect(target_);
        throw Failure{Exit::failed,
                      "the bus closed the connection on this message of " +
                          std::to_string(bytes.size()) +
                          " bytes, as it does with one that is larger than it lets through"};
    }
}

std::int32_t Daemon::saveAndClearCache() {
    return callForNumber(newCall(interfaceName, "SaveAndClearCache"));
}

Message Daemon::newPropertiesCall() const {
    auto request = newCall(propertiesInterface, "GetAll");
    append(request, "s", interfaceName);
    return request;
}

std::vector<Property> Daemon::properties() {
    return readProperties(call(newPropertiesCall()).get());
}

void Daemon::set(const Property& property) {
    const auto request = newCall(propertiesInterface, "Set");
    const auto& [name, value] = property;
    append(request, "ss", interfaceName, name.c_str());
    if (const auto* text = std::get_if<std::string>(&value)) {
        append(request, "v", "s", text->c_str());
    } else {
        append(request, "v", "y", std::get<std::uint8_t>(value));
    }
    call(request);
}

std::optional<Owner> Daemon::owner() {
    sd_bus_creds* made = nullptr;
    const int result =
        sd_bus_get_name_creds(bus(), busName,
                              SD_BUS_CREDS_UNIQUE_NAME | SD_BUS_CREDS_PID | SD_BUS_CREDS_EUID |
                                  SD_BUS_CREDS_CMDLINE | SD_BUS_CREDS_AUGMENT,
                              &made);
    const std::unique_ptr<sd_bus_creds, Release> credentials{made};
    if (result == -ENXIO) {
        return std::nullopt;
    }
    check(result);

    Owner owner;
    const char* uniqueName = nullptr;
    if (sd_bus_creds_get_unique_name(made, &uniqueName) >= 0) {
        owner.uniqueName = uniqueName;
    }
    pid_t processId = 0;
    if (sd_bus_creds_get_pid(made, &processId) >= 0) {
        owner.processId = processId;
    }
    uid_t userId = 0;
    if (sd_bus_creds_get_euid(made, &userId) >= 0) {
        owner.userId = userId;
    }
    owner.command = commandOf(made);
    return owner;
}

} // namespace tavrisk::tools
