// SPDX-License-Identifier: Apache-2.0
// CXL protocol error.

#include "records/cper/pcie.hpp"
#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto agentTypes = std::to_array<Name>({
    {0, "restricted device"},
    {1, "restricted host downstream port"},
    {2, "device"},
    {3, "logical device"},
    {4, "fabric-manager-owned logical device"},
    {5, "root port"},
    {6, "downstream switch port"},
    {7, "upstream switch port"},
});

// A restricted host downstream port has a register block and no function of its own. Serial numbers
// are of devices. An agent whose type is not known may be any.
constexpr std::uint32_t otherValues = 1U << 31U;
constexpr When isHostPort{8, 1, 0, 8, 0, 1U << 1U};
constexpr When isNoHostPort{8, 1, 0, 8, 0, ~(1U << 1U)};
constexpr When isDevice{8, 1, 0, 8, 0, otherValues | 1U << 0U | 1U << 2U | 1U << 3U | 1U << 4U};

constexpr auto functionRows = std::to_array<Row>({
    {0, 8, "Value", always, hex},
    {0, 1, "Function", always, number},
    {1, 1, "Device number", always, number},
    {2, 1, "Bus", always, number},
    {3, 2, "Segment", always, number},
});
constexpr Table functionTable{.rows = functionRows, .size = 8};
constexpr auto blockRows = std::to_array<Row>({
    {0, 8, "Value", always, hex},
    {0, 8, "RCRB base", always, hex},
});
constexpr Table blockTable{.rows = blockRows, .size = 8};

constexpr auto cxlProtocolDeviceRows = std::to_array<Row>({
    {0, 2, "Vendor", always, hex},
    {2, 2, "Device", always, hex},
    {4, 2, "Subsystem vendor", always, hex},
    {6, 2, "Subsystem", always, hex},
    {8, 2, "Class code", always, hex},
    {10, 2, "Slot", always, number.bits(3, 13)},
});
constexpr Table cxlProtocolDeviceTable{.rows = cxlProtocolDeviceRows, .size = 16};

constexpr std::int8_t dvsecBit = 5;
constexpr std::int8_t cxlProtocolLogBit = 6;
constexpr auto cxlProtocolRows = std::to_array<Row>({
    {8, 1, "Agent type", 0, oneOf(agentTypes)},
    {16, 8, "Agent address", 1, part(functionTable), isNoHostPort},
    {16, 8, "Agent address", 1, part(blockTable), isHostPort},
    {24, 16, "Device ID", 2, part(cxlProtocolDeviceTable), isNoHostPort},
    {40, 8, "Serial number", 3, hex, isDevice},
    {48, 60, "Capability structure", 4, part(pcieCapability), isNoHostPort},
    {108, 2, "DVSEC length", always, number},
    {110, 2, "Error log length", always, number},
});
constexpr auto tailNames =
    std::to_array<Name>({{dvsecBit, "CXL DVSEC"}, {cxlProtocolLogBit, "Error log"}});
constexpr Table cxlProtocolTable{
    .rows = cxlProtocolRows, .size = 116, .validWidth = 8, .moreValid = tailNames};

constexpr auto cxlUncorrectable = std::to_array<Field>({
    {0, 1, "cache data parity"},
    {1, 1, "cache address parity"},
    {2, 1, "cache byte enable parity"},
    {3, 1, "cache data ECC"},
    {4, 1, "memory data parity"},
    {5, 1, "memory address parity"},
    {6, 1, "memory byte enable parity"},
    {7, 1, "memory data ECC"},
    {8, 1, "reinit threshold"},
    {9, 1, "unrecognised encoding"},
    {10, 1, "poison received"},
    {11, 1, "receiver overflow"},
    {14, 1, "component internal"},
    {15, 1, "IDE transmit"},
    {16, 1, "IDE receive"},
});
constexpr auto cxlCorrectable = std::to_array<Field>({
    {0, 1, "cache data ECC"},
    {1, 1, "memory data ECC"},
    {2, 1, "CRC threshold"},
    {3, 1, "retry threshold"},
    {4, 1, "cache poison"},
    {5, 1, "memory poison"},
    {6, 1, "physical layer"},
});
constexpr auto control = std::to_array<Field>({{0, 6, "First error pointer"}});
constexpr auto logRows = std::to_array<Row>({
    {0, 4, "Uncorrectable status", always, bitsOf(cxlUncorrectable)},
    {4, 4, "Uncorrectable mask", always, bitsOf(cxlUncorrectable)},
    {8, 4, "Uncorrectable severity", always, bitsOf(cxlUncorrectable)},
    {12, 4, "Correctable status", always, bitsOf(cxlCorrectable)},
    {16, 4, "Correctable mask", always, bitsOf(cxlCorrectable)},
    {20, 4, "Capability and control", always, bitsOf(control)},
    {24, 64, "Header log", always, words(4)},
});
constexpr Table logTable{.rows = logRows, .size = 88};

/** The part of the given length, and a problem when it is not all there. */
Bytes takePart(Bytes body, std::size_t offset, std::size_t length, std::string_view name,
               Findings& findings) {
    const auto bytes = cut(body, offset, length);
    if (bytes.size() < length) {
        findings.problems.push_back("The " + std::string{name} + " of " + std::to_string(length) +
                                    " bytes has only " + std::to_string(bytes.size()) + ".");
    }
    return bytes;
}

std::size_t addParts(Bytes body, Nodes& nodes, Findings& findings) {
    const auto valid = numberOr0(body, 0, 8);
    const auto dvsecLength = static_cast<std::size_t>(numberOr0(body, 108, 2));
    const auto logLength = static_cast<std::size_t>(numberOr0(body, 110, 2));
    // The log lies behind the DVSEC even if that is not valid.
    const auto logOffset = cxlProtocolTable.size + dvsecLength;
    if (isSet(valid, dvsecBit)) {
        const auto dvsec =
            takePart(body, cxlProtocolTable.size, dvsecLength, "CXL DVSEC", findings);
        nodes.push_back({"CXL DVSEC", Raw{hexDigits(dvsec)}});
    }
    if (isSet(valid, cxlProtocolLogBit)) {
        const auto log = takePart(body, logOffset, logLength, "error log", findings);
        Object object;
        interpret(logTable, log, object.members, findings);
        if (log.size() > logTable.size) {
            object.members.push_back({"Further bytes", Raw{hexDigits(cut(log, logTable.size))}});
        }
        nodes.push_back({"Error log", std::move(object)});
    }
    return logOffset + logLength;
}

Described describeProtocol(const Node* body) {
    const auto* log = find(body, "Error log");
    const auto* address = find(body, "Agent address");
    const auto* device = find(body, "Device ID");
    Phrase errors;
    errors.add(flagNames(find(log, "Uncorrectable status")))
        .add(flagNames(find(log, "Correctable status")));
    const auto agent = valueText(find(body, "Agent type"));
    const auto function = pciAddress(address, "Bus", "Device number");
    const auto names = vendorAndDevice(device);
    Phrase where;
    where.add(agent.empty() || function.empty() ? agent + function : agent + " " + function)
        .add(address, "RCRB base", "RCRB base")
        .add(device, "Slot", "slot")
        .add(names.empty() ? names : "device " + names)
        .add(body, "Serial number", "serial number");
    return {withDetails("CXL protocol error", errors.text()), where};
}

} // namespace

constexpr SectionKind cxlProtocol{"80b9efb4-52b5-4de3-a777-68784b771048", "CXL protocol error",
                                  &cxlProtocolTable, addParts, describeProtocol};

} // namespace tavrisk::cper
