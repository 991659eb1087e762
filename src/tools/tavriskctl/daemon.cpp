// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/daemon.hpp"

#include "tools/tavriskctl/exit.hpp"

#include <cerrno>
#include <cstring>
#include <utility>

namespace tavrisk::ctl {
namespace {

void appendString(sd_bus_message* message, const std::string& text) {
    const int result = sd_bus_message_append_basic(message, 's', text.c_str());
    if (result == -EINVAL) {
        throw Failure{Exit::refused, "D-Bus carries no text that is not UTF-8"};
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

} // namespace

Daemon::Daemon(std::string bus, std::chrono::microseconds timeout)
    : where_{std::move(bus)}, timeout_{timeout}, bus_{connect(where_, timeout)} {}

Message Daemon::newCall(const char* interface, const char* member) const {
    sd_bus_message* made = nullptr;
    check(
        sd_bus_message_new_method_call(bus_.get(), &made, busName, objectPath, interface, member));
    return Message{made};
}

std::int32_t Daemon::callForReply(sd_bus_message* request) const {
    const auto reply = call(bus_.get(), request, timeout_);
    std::int32_t value = 0;
    check(sd_bus_message_read_basic(reply.get(), 'i', &value));
    return value;
}

std::int32_t Daemon::submit(const char* method, const std::string& validationString,
                            std::span<const std::uint8_t> bytes) {
    const auto request = newCall(interfaceName, method);
    appendString(request.get(), validationString);
    check(sd_bus_message_append_array(request.get(), 'y', bytes.data(), bytes.size()));
    try {
        return callForReply(request.get());
    } catch (const Disconnected&) {
        bus_ = connect(where_, timeout_);
        throw Failure{Exit::refused,
                      "the bus closed the connection on this message of " +
                          std::to_string(bytes.size()) +
                          " bytes, as it does with one that is larger than it lets through"};
    }
}

std::int32_t Daemon::saveAndClearCache() {
    return callForReply(newCall(interfaceName, "SaveAndClearCache").get());
}

Message Daemon::newPropertiesCall() const {
    auto request = newCall(propertiesInterface, "GetAll");
    check(sd_bus_message_append(request.get(), "s", interfaceName));
    return request;
}

std::vector<Property> Daemon::properties() {
    const auto request = newPropertiesCall();
    const auto reply = call(bus_.get(), request.get(), timeout_);
    return readProperties(reply.get());
}

void Daemon::set(const Property& property) {
    const auto request = newCall(propertiesInterface, "Set");
    const auto& [name, value] = property;
    check(sd_bus_message_append(request.get(), "ss", interfaceName, name.c_str()));
    if (const auto* text = std::get_if<std::string>(&value)) {
        check(sd_bus_message_open_container(request.get(), 'v', "s"));
        appendString(request.get(), *text);
        check(sd_bus_message_close_container(request.get()));
    } else {
        check(sd_bus_message_append(request.get(), "v", "y", std::get<std::uint8_t>(value)));
    }
    call(bus_.get(), request.get(), timeout_);
}

std::optional<Owner> Daemon::owner() {
    sd_bus_creds* made = nullptr;
    const int result =
        sd_bus_get_name_creds(bus_.get(), busName,
                              SD_BUS_CREDS_UNIQUE_NAME | SD_BUS_CREDS_PID | SD_BUS_CREDS_EUID |
                                  SD_BUS_CREDS_CMDLINE | SD_BUS_CREDS_AUGMENT,
                              &made);
    const Credentials credentials{made};
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

} // namespace tavrisk::ctl
