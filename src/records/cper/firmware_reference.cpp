// SPDX-License-Identifier: Apache-2.0
// Firmware error record reference.

#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto recordTypes = std::to_array<Name>({
    {0, "Itanium SAL record"},
    {1, "SoC firmware record type 1"},
    {2, "SoC firmware record type 2"},
});

constexpr When revision0{1, 1, 0, 8, always, 1U << 0U};
constexpr When type2{0, 1, 0, 8, always, 1U << 2U};
constexpr auto firmwareRows = std::to_array<Row>({
    {0, 1, "Record type", always, oneOf(recordTypes)},
    {1, 1, "Revision", always, number},
    {8, 8, "Record identifier", always, hex, revision0},
});
constexpr Table firmwareTable{.rows = firmwareRows, .size = 16};

// From revision 1 on; only records of type 2 mean anything by it.
constexpr auto guidRow = std::to_array<Row>({{16, 16, "Record GUID", always, guid, type2}});
constexpr Table guidTable{.rows = guidRow, .size = 32};

std::size_t addPayload(Bytes body, Nodes& nodes, Findings& findings) {
    std::size_t used = firmwareTable.size;
    if (numberOr0(body, 1, 1) != 0) {
        interpret(guidTable, body, nodes, findings);
        used = guidTable.size;
    }
    if (body.size() > used) {
        nodes.push_back({"Payload", Raw{hexDigits(cut(body, used))}});
    }
    return body.size();
}

Described describeRecord(const Node* body) {
    const auto* guid = as<Guid>(find(body, "Record GUID"));
    Phrase about;
    about.add(valueText(find(body, "Record type")))
        .add(body, "Record identifier", "identifier")
        .add(guid != nullptr ? "GUID " + guid->text : "");
    return {withDetails("error in a firmware record", about.text()), {}};
}

} // namespace

constexpr SectionKind firmwareReference{"81212a96-09ed-4996-9471-8d729c8e69ed",
                                        "Firmware error record reference", &firmwareTable,
                                        addPayload, describeRecord};

} // namespace tavrisk::cper
