// SPDX-License-Identifier: Apache-2.0
#include "records/json_outline.hpp"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace tavrisk {

JsonOutline::JsonOutline(std::string_view text) noexcept : tokens_{text}, wanted_{&root_} {
    walk();
    wanted_ = nullptr;
}

void JsonOutline::walk() noexcept {
    Step step = Step::value;
    while (step != Step::failed) {
        if (step == Step::value) {
            step = readValue();
        } else if (level_ != 0) {
            step = readNext();
        } else {
            finding_ = Finding::json; // What follows the root is not looked at.
            return;
        }
    }
}

JsonOutline::Step JsonOutline::readValue() noexcept {
    if (level_ >= mostLevels) {
        finding_ = Finding::tooDeep;
        return Step::failed;
    }
    Value unwanted;
    Value& value = wanted_ != nullptr ? *wanted_ : unwanted;
    const Value* place = std::exchange(wanted_, nullptr);
    // This may be the second member of its name, and nothing of the first is to stay.
    if (place == &values_[messageArgs]) {
        values_[firstArgument] = {};
    } else if (place == &values_[cper]) {
        values_[notificationType] = {};
    }

    const JsonToken token = tokens_.nextButComments();
    if (token == JsonToken::objectBegin) {
        value = {Kind::object, {}};
        return openObject(place == &values_[cper]);
    }
    if (token == JsonToken::arrayBegin) {
        value = {Kind::array, {}};
        return openArray(place == &values_[messageArgs]);
    }
    return readPlain(token, value);
}

JsonOutline::Step JsonOutline::readPlain(JsonToken token, Value& value) noexcept {
    const auto text = tokens_.text();
    JsonName anything;
    bool good = true;
    switch (token) {
    case JsonToken::literal:
        value = {Kind::literal, text};
        break;
    case JsonToken::number:
        value = {Kind::number, text};
        good = isJsonNumber(text);
        break;
    case JsonToken::string:
        value = {Kind::string, text};
        good = decodeJsonString(text, anything);
        break;
    default:
        good = false;
    }
    return good ? Step::ended : Step::failed;
}

JsonOutline::Step JsonOutline::openArray(bool wanted) noexcept {
    // Only here may an array end without a value, and not behind a comment.
    if (tokens_.comesNext(']')) {
        tokens_.next();
        return Step::ended;
    }
    open(false);
    wanted_ = wanted ? &values_[firstArgument] : nullptr;
    return Step::value;
}

JsonOutline::Step JsonOutline::openObject(bool wanted) noexcept {
    open(true);
    insideCper_ = insideCper_ || wanted;
    return readMember();
}

void JsonOutline::open(bool object) noexcept {
    ++level_;
    isObject_[level_] = object;
    nameIsEmpty_[level_] = true;
}

JsonOutline::Step JsonOutline::close() noexcept {
    --level_;
    insideCper_ = insideCper_ && level_ > 1;
    return Step::ended;
}

JsonOutline::Step JsonOutline::readMember() noexcept {
    const JsonToken token = tokens_.nextButComments();
    // The parser's test for an empty object lets the comma behind a member named "" pass as well.
    if (token == JsonToken::objectEnd && nameIsEmpty_[level_]) {
        return close();
    }
    JsonName name;
    if (token != JsonToken::string || !decodeJsonString(tokens_.text(), name)) {
        return Step::failed;
    }
    nameIsEmpty_[level_] = name.empty();
    wanted_ = placeOf(name);
    return tokens_.next() == JsonToken::colon ? Step::value : Step::failed;
}

JsonOutline::Value* JsonOutline::placeOf(const JsonName& name) noexcept {
    if (level_ == 2 && insideCper_) {
        return name == "NotificationType" ? &values_[notificationType] : nullptr;
    }
    const auto* found = std::find_if(members.begin(), members.end(),
                                     [&name](auto member) { return name == member; });
    return level_ == 1 && found != members.end()
               ? &values_[static_cast<std::size_t>(found - members.begin())]
               : nullptr;
}

JsonOutline::Step JsonOutline::readNext() noexcept {
    return isObject_[level_] ? readNextMember() : readNextElement();
}

