// SPDX-License-Identifier: Apache-2.0
// PCI Express, with its capability and advanced error reporting (AER) registers.

#include "records/cper/pcie.hpp"

#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto portTypes = std::to_array<Name>({
    {0, "PCIe endpoint"},
    {1, "legacy PCI endpoint"},
    {4, "root port"},
    {5, "upstream switch port"},
    {6, "downstream switch port"},
    {7, "PCIe to PCI/PCI-X bridge"},
    {8, "PCI/PCI-X to PCIe bridge"},
    {9, "root complex integrated endpoint"},
    {10, "root complex event collector"},
});

constexpr auto capabilityFields = std::to_array<Field>({
    {0, 4, "Version"},
    {4, 4, "Port type", always, portTypes},
    {8, 1, "slot implemented"},
});
constexpr auto deviceStatusFields = std::to_array<Field>({
    {0, 1, "correctable error"},
    {1, 1, "non-fatal error"},
    {2, 1, "fatal error"},
    {3, 1, "unsupported request"},
});
constexpr auto linkStatusFields = std::to_array<Field>({{0, 4, "Speed"}, {4, 6, "Width"}});

// What version 1 of the capability does not have: padding.
constexpr When notVersion1{2, 2, 0, 4, always, ~(1U << 1U)};
constexpr auto capabilityRows = std::to_array<Row>({
    {0, 1, "ID", always, hex},
    {2, 2, "Capabilities", always, bitsOf(capabilityFields)},
    {4, 4, "Device capabilities", always, hex},
    {8, 2, "Device control", always, hex},
    {10, 2, "Device status", always, bitsOf(deviceStatusFields)},
    {12, 4, "Link capabilities", always, hex},
    {16, 2, "Link control", always, hex},
    {18, 2, "Link status", always, bitsOf(linkStatusFields)},
    {20, 4, "Slot capabilities", always, hex},
    {24, 2, "Slot control", always, hex},
    {26, 2, "Slot status", always, hex},
    {28, 2, "Root control", always, hex},
    {30, 2, "Root capabilities", always, hex},
    {32, 4, "Root status", always, hex},
    {36, 4, "Device capabilities 2", always, hex, notVersion1},
    {40, 2, "Device control 2", always, hex, notVersion1},
    {42, 2, "Device status 2", always, hex, notVersion1},
    {44, 4, "Link capabilities 2", always, hex, notVersion1},
    {48, 2, "Link control 2", always, hex, notVersion1},
    {50, 2, "Link status 2", always, hex, notVersion1},
    {52, 4, "Slot capabilities 2", always, hex, notVersion1},
    {56, 2, "Slot control 2", always, hex, notVersion1},
    {58, 2, "Slot status 2", always, hex, notVersion1},
});

constexpr auto uncorrectable = std::to_array<Field>({
    {4, 1, "data link protocol"},
    {5, 1, "surprise down"},
    {12, 1, "poisoned TLP"},
    {13, 1, "flow control protocol"},
    {14, 1, "completion timeout"},
    {15, 1, "completer abort"},
    {16, 1, "unexpected completion"},
    {17, 1, "receiver overflow"},
    {18, 1, "malformed TLP"},
    {19, 1, "ECRC"},
    {20, 1, "unsupported request"},
    {21, 1, "ACS violation"},
    {22, 1, "internal"},
    {23, 1, "MC blocked TLP"},
    {24, 1, "AtomicOp egress blocked"},
    {25, 1, "TLP prefix blocked"},
    {26, 1, "poisoned TLP egress blocked"},
    {27, 1, "DMWr egress blocked"},
    {28, 1, "IDE check failed"},
    {29, 1, "misrouted IDE TLP"},
    {30, 1, "PCRC check failed"},
    {31, 1, "TLP translation egress blocked"},
});
constexpr auto correctable = std::to_array<Field>({
    {0, 1, "receiver"},
    {6, 1, "bad TLP"},
    {7, 1, "bad DLLP"},
    {8, 1, "replay number rollover"},
    {12, 1, "replay timer timeout"},
    {13, 1, "advisory non-fatal"},
    {14, 1, "corrected internal"},
    {15, 1, "header log overflow"},
});
constexpr auto aerHeader = std::to_array<Field>({
    {0, 16, "ID", always, {}, Kind::hex},
    {16, 4, "Version"},
    {20, 12, "Next offset", always, {}, Kind::hex},
});
constexpr auto aerControl = std::to_array<Field>({
    {0, 5, "First error pointer"},
    {5, 1, "ECRC generation capable"},
    {6, 1, "ECRC generation enable"},
    {7, 1, "ECRC check capable"},
    {8, 1, "ECRC check enable"},
    {9, 1, "multiple header capable"},
    {10, 1, "multiple header enable"},
    {11, 1, "TLP prefix log present"},
    {12, 1, "completion timeout log capable"},
    {13, 5, "Header log size"},
    {18, 1, "logged in flit mode"},
    {19, 5, "Logged TLP size"},
});
constexpr auto rootCommand = std::to_array<Field>({
    {0, 1, "correctable reporting enable"},
    {1, 1, "non-fatal reporting enable"},
    {2, 1, "fatal reporting enable"},
});
constexpr auto rootStatus = std::to_array<Field>({
    {0, 1, "ERR_COR received"},
    {1, 1, "several ERR_COR received"},
    {2, 1, "ERR_FATAL/NONFATAL received"},
    {3, 1, "several ERR_FATAL/NONFATAL received"},
    {4, 1, "first uncorrectable was fatal"},
    {5, 1, "non-fatal received"},
    {6, 1, "fatal received"},
    {27, 5, "Interrupt message number"},
});
constexpr auto errorSourceRows = std::to_array<Row>({
    {0, 4, "Value", always, hex},
    {0, 2, "Correctable source ID", always, bitsOf(functionFields)},
    {2, 2, "Fatal/non-fatal source ID", always, bitsOf(functionFields)},
});
constexpr Table errorSource{.rows = errorSourceRows, .size = 4};

