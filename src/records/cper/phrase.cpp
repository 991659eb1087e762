// SPDX-License-Identifier: Apache-2.0
#include "records/cper/phrase.hpp"

#include <array>
#include <cstdio>

namespace tavrisk::cper {
namespace {

unsigned unsignedOr0(const Node* node) {
    const auto* number = as<std::uint64_t>(node);
    return number != nullptr ? static_cast<unsigned>(*number) : 0;
}

} // namespace

std::string valueText(const Node* node) {
    if (const auto* number = as<std::uint64_t>(node)) {
        return std::to_string(*number);
    }
    if (const auto* number = as<std::int64_t>(node)) {
        return std::to_string(*number);
    }
    if (const auto* text = as<std::string>(node)) {
        return *text;
    }
    if (const auto* choice = as<Choice>(node)) {
        return choice->name;
    }
    if (const auto* bits = as<Register>(node)) {
        return bits->value;
    }
    return {};
}

Phrase& Phrase::add(const std::string& part) {
    if (!part.empty()) {
        text_ += (text_.empty() ? "" : ", ") + part;
    }
    return *this;
}

Phrase& Phrase::add(const Node* node, std::string_view label, std::string_view word) {
    const auto value = valueText(find(node, label));
    return value.empty() ? *this : add(std::string{word} + " " + value);
}

std::string withDetails(std::string_view error, const std::string& about) {
    return about.empty() ? std::string{error} : std::string{error} + " (" + about + ")";
}

std::string flagNames(const Node* node) {
    Phrase names;
    if (const auto* bits = as<Register>(node)) {
        for (const auto name : bits->flags) {
            names.add(std::string{name});
        }
    }
    return names.text();
}

std::string pciAddress(const Node* node, std::string_view bus, std::string_view device) {
    if (find(node, bus) == nullptr && find(node, device) == nullptr) {
        return {};
    }
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04x:%02x:%02x.%x", unsignedOr0(find(node, "Segment")),
                  unsignedOr0(find(node, bus)), unsignedOr0(find(node, device)),
                  unsignedOr0(find(node, "Function")));
    return text.data();
}

std::string vendorAndDevice(const Node* node) {
    constexpr std::size_t prefix = 2;
    const auto vendor = valueText(find(node, "Vendor"));
    const auto device = valueText(find(node, "Device"));
    if (vendor.size() < prefix || device.size() < prefix) {
        return {};
    }
    return vendor.substr(prefix) + ":" + device.substr(prefix);
}

} // namespace tavrisk::cper
