// SPDX-License-Identifier: Apache-2.0
// FRU memory poison.

#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto architectureTypes = std::to_array<Name>({{0, "CPUID leaf 1 EAX"}});
constexpr auto identifierTypes = std::to_array<Name>({{0, "x86 PPIN"}});
constexpr auto hardwareTypes = std::to_array<Name>({{0, "MCA_IPID"}});
constexpr auto fruAddressTypes = std::to_array<Name>({{0, "MCA_ADDR"}});

constexpr std::int8_t entriesBit = 4;
constexpr std::int8_t listBit = 5;
constexpr auto listName = std::to_array<Name>({{listBit, "Poison list"}});
constexpr auto fruRows = std::to_array<Row>({
    {0, 4, "Checksum", always, hex},
    {12, 4, "Architecture type", 0, oneOf(architectureTypes)},
    {16, 8, "Architecture value", 1, hex},
    {24, 4, "FRU identifier type", 2, oneOf(identifierTypes)},
    {28, 8, "FRU identifier value", 3, hex},
    {36, 4, "Entries", entriesBit, number},
});
constexpr Table fruTable{
    .rows = fruRows, .size = 40, .validOffset = 4, .validWidth = 8, .moreValid = listName};

constexpr auto entryRows = std::to_array<Row>({
    {0, 8, "Time", always, number},
    {8, 4, "Hardware ID type", always, oneOf(hardwareTypes)},
    {12, 8, "Hardware ID value", always, hex},
    {20, 4, "Address type", always, oneOf(fruAddressTypes)},
    {24, 8, "Address value", always, hex},
});
constexpr Table entryTable{.rows = entryRows, .size = 32};
constexpr Repeated entries{"Poison list", "Entry", &entryTable, 32};

std::size_t addEntries(Bytes body, Nodes& nodes, Findings& findings) {
    const auto valid = numberOr0(body, 4, 8);
    if (!isSet(valid, listBit)) {
        return fruTable.size;
    }
    // Without a count, as many as there are.
    const auto room = cut(body, fruTable.size).size() / entries.stride;
    const auto count = isSet(valid, entriesBit) ? numberOr0(body, 36, 4) : room;
    addRepeated(entries, body, fruTable.size, count, nodes, findings);
    return fruTable.size + entries.stride * static_cast<std::size_t>(count);
}

Described describePoison(const Node* body) {
    Phrase where;
    where.add(body, "FRU identifier value", "FRU").inside();
    const auto& list = elements(body, "Poison list");
    if (!list.empty()) {
        where.add(&list.front(), "Address value", "first address");
    }
    Phrase about;
    about.add(body, "Entries", "entries");
    return {withDetails("poisoned memory", about.text()), where};
}

} // namespace

constexpr SectionKind fruMemoryPoison{"5e4706c1-5356-48c6-930b-52f2120a4458", "FRU memory poison",
                                      &fruTable, addEntries, describePoison};

} // namespace tavrisk::cper