constexpr auto aerRows = std::to_array<Row>({
    {0, 4, "Header", always, bitsOf(aerHeader)},
    {4, 4, "Uncorrectable status", always, bitsOf(uncorrectable)},
    {8, 4, "Uncorrectable mask", always, bitsOf(uncorrectable)},
    {12, 4, "Uncorrectable severity", always, bitsOf(uncorrectable)},
    {16, 4, "Correctable status", always, bitsOf(correctable)},
    {20, 4, "Correctable mask", always, bitsOf(correctable)},
    {24, 4, "Capabilities and control", always, bitsOf(aerControl)},
    {28, 16, "Header log", always, words(4)},
    {44, 4, "Root error command", always, bitsOf(rootCommand)},
    {48, 4, "Root error status", always, bitsOf(rootStatus)},
    {52, 4, "Error source", always, part(errorSource)},
    {56, 16, "TLP prefix log", always, words(4)},
});
constexpr Table aer{.rows = aerRows, .size = 96};

constexpr auto commandRows = std::to_array<Row>({
    {0, 2, "Command", always, hex},
    {2, 2, "Status", always, hex},
});
constexpr Table commandTable{.rows = commandRows, .size = 4};

constexpr auto bridgeRows = std::to_array<Row>({
    {0, 2, "Secondary status", always, hex},
    {2, 2, "Bridge control", always, hex},
});
constexpr Table bridgeTable{.rows = bridgeRows, .size = 4};

constexpr auto deviceRows = std::to_array<Row>({
    {0, 2, "Vendor", always, hex},
    {2, 2, "Device", always, hex},
    {4, 3, "Class code", always, hex},
    {7, 1, "Function", always, number},
    {8, 1, "Device number", always, number},
    {9, 2, "Segment", always, number},
    {11, 1, "Primary bus", always, number},
    {12, 1, "Secondary bus", always, number},
    {13, 2, "Slot", always, number.bits(3, 13)},
});
constexpr Table deviceTable{.rows = deviceRows, .size = 16};

constexpr std::int8_t deviceBit = 3;
constexpr std::int8_t baseBit = 8;
constexpr std::int8_t upperBaseBit = 9;
constexpr auto pcieRows = std::to_array<Row>({
    {8, 4, "Port type", 0, oneOf(portTypes)},
    {12, 2, "Version", 1, revision},
    {16, 4, "Command/status", 2, part(commandTable)},
    {24, 16, "Device ID", deviceBit, part(deviceTable)},
    {40, 8, "Serial number", 4, hex},
    {48, 4, "Bridge control/status", 5, part(bridgeTable)},
    {52, 60, "Capability structure", 6, part(pcieCapability)},
    {112, 96, "AER info", 7, part(aer)},
});
constexpr auto baseNames = std::to_array<Name>({
    {baseBit, "RCRB base"},
    {upperBaseBit, "RCRB base, upper half"},
});
constexpr Table pcieTable{.rows = pcieRows, .size = 208, .validWidth = 8, .moreValid = baseNames};

/** Of a port without a function of its own: its lower half stands within the device ID. */
std::size_t addRegisterBlock(Bytes body, Nodes& nodes, Findings& findings) {
    const auto valid = numberOr0(body, 0, 8);
    if (isSet(valid, baseBit)) {
        const auto low = numberAt(body, 31, 4);
        const auto high = isSet(valid, upperBaseBit) ? numberAt(body, 20, 4) : 0;
        if (low && high) {
            nodes.push_back({"RCRB base", hexText(*low | *high << 32U, 64)});
        } else {
            findings.missing.emplace_back("RCRB base");
        }
        if (isSet(valid, deviceBit)) {
            findings.problems.emplace_back(
                "Both a device ID and an RCRB base are said to be at the same place.");
        }
    }
    return pcieTable.size;
}

Described describePcie(const Node* body) {
    const auto* device = find(body, "Device ID");
    const auto* registers = find(body, "AER info");
    Phrase errors;
    errors.add(flagNames(find(registers, "Uncorrectable status")))
        .add(flagNames(find(registers, "Correctable status")));
    Phrase where;
    const auto port = valueText(find(body, "Port type"));
    const auto address = pciAddress(device, "Primary bus", "Device number");
    where.add(port.empty() || address.empty() ? port + address : port + " " + address);
    const auto* slot = as<std::uint64_t>(find(device, "Slot"));
    if (slot != nullptr && *slot != 0) {
        where.add(device, "Slot", "slot");
    }
    const auto names = vendorAndDevice(device);
    where.add(names.empty() ? names : "device " + names).add(body, "RCRB base", "RCRB base");
    return {withDetails("PCI Express error", errors.text()), where};
}

} // namespace

constexpr Table pcieCapability{.rows = capabilityRows, .size = 60};

constexpr SectionKind pcie{"d995e954-bbc1-430f-ad91-b44dcb3c6f35", "PCI Express", &pcieTable,
                           addRegisterBlock, describePcie};

} // namespace tavrisk::cper
