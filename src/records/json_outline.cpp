// SPDX-License-Identifier: Apache-2.0
#include "records/json_outline.hpp"

#include <algorithm>
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

// An escaped character takes six bytes, and no text that is looked for has more than 64: a longer
// one is none of them.
constexpr std::size_t longestCompared = std::size_t{6} * 64;

} // namespace

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
    const Value& inner = values_[place == cper ? notificationType : firstArgument];
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
