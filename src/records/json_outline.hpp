// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/json_tokens.hpp"

#include <array>
#include <bitset>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tavrisk {

/**
 * What the classifier reads of an event record, found in one pass that takes no memory, however
 * large the record is and whatever it holds. jsoncpp would first make a tree of all of it, at up to
 * 72 bytes for each two of the record.
 *
 * The pass follows the grammar of jsoncpp's Json::Reader, 1,000 levels of nesting included: it
 * accepts what that accepts, and of members that occur twice the last counts.
 */
class JsonOutline {
public:
    enum class Finding : std::uint8_t { json, noJson, tooDeep };

    /** The outline points into `text`, which has to outlive it. */
    explicit JsonOutline(std::string_view text) noexcept;
    explicit JsonOutline(std::span<const std::uint8_t> record) noexcept
        : JsonOutline{{reinterpret_cast<const char*>(record.data()), record.size()}} {}

    [[nodiscard]] Finding finding() const noexcept { return finding_; }

    /** What is read: five plain members of the record, two members that are none, and inside of
     *  each of those the one element or member that counts. */
    enum Place : std::uint8_t {
        eventType,
        entryType,
        severity,
        messageSeverity,
        messageId,
        messageArgs,
        cper,
        firstArgument,
        notificationType
    };

    /** Whether it is an object, or null, which counts as an empty one. */
    [[nodiscard]] bool isRecord() const noexcept;

    /** A plain member, to be compared; empty for one that is missing or no string. Raises
     *  std::runtime_error, with words for a person, for an object or an array. */
    [[nodiscard]] JsonName name(Place member) const;

    /** The text of what counts inside `messageArgs` or `cper`, as jsoncpp has it; "" when it is
     *  missing. Raises std::runtime_error when either is of the wrong type, and std::bad_alloc. */
    [[nodiscard]] std::string inside(Place member) const;

    /** JSON for which the classifier answers as for the whole; "" for what is none. */
    [[nodiscard]] std::string text() const;

private:
    enum class Kind : std::uint8_t { missing, object, array, string, number, literal };
    struct Value {
        Kind kind = Kind::missing;
        std::string_view text; // Of all but objects and arrays.

        [[nodiscard]] bool isNull() const noexcept { return text == "null"; }
        [[nodiscard]] bool isContainer() const noexcept {
            return kind == Kind::object || kind == Kind::array;
        }
    };
    enum class Step : std::uint8_t { value, ended, failed };

    static constexpr std::array<std::string_view, 7> members{
        "EventType", "EntryType",   "Severity", "MessageSeverity",
        "MessageId", "MessageArgs", "CPER"};
    static constexpr std::size_t mostLevels = 1000;

    void walk() noexcept;
    Step readValue() noexcept;
    Step readPlain(JsonToken token, Value& value) noexcept;
    Step openArray(bool wanted) noexcept;
    Step openObject(bool wanted) noexcept;
    void open(bool object) noexcept;
    Step close() noexcept;
    Step readMember() noexcept;
    Step readNext() noexcept;
    Step readNextElement() noexcept;
    Step readNextMember() noexcept;
    Value* placeOf(const JsonName& name) noexcept;

    static std::string_view textOf(const Value& value, bool isDevice);
    static void appendMember(std::string& text, std::string_view name, std::string_view value);
    [[nodiscard]] const Value& innerOf(Place member) const {
        return values_[member == cper ? notificationType : firstArgument];
    }
    [[nodiscard]] std::string_view containerText(Place place, std::string& buffer) const;

    JsonTokens tokens_;
    Finding finding_ = Finding::noJson;
    std::size_t level_ = 0; // Objects and arrays that are open.
    std::bitset<mostLevels + 1> isObject_;
    std::bitset<mostLevels + 1> nameIsEmpty_;
    bool insideCper_ = false;
    Value* wanted_ = nullptr; // Where the next value goes.
    Value root_;
    std::array<Value, 9> values_;
};

} // namespace tavrisk
