// SPDX-License-Identifier: Apache-2.0
#include "records/cper/phrase.hpp"
#include "records/cper/record.hpp"
#include "records/cper/section_kind.hpp"

#include <algorithm>
#include <array>

namespace tavrisk::cper {
namespace {

std::string severityWord(const Node* severity) {
    const auto* choice = as<Choice>(severity);
    constexpr std::array<std::string_view, 4> words{"Recoverable", "Fatal", "Corrected",
                                                    "Informational"};
    if (choice == nullptr) {
        return "Unclassified";
    }
    return choice->value < words.size() ? std::string{words.at(choice->value)}
                                        : "Severity " + std::to_string(choice->value);
}

/** Which section speaks for the record: the primary one, or else the worst; rank of one. */
int rank(const Node& section) {
    const auto* descriptor = find(&section, "Descriptor");
    const auto* flags = as<Register>(find(descriptor, "Flags"));
    const bool isPrimary = flags != nullptr && std::find(flags->flags.begin(), flags->flags.end(),
                                                         "primary") != flags->flags.end();
    const auto* severity = as<Choice>(find(descriptor, "Section severity"));
    constexpr std::array<int, 4> badness{3, 4, 2, 1};
    constexpr int primary = 10;
    const int worse =
        severity != nullptr && severity->value < badness.size() ? badness.at(severity->value) : 0;
    return (isPrimary ? primary : 0) + worse;
}

Described describe(const Node& section) {
    const auto* type = as<Guid>(find(find(&section, "Descriptor"), "Section type"));
    if (type == nullptr) {
        return {"error", {}};
    }
    const auto* kind = findSectionKind(type->text);
    const auto* body = find(&section, "Body");
    if (kind != nullptr && kind->describe != nullptr && body != nullptr) {
        return kind->describe(body);
    }
    return {type->name.empty() ? "error of the unknown section type " + type->text
                               : std::string{type->name} + " error",
            {}};
}

Nodes::const_iterator worst(const Nodes& sections) {
    return std::max_element(sections.begin(), sections.end(),
                            [](const Node& a, const Node& b) { return rank(a) < rank(b); });
}

std::string withoutSections(const Node& record) {
    const auto* header = find(&record, "Header");
    const auto* type = as<Guid>(find(header, "Notification type"));
    auto text = severityWord(find(header, "Error severity")) + " error record without sections";
    if (type != nullptr) {
        text +=
            ", notification type " + (type->name.empty() ? type->text : std::string{type->name});
    }
    return text;
}

} // namespace

std::string sentence(const Node& record) {
    const auto& sections = elements(&record, "Sections");
    if (sections.empty()) {
        return withoutSections(record);
    }
    const auto chosen = worst(sections);
    const auto* descriptor = find(&*chosen, "Descriptor");
    const auto described = describe(*chosen);
    auto text = severityWord(find(descriptor, "Section severity")) + " " + described.what;
    if (!described.where.text().empty()) {
        text += " at " + described.where.text();
    }
    const auto fru = valueText(find(descriptor, "FRU text"));
    if (!fru.empty()) {
        text += "; FRU \"" + fru + "\"";
    }
    if (sections.size() > 1) {
        text += "; section " + std::to_string(chosen - sections.begin() + 1) + " of " +
                std::to_string(sections.size());
    }
    return text;
}

std::string part(const Node& record) {
    const auto& sections = elements(&record, "Sections");
    if (sections.empty()) {
        return {};
    }
    const auto& section = *worst(sections);
    return Phrase{}
        .add(valueText(find(find(&section, "Descriptor"), "FRU text")))
        .add(describe(section).where.part())
        .text();
}

} // namespace tavrisk::cper
