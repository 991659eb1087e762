// SPDX-License-Identifier: Apache-2.0
// Platform memory and platform memory 2.

#include "records/cper/error_status.hpp"
#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto memoryErrorTypes = std::to_array<Name>({
    {0, "unknown"},
    {1, "no error"},
    {2, "single-bit ECC"},
    {3, "multi-bit ECC"},
    {4, "single-symbol chipkill ECC"},
    {5, "multi-symbol chipkill ECC"},
    {6, "master abort"},
    {7, "target abort"},
    {8, "parity"},
    {9, "watchdog timeout"},
    {10, "invalid address"},
    {11, "mirror broken"},
    {12, "memory sparing"},
    {13, "scrub corrected"},
    {14, "scrub uncorrected"},
    {15, "physical memory map-out event"},
});

constexpr unsigned plainRowBit = 8;
constexpr unsigned extendedRowBit = 18;

// The plain row is shown by the table only without the extended one.
constexpr When noExtendedRow{0, 8, extendedRowBit, 1, always, 1U << 0U};
constexpr auto extendedRowName = std::to_array<Name>({{extendedRowBit, "Extended"}});

constexpr auto memoryRows = std::to_array<Row>({
    {8, 8, "Error status", 0, bitsOf(errorStatus)},
    {16, 8, "Physical address", 1, hex},
    {24, 8, "Physical address mask", 2, hex},
    {32, 2, "Node", 3, number},
    {34, 2, "Card", 4, number},
    {36, 2, "Module", 5, number},
    {38, 2, "Bank", 6, number},
    {39, 1, "Bank group", 19, number},
    {38, 1, "Bank address", 20, number},
    {40, 2, "Device", 7, number},
    {42, 2, "Row", plainRowBit, number, noExtendedRow},
    {44, 2, "Column", 9, number},
    {46, 2, "Bit position", 10, number},
    {48, 8, "Requestor ID", 11, hex},
    {56, 8, "Responder ID", 12, hex},
    {64, 8, "Target ID", 13, hex},
    {72, 1, "Memory error type", 14, oneOf(memoryErrorTypes)},
    {73, 1, "Chip identification", 21, number.bits(5, 3)},
    {74, 2, "Rank number", 15, number},
    {76, 2, "Card handle", 16, hex},
    {78, 2, "Module handle", 17, hex},
});
// The short form is that of UEFI before 2.3.
constexpr Table memoryTable{
    .rows = memoryRows, .size = 80, .validWidth = 8, .moreValid = extendedRowName, .shortSize = 73};

/** The row of 18 bits: its upper two stand apart. */
std::size_t addExtendedRow(Bytes body, Nodes& nodes, Findings& findings) {
    const auto valid = numberOr0(body, 0, 8);
    if (isSet(valid, extendedRowBit)) {
        const auto low = numberAt(body, 42, 2);
        const auto high = numberAt(body, 73, 1);
        if (low && high) {
            nodes.push_back({"Row", *low | slice(*high, 0, 2) << 16U});
        } else {
            findings.missing.emplace_back("Row");
        }
        if (isSet(valid, plainRowBit)) {
            findings.problems.emplace_back("The row is said to be both plain and extended; it is "
                                           "taken for the extended one.");
        }
    }
    return memoryTable.size;
}

constexpr auto memory2Statuses = std::to_array<Name>({{0, "corrected"}, {1, "uncorrected"}});

// Not the numbers of platform memory: they differ from bit 10 on.
constexpr auto memory2Rows = std::to_array<Row>({
    {8, 8, "Error status", 0, bitsOf(errorStatus)},
    {16, 8, "Physical address", 1, hex},
    {24, 8, "Physical address mask", 2, hex},
    {32, 2, "Node", 3, number},
    {34, 2, "Card", 4, number},
    {36, 2, "Module", 5, number},
    {38, 2, "Bank", 6, number},
    {39, 1, "Bank group", 20, number},
    {38, 1, "Bank address", 21, number},
    {40, 4, "Device", 7, number},
    {44, 4, "Row", 8, number},
    {48, 4, "Column", 9, number},
    {52, 4, "Rank", 10, number},
    {56, 4, "Bit position", 11, number},
    {60, 1, "Chip identification", 12, number},
    {61, 1, "Memory error type", 13, oneOf(memoryErrorTypes)},
    {62, 1, "Status", 14, oneOf(memory2Statuses).bits(0, 1)},
    {64, 8, "Requestor ID", 15, hex},
    {72, 8, "Responder ID", 16, hex},
    {80, 8, "Target ID", 17, hex},
    {88, 4, "Card handle", 18, hex},
    {92, 4, "Module handle", 19, hex},
});
constexpr Table memory2Table{.rows = memory2Rows, .size = 96, .validWidth = 8};

std::string errorText(const Node* body) {
    const auto* type = as<Choice>(find(body, "Memory error type"));
    const auto* status = as<Choice>(find(find(body, "Error status"), "Error type"));
    if (type == nullptr || type->value == 0) {
        return withDetails("memory error",
                           status != nullptr ? std::string{status->meaning} : std::string{});
    }
    const bool isKindOfError = (type->value >= 2 && type->value <= 5) || type->value == 8;
    return isKindOfError ? type->name + " error" : withDetails("memory error", type->name);
}

std::string rowText(const Node* body) {
    const auto* row = as<std::uint64_t>(find(body, "Row"));
    if (row == nullptr) {
        return {};
    }
    const unsigned bits = *row > 0xffff ? 32 : 16;
    return "row " + hexText(*row, bits);
}

Described describeMemory(const Node* body) {
    Phrase where;
    where.add(body, "Node", "node")
        .add(body, "Card", "card")
        .add(body, "Module", "module")
        .inside()
        .add(body, "Rank number", "rank")
        .add(body, "Rank", "rank")
        .add(body, "Bank", "bank")
        .add(body, "Bank group", "bank group")
        .add(body, "Bank address", "bank address")
        .add(body, "Device", "device")
        .add(body, "Chip identification", "chip")
        .add(rowText(body))
        .add(body, "Column", "column")
        .add(body, "Bit position", "bit")
        .add(body, "Physical address", "physical address");
    return {errorText(body), where};
}

} // namespace

constexpr SectionKind memory{"a5bc1114-6f64-4ede-b863-3e83ed7c83b1", "Platform memory",
                             &memoryTable, addExtendedRow, describeMemory};
constexpr SectionKind memory2{"61ec04fc-48e6-d813-25c9-8daa44750b12", "Platform memory 2",
                              &memory2Table, nullptr, describeMemory};

} // namespace tavrisk::cper
