// SPDX-License-Identifier: Apache-2.0
// DMA remapping errors (DMAr): generic, Intel VT-d and AMD IOMMU. They have no validation bits.

#include "records/cper/pcie.hpp"
#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto faultReasons = std::to_array<Name>({
    {1, "domain mapping entry absent"},
    {2, "domain mapping entry invalid"},
    {3, "error reading domain mapping table"},
    {4, "reserved bit set in domain mapping entry"},
    {5, "address beyond device width"},
    {6, "invalid read or write"},
    {7, "invalid device request"},
    {8, "error reading translation table"},
    {9, "reserved bit set in translation table"},
    {10, "illegal command"},
    {11, "error reading command buffer"},
});
constexpr auto accessTypes = std::to_array<Name>({{0, "write"}, {1, "read"}});
constexpr auto addressTypes = std::to_array<Name>({
    {0, "untranslated"},
    {1, "translation request"},
});
constexpr auto architectures = std::to_array<Name>({{1, "VT-d"}, {2, "IOMMU"}});

constexpr auto genericRows = std::to_array<Row>({
    {0, 2, "Requester ID", always, bitsOf(functionFields)},
    {2, 2, "Segment", always, number},
    {4, 1, "Fault reason", always, oneOf(faultReasons)},
    {5, 1, "Access type", always, oneOf(accessTypes)},
    {6, 1, "Address type", always, oneOf(addressTypes)},
    {7, 1, "Architecture", always, oneOf(architectures)},
    {8, 8, "Device address", always, hex},
});
constexpr Table genericTable{.rows = genericRows, .size = 32};

constexpr auto faultRows = std::to_array<Row>({
    {0, 16, "Value", always, hex},
    {0, 8, "Fault information", always, hex.bits(12, 52)},
    {8, 8, "Source ID", always, hex.bits(0, 16)},
    {8, 8, "Function", always, number.bits(0, 3)},
    {8, 8, "Device number", always, number.bits(3, 5)},
    {8, 8, "Bus", always, number.bits(8, 8)},
    {8, 8, "Privileged", always, number.bits(29, 1)},
    {8, 8, "Execute", always, number.bits(30, 1)},
    {8, 8, "PASID present", always, number.bits(31, 1)},
    {8, 8, "Reason", always, hex.bits(32, 8)},
    {8, 8, "PASID", always, hex.bits(40, 20)},
    {8, 8, "Address type", always, number.bits(60, 2)},
    {8, 8, "Type", always, oneOf(accessTypes).bits(62, 1)},
    {8, 8, "Fault", always, number.bits(63, 1)},
});
constexpr Table faultTable{.rows = faultRows, .size = 16};

constexpr auto vtdRows = std::to_array<Row>({
    {0, 1, "Version register", always, hex},
    {1, 1, "Revision", always, number},
    {2, 6, "OEM ID", always, text},
    {8, 8, "Capability", always, hex},
    {16, 8, "Extended capability", always, hex},
    {24, 4, "Global command", always, hex},
    {28, 4, "Global status", always, hex},
    {32, 4, "Fault status", always, hex},
    {48, 16, "Fault record", always, part(faultTable)},
    {64, 16, "Root entry", always, hex},
    {80, 16, "Context entry", always, hex},
    {96, 8, "Page table entry level 6", always, hex},
    {104, 8, "Page table entry level 5", always, hex},
    {112, 8, "Page table entry level 4", always, hex},
    {120, 8, "Page table entry level 3", always, hex},
    {128, 8, "Page table entry level 2", always, hex},
    {136, 8, "Page table entry level 1", always, hex},
});
constexpr Table vtdTable{.rows = vtdRows, .size = 144};

constexpr auto iommuRows = std::to_array<Row>({
    {0, 1, "IOMMU revision", always, number},
    {8, 8, "Control register", always, hex},
    {16, 8, "Status register", always, hex},
    {32, 16, "Event log entry", always, hex},
    {64, 32, "Device table entry", always, hex},
    {96, 8, "Page table entry level 6", always, hex},
    {104, 8, "Page table entry level 5", always, hex},
    {112, 8, "Page table entry level 4", always, hex},
    {120, 8, "Page table entry level 3", always, hex},
    {128, 8, "Page table entry level 2", always, hex},
    {136, 8, "Page table entry level 1", always, hex},
});
constexpr Table iommuTable{.rows = iommuRows, .size = 144};

std::string functionText(const Node* id) {
    return pciAddress(id, "Bus", "Device number");
}

Described describeGeneric(const Node* body) {
    const auto* requester = find(body, "Requester ID");
    auto address = functionText(requester);
    const auto* segment = as<std::uint64_t>(find(body, "Segment"));
    constexpr std::size_t segmentDigits = 4;
    if (segment != nullptr && address.size() > segmentDigits) {
        address.replace(0, segmentDigits, hexText(*segment, 16).substr(2));
    }
    Phrase about;
    about.add(valueText(find(body, "Fault reason"))).add(valueText(find(body, "Access type")));
    Phrase where;
    where.add(address.empty() ? address : "device " + address)
        .inside()
        .add(body, "Device address", "device address");
    return {withDetails("DMA remapping error", about.text()), where};
}

Described describeVtd(const Node* body) {
    const auto* record = find(body, "Fault record");
    const auto device = functionText(record);
    Phrase about;
    about.add(record, "Reason", "reason").add(valueText(find(record, "Type")));
    Phrase where;
    where.add(device.empty() ? device : "device " + device)
        .inside()
        .add(record, "Fault information", "page");
    return {withDetails("VT-d DMA remapping error", about.text()), where};
}

Described describeIommu(const Node* body) {
    Phrase about;
    about.add(body, "Event log entry", "event");
    return {withDetails("IOMMU DMA remapping error", about.text()), {}};
}

} // namespace

constexpr SectionKind dmarGeneric{"5b51fef7-c79d-4434-8f1b-aa62de3e2c64", "DMAr generic",
                                  &genericTable, nullptr, describeGeneric};
constexpr SectionKind dmarVtd{"71761d37-32b2-45cd-a7d0-b0fedd93e8cf", "Intel VT-d DMAr", &vtdTable,
                              nullptr, describeVtd};
constexpr SectionKind dmarIommu{"036f84e1-7f37-428c-a79e-575fdfaa84ec", "AMD IOMMU DMAr",
                                &iommuTable, nullptr, describeIommu};

} // namespace tavrisk::cper