JsonOutline::Step JsonOutline::readNextElement() noexcept {
    // Only the first element is ever wanted.
    tokens_.skipPlainElements();
    switch (tokens_.nextButComments()) {
    case JsonToken::comma:
        return Step::value;
    case JsonToken::arrayEnd:
        return close();
    default:
        return Step::failed;
    }
}

JsonOutline::Step JsonOutline::readNextMember() noexcept {
    JsonToken token = tokens_.next();
    if (token == JsonToken::comment) {
        // The parser takes whatever follows a comment for the comma, even what is no token.
        token = tokens_.nextButComments();
    } else if (token != JsonToken::objectEnd && token != JsonToken::comma) {
        return Step::failed;
    }
    return token == JsonToken::objectEnd ? close() : readMember();
}

namespace {

// An escaped character takes six bytes, and no text that is looked for has as many as a name
// holds: a longer one is none of them.
constexpr std::size_t longestCompared = std::size_t{6} * JsonName::capacity;

/** The text of a plain value that is known to be JSON. */
std::string decoded(std::string_view json) {
    if (json.front() == '"' && json.find('\\') == std::string_view::npos) {
        return std::string{json.substr(1, json.size() - 2)};
    }
    Json::Reader reader;
    Json::Value value;
    try {
        if (!reader.parse(json.data(), json.data() + json.size(), value, false)) {
            // jsoncpp reads some numbers from a stream, which turns want of memory into bad input.
            throw std::bad_alloc{};
        }
        return value.asString();
    } catch (const Json::RuntimeError&) { // What jsoncpp raises without memory for a text.
        throw std::bad_alloc{};
    }
}

[[noreturn]] void raiseWrongType(std::string_view member) {
    throw std::runtime_error{"its " + std::string{member} + " is of the wrong type"};
}

} // namespace

bool JsonOutline::isRecord() const noexcept {
    return root_.kind == Kind::object || root_.isNull();
}

JsonName JsonOutline::name(Place member) const {
    const Value& value = values_[member];
    if (value.isContainer()) {
        raiseWrongType(members[member]);
    }
    JsonName name;
    if (value.kind == Kind::string) {
        decodeJsonString(textOf(value, false), name);
    }
    return name;
}

std::string JsonOutline::inside(Place member) const {
    const Value& outer = values_[member];
    const Value& inner = innerOf(member);
    const auto wanted = member == cper ? Kind::object : Kind::array;
    if (outer.kind == Kind::missing || outer.isNull()) {
        return {};
    }
    if (outer.kind != wanted || inner.isContainer()) {
        raiseWrongType(members[member]);
    }
    return inner.kind == Kind::missing ? std::string{} : decoded(inner.text);
}

/** All of a text that may be a device's name. For one that is only compared, it may be a shorter
 *  one that equals nothing it is compared with either. */
std::string_view JsonOutline::textOf(const Value& value, bool isDevice) {
    switch (value.kind) {
    case Kind::object:
        return "{}";
    case Kind::array:
        return "[]";
    case Kind::number:
        return isDevice ? value.text : "0";
    case Kind::string:
        return isDevice || value.text.size() <= longestCompared ? value.text : R"("")";
    default:
        return value.text;
    }
}

void JsonOutline::appendMember(std::string& text, std::string_view name, std::string_view value) {
    text += text.size() == 1 ? "\"" : ",\"";
    text += name;
    text += "\":";
    text += value;
}

std::string_view JsonOutline::containerText(Place place, std::string& buffer) const {
    const Value& value = values_[place];
    const Value& inner = innerOf(place);
    if (inner.kind == Kind::missing) {
        return textOf(value, false);
    }
    buffer += place == cper ? R"({"NotificationType":)" : "[";
    buffer += textOf(inner, true);
    buffer += place == cper ? "}" : "]";
    return buffer;
}

std::string JsonOutline::text() const {
    if (finding_ != Finding::json || root_.kind != Kind::object) {
        return std::string{textOf(finding_ == Finding::json ? root_ : Value{}, false)};
    }
    std::string text{"{"};
    std::string inner;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (values_[i].kind == Kind::missing) {
            continue;
        }
        inner.clear();
        appendMember(text, members[i],
                     i < messageArgs ? textOf(values_[i], false)
                                     : containerText(static_cast<Place>(i), inner));
    }
    return text + "}";
}

} // namespace tavrisk
