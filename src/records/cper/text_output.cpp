// SPDX-License-Identifier: Apache-2.0
#include "records/cper/printed.hpp"

#include <algorithm>

namespace tavrisk::cper {
namespace {

constexpr unsigned step = 2;
// Of many bytes a person sees the first.
constexpr std::size_t mostDigits = 128;

std::string inBrackets(const std::string& text, std::string_view more) {
    return more.empty() ? text : text + " (" + std::string{more} + ")";
}

/** What stands behind the label; parts go below. */
struct OneLine {
    std::string operator()(std::uint64_t value) const { return std::to_string(value); }
    std::string operator()(std::int64_t value) const { return std::to_string(value); }
    std::string operator()(const std::string& value) const { return value; }
    std::string operator()(const Choice& choice) const {
        return inBrackets(choice.name, choice.meaning) + " (" + std::to_string(choice.value) + ")";
    }
    std::string operator()(const Register& bits) const {
        std::string names;
        for (const auto name : bits.flags) {
            names += (names.empty() ? "" : ", ") + std::string{name};
        }
        const bool sayNone = bits.hasFlags && names.empty() && bits.fields.empty();
        return inBrackets(bits.value, sayNone ? "none" : names);
    }
    std::string operator()(const Guid& guid) const { return inBrackets(guid.text, guid.name); }
    std::string operator()(const Time& time) const {
        return time.text + (time.precise ? " (precise)" : "");
    }
    std::string operator()(const Raw& raw) const {
        if (raw.digits.size() <= mostDigits) {
            return raw.digits;
        }
        return raw.digits.substr(0, mostDigits) + "... (" + std::to_string(raw.digits.size() / 2) +
               " bytes)";
    }
    std::string operator()(const Object& /*object*/) const { return {}; }
    std::string operator()(const List& list) const {
        std::string text;
        for (const auto& element : list.elements) {
            if (const auto* value = as<std::string>(&element)) {
                text += (text.empty() ? "" : " ") + *value;
            }
        }
        return text;
    }
};

bool holdsSentences(const List& list) {
    return !list.elements.empty() && list.elements.front().label == "Problem";
}

void print(const Node& node, const std::string& label, unsigned indent, std::string& text);

void printAll(const Nodes& nodes, unsigned indent, std::string& text) {
    for (const auto& node : nodes) {
        print(node, std::string{node.label}, indent, text);
    }
}

void printList(const List& list, unsigned indent, std::string& text) {
    for (std::size_t i = 0; i < list.elements.size(); ++i) {
        const auto& element = list.elements[i];
        print(element, std::string{element.label} + " " + std::to_string(i + 1), indent, text);
    }
}

void print(const Node& node, const std::string& label, unsigned indent, std::string& text) {
    if (const auto* list = as<List>(&node)) {
        const bool areParts =
            !list->elements.empty() && as<std::string>(&list->elements.front()) == nullptr;
        if (list->elements.empty()) {
            return;
        }
        if (areParts || holdsSentences(*list)) {
            printList(*list, indent, text);
            return;
        }
    }
    const auto line = std::visit(OneLine{}, node.value);
    text += std::string(indent, ' ') + label + ":" + (line.empty() ? "" : " ") + line + "\n";
    if (const auto* object = as<Object>(&node)) {
        printAll(object->members, indent + step, text);
    } else if (const auto* bits = as<Register>(&node)) {
        printAll(bits->fields, indent + step, text);
    }
}

} // namespace

std::string toText(const Node& object, unsigned indent) {
    std::string text;
    if (const auto* members = as<Object>(&object)) {
        printAll(members->members, indent, text);
    }
    return text;
}

} // namespace tavrisk::cper
