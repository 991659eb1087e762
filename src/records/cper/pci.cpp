// SPDX-License-Identifier: Apache-2.0
// PCI/PCI-X bus and PCI/PCI-X component.

#include "records/cper/error_status.hpp"
#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto busErrorTypes = std::to_array<Name>({
    {0, "unknown/OEM"},
    {1, "data parity"},
    {2, "system"},
    {3, "master abort"},
    {4, "bus timeout or no device"},
    {5, "master data parity"},
    {6, "address parity"},
    {7, "command parity"},
});
constexpr auto busIdFields = std::to_array<Field>({{0, 8, "Bus"}, {8, 8, "Segment"}});
constexpr auto commandKinds = std::to_array<Name>({{0, "PCI"}, {1, "PCI-X"}});
constexpr auto commandFields = std::to_array<Field>({{56, 1, "Kind", always, commandKinds}});

constexpr auto busRows = std::to_array<Row>({
    {8, 8, "Error status", 0, bitsOf(errorStatus)},
    {16, 2, "Error type", 1, oneOf(busErrorTypes).bits(0, 8)},
    {18, 2, "Bus ID", 2, bitsOf(busIdFields)},
    {24, 8, "Bus address", 3, hex},
    {32, 8, "Bus data", 4, hex},
    {40, 8, "Bus command", 5, bitsOf(commandFields)},
    {48, 8, "Requestor ID", 6, hex},
    {56, 8, "Completer ID", 7, hex},
    {64, 8, "Target ID", 8, hex},
});
constexpr Table busTable{.rows = busRows, .size = 72, .validWidth = 8};

Described describeBus(const Node* body) {
    const auto* id = find(body, "Bus ID");
    Phrase where;
    where.add(id, "Segment", "segment")
        .add(id, "Bus", "bus")
        .inside()
        .add(body, "Bus address", "bus address");
    return {withDetails("PCI bus error", valueText(find(body, "Error type"))), where};
}

constexpr auto idRows = std::to_array<Row>({
    {0, 2, "Vendor", always, hex},
    {2, 2, "Device", always, hex},
    {4, 3, "Class code", always, hex},
    {7, 1, "Function", always, number},
    {8, 1, "Device number", always, number},
    {9, 1, "Bus", always, number},
    {10, 1, "Segment", always, number},
});
constexpr Table idTable{.rows = idRows, .size = 16};

constexpr std::int8_t memoryPairsBit = 2;
constexpr std::int8_t ioPairsBit = 3;
constexpr std::int8_t pairsBit = 4;
constexpr auto componentRows = std::to_array<Row>({
    {8, 8, "Error status", 0, bitsOf(errorStatus)},
    {16, 16, "ID info", 1, part(idTable)},
    {32, 4, "Memory pair count", memoryPairsBit, number},
    {36, 4, "I/O pair count", ioPairsBit, number},
});
constexpr auto pairsName = std::to_array<Name>({{pairsBit, "Register pairs"}});
constexpr Table componentTable{
    .rows = componentRows, .size = 40, .validWidth = 8, .moreValid = pairsName};

constexpr auto pairRows = std::to_array<Row>({
    {0, 8, "Address", always, hex},
    {8, 8, "Data", always, hex},
});
constexpr Table pairTable{.rows = pairRows, .size = 16};
constexpr Repeated pairs{"Register pairs", "Register pair", &pairTable, 16};

std::size_t addPairs(Bytes body, Nodes& nodes, Findings& findings) {
    const auto valid = numberOr0(body, 0, 8);
    const auto count = (isSet(valid, memoryPairsBit) ? numberOr0(body, 32, 4) : 0) +
                       (isSet(valid, ioPairsBit) ? numberOr0(body, 36, 4) : 0);
    if (!isSet(valid, pairsBit)) {
        return componentTable.size;
    }
    addRepeated(pairs, body, componentTable.size, count, nodes, findings);
    return componentTable.size + pairs.stride * static_cast<std::size_t>(count);
}

Described describeComponent(const Node* body) {
    const auto* id = find(body, "ID info");
    const auto* type = as<Choice>(find(find(body, "Error status"), "Error type"));
    const auto names = vendorAndDevice(id);
    Phrase where;
    where.add(pciAddress(id, "Bus", "Device number"))
        .add(names.empty() ? names : "device " + names);
    return {withDetails("PCI component error",
                        type != nullptr ? std::string{type->meaning} : std::string{}),
            where};
}

} // namespace

constexpr SectionKind pciBus{"c5753963-3b84-4095-bf78-eddad3f9c9dd", "PCI/PCI-X bus", &busTable,
                             nullptr, describeBus};
constexpr SectionKind pciComponent{"eb5e4685-ca66-4769-b6a2-26068b001326",
                                   "PCI/PCI-X component/device", &componentTable, addPairs,
                                   describeComponent};

} // namespace tavrisk::cper
