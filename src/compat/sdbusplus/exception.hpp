// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <systemd/sd-bus.h>

#include <cstring>
#include <exception>
#include <string>

namespace sdbusplus::exception {

/** Base of everything the binding throws: a D-Bus error name with a description. */
struct exception : public std::exception {
    [[nodiscard]] virtual const char* name() const noexcept = 0;
    [[nodiscard]] virtual const char* description() const noexcept = 0;
    [[nodiscard]] virtual int get_errno() const noexcept = 0;
};

/** Raised by the binding itself, as opposed to errors an interface declares. */
struct internal_exception : public exception {};

/** A failed sd-bus call: its errno (positive) and the name of the call. */
class SdBusError final : public internal_exception {
public:
    SdBusError(int error, const char* prefix) : error_{error} {
        sd_bus_error text{};
        sd_bus_error_set_errno(&text, error);
        name_ = text.name != nullptr ? text.name : SD_BUS_ERROR_FAILED;
        const char* message = text.message != nullptr ? text.message : std::strerror(error);
        description_ = std::string{prefix} + ": " + message;
        what_ = name_ + ": " + description_;
        sd_bus_error_free(&text);
    }

    [[nodiscard]] const char* name() const noexcept override { return name_.c_str(); }
    [[nodiscard]] const char* description() const noexcept override { return description_.c_str(); }
    [[nodiscard]] const char* what() const noexcept override { return what_.c_str(); }
    [[nodiscard]] int get_errno() const noexcept override { return error_; }

private:
    int error_;
    std::string name_;
    std::string description_;
    std::string what_;
};

} // namespace sdbusplus::exception

namespace sdbusplus::details {

/** Turns the negative return value of an sd-bus call into an SdBusError named after the call. */
inline int check(int result, const char* call) {
    if (result < 0) {
        throw exception::SdBusError(-result, call);
    }
    return result;
}

} // namespace sdbusplus::details
