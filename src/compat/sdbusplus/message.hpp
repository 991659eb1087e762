// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sdbusplus/exception.hpp"

#include <systemd/sd-bus.h>

#include <cstdint>
#include <memory>
#include <string>

namespace sdbusplus::message {

/** A reference to an sd-bus message, with typed reading and appending of its arguments. */
class message {
public:
    /** Takes a reference of its own. */
    explicit message(sd_bus_message* raw) : message_{sd_bus_message_ref(raw)} {}

    /** Takes over the caller's reference. */
    message(sd_bus_message* raw, std::false_type /*adopt*/) : message_{raw} {}

    [[nodiscard]] sd_bus_message* get() const noexcept { return message_.get(); }

    template <typename... Values>
    void read(Values&... values) {
        (readOne(values), ...);
    }

    template <typename... Values>
    void append(const Values&... values) {
        (appendOne(values), ...);
    }

    /** The empty method return that answers this message. */
    [[nodiscard]] message new_method_return() const {
        sd_bus_message* reply = nullptr;
        details::check(sd_bus_message_new_method_return(get(), &reply),
                       "sd_bus_message_new_method_return");
        return {reply, std::false_type{}};
    }

    void method_return() const {
        details::check(sd_bus_send(nullptr, get(), nullptr), "sd_bus_send");
    }

private:
    void readBasic(char type, void* value) const {
        details::check(sd_bus_message_read_basic(get(), type, value), "sd_bus_message_read_basic");
    }
    void readOne(std::string& value) {
        const char* text = nullptr;
        readBasic('s', &text);
        value = text;
    }
    void readOne(std::uint8_t& value) { readBasic('y', &value); }

    void appendBasic(char type, const void* value) const {
        details::check(sd_bus_message_append_basic(get(), type, value),
                       "sd_bus_message_append_basic");
    }
    void appendOne(const std::string& value) { appendBasic('s', value.c_str()); }
    void appendOne(std::uint8_t value) { appendBasic('y', &value); }
    void appendOne(std::int32_t value) { appendBasic('i', &value); }

    struct Unref {
        void operator()(sd_bus_message* raw) const noexcept { sd_bus_message_unref(raw); }
    };
    std::unique_ptr<sd_bus_message, Unref> message_;
};

} // namespace sdbusplus::message
