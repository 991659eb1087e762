// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/properties.hpp"

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace tavrisk {

template <const PropertyRow& row>
constexpr bool isText = std::holds_alternative<std::string_view>(row.start);

/** What the row's property holds. */
template <const PropertyRow& row>
using PropertyValue = std::conditional_t<isText<row>, std::string, std::uint8_t>;

/** A property in memory, which begins with its row's start value. Replaced on one thread only; a
 *  number may be read from any. */
template <const PropertyRow& row>
class StoredProperty {
public:
    using Value = PropertyValue<row>;

    static const char* name() { return row.name.data(); }

    [[nodiscard]] Value get() const { return value_; }

    /** False when that is the value already. */
    bool replace(Value value) {
        if (value_ == value) {
            return false;
        }
        value_ = std::move(value);
        return true;
    }

private:
    using Start = std::conditional_t<isText<row>, std::string_view, std::uint8_t>;
    using Held = std::conditional_t<isText<row>, std::string, std::atomic<std::uint8_t>>;

    Held value_{std::get<Start>(row.start)};
};

} // namespace tavrisk
