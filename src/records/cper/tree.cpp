// SPDX-License-Identifier: Apache-2.0
#include "records/cper/tree.hpp"

#include <algorithm>

namespace tavrisk::cper {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

constexpr char caseBit = 0x20;

} // namespace

const Node* find(const Node* node, std::string_view label) {
    const Nodes* members = nullptr;
    if (const auto* object = as<Object>(node)) {
        members = &object->members;
    } else if (const auto* bits = as<Register>(node)) {
        members = &bits->fields;
    } else {
        return nullptr;
    }
    const auto found = std::find_if(members->begin(), members->end(),
                                    [label](const Node& member) { return member.label == label; });
    return found != members->end() ? &*found : nullptr;
}

const Nodes& elements(const Node* node, std::string_view label) {
    static const Nodes none;
    const auto* list = as<List>(find(node, label));
    return list != nullptr ? list->elements : none;
}

std::string jsonName(std::string_view label) {
    std::string name;
    bool begins = false;
    for (const char c : label) {
        if (!isDigit(c) && !isLower(c) && !isUpper(c)) {
            begins = !name.empty();
        } else if (begins && isLower(c)) {
            name += static_cast<char>(c & ~caseBit);
            begins = false;
        } else {
            name += !begins && isUpper(c) ? static_cast<char>(c | caseBit) : c;
            begins = false;
        }
    }
    return name;
}

} // namespace tavrisk::cper
