// SPDX-License-Identifier: Apache-2.0
// CXL component events. Behind a header of UEFI's they hold an event record of CXL's without its
// first 16 bytes; the tables of those count from where the whole record would begin.

#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto cxlEventDeviceRows = std::to_array<Row>({
    {0, 2, "Vendor", always, hex},
    {2, 2, "Device", always, hex},
    {4, 1, "Function", always, number},
    {5, 1, "Device number", always, number},
    {6, 1, "Bus", always, number},
    {7, 2, "Segment", always, number},
    {9, 2, "Slot", always, number.bits(3, 13)},
});
constexpr Table cxlEventDeviceTable{.rows = cxlEventDeviceRows, .size = 12};

constexpr std::int8_t cxlEventLogBit = 2;
constexpr auto cxlEventRows = std::to_array<Row>({
    {0, 4, "Length", always, number},
    {12, 12, "Device ID", 0, part(cxlEventDeviceTable)},
    {24, 8, "Serial number", 1, hex},
});
constexpr auto cxlEventLogName = std::to_array<Name>({{cxlEventLogBit, "Event log"}});
constexpr Table cxlEventTable{.rows = cxlEventRows,
                              .size = 32,
                              .validOffset = 4,
                              .validWidth = 8,
                              .moreValid = cxlEventLogName};
constexpr std::size_t shift = 16;

constexpr auto eventSeverities = std::to_array<Name>({
    {0, "informational"},
    {1, "warning"},
    {2, "failure"},
    {3, "fatal"},
});
constexpr auto eventFlags = std::to_array<Field>({
    {0, 2, "Severity", always, eventSeverities},
    {2, 1, "permanent"},
    {3, 1, "maintenance needed"},
    {4, 1, "performance degraded"},
    {5, 1, "replace hardware"},
    {6, 1, "subclass valid"},
});
constexpr When hasSubclass{0x11, 1, 6, 1, always, 1U << 1U};
constexpr auto commonRows = std::to_array<Row>({
    {0x10, 1, "Record length", always, number},
    {0x11, 3, "Flags", always, bitsOf(eventFlags)},
    {0x14, 2, "Handle", always, hex},
    {0x16, 2, "Related handle", always, hex},
    {0x18, 8, "Timestamp", always, nanoseconds},
    {0x20, 1, "Maintenance class", always, number},
    {0x21, 1, "Maintenance subclass", always, number, hasSubclass},
});
constexpr Table commonTable{.rows = commonRows, .size = 0x30};

constexpr auto addressFields = std::to_array<Field>({
    {0, 1, "volatile"},
    {1, 1, "not repairable"},
    {6, 58, "Address", always, {}, Kind::bytes},
});
constexpr auto descriptorFields = std::to_array<Field>({
    {0, 1, "uncorrectable"},
    {1, 1, "threshold"},
    {2, 1, "poison list overflow"},
});
constexpr auto mediaTypes = std::to_array<Name>({
    {0, "ECC"},
    {1, "invalid address"},
    {2, "data path"},
    {3, "TE state"},
    {4, "scrub ECC"},
    {5, "counter expired"},
    {6, "CKID"},
});
// Not the order of the general media event.
constexpr auto dramTypes = std::to_array<Name>({
    {0, "ECC"},
    {1, "scrub ECC"},
    {2, "invalid address"},
    {3, "data path"},
    {4, "TE state"},
    {5, "counter expired"},
    {6, "CKID"},
});
constexpr auto transactions = std::to_array<Name>({
    {0, "unknown"},
    {1, "host read"},
    {2, "host write"},
    {3, "host scan"},
    {4, "inject poison"},
    {5, "patrol scrub"},
    {6, "management"},
    {7, "error check scrub"},
    {8, "initialisation"},
});

constexpr auto mediaRows = std::to_array<Row>({
    {0x30, 8, "Device physical address", always, bitsOf(addressFields)},
    {0x38, 1, "Descriptor", always, bitsOf(descriptorFields)},
    {0x39, 1, "Type", always, oneOf(mediaTypes)},
    {0x3a, 1, "Transaction", always, oneOf(transactions)},
    {0x3d, 1, "Channel", 0, number},
    {0x3e, 1, "Rank", 1, number},
    {0x3f, 3, "Device mask", 2, hex},
    {0x42, 16, "Component ID", 3, bytes},
    {0x52, 1, "Threshold flags", always, hex},
    {0x53, 3, "Corrected count", always, number},
    {0x56, 1, "Sub-type", always, number},
});
constexpr auto mediaValid = std::to_array<Name>({{4, "Component is PLDM"}});
constexpr Table mediaTable{.rows = mediaRows,
                           .size = 0x80,
                           .validOffset = 0x3b,
                           .validWidth = 2,
                           .validLabel = "Valid",
                           .moreValid = mediaValid};

constexpr auto dramRows = std::to_array<Row>({
    {0x30, 8, "Device physical address", always, bitsOf(addressFields)},
    {0x38, 1, "Descriptor", always, bitsOf(descriptorFields)},
    {0x39, 1, "Type", always, oneOf(dramTypes)},
    {0x3a, 1, "Transaction", always, oneOf(transactions)},
    {0x3d, 1, "Channel", 0, number},
    {0x3e, 1, "Rank", 1, number},
    {0x3f, 3, "Nibble mask", 2, hex},
    {0x42, 1, "Bank group", 3, number},
    {0x43, 1, "Bank", 4, number},
    {0x44, 3, "Row", 5, number},
    {0x47, 2, "Column", 6, number},
    {0x49, 32, "Correction mask", 7, words(8)},
    {0x69, 16, "Component ID", 8, bytes},
    {0x79, 1, "Sub-channel", 10, number},
    {0x7a, 1, "Threshold flags", always, hex},
    {0x7b, 3, "Corrected count", always, number},
    {0x7e, 1, "Sub-type", always, number},
});
constexpr auto dramValid = std::to_array<Name>({{9, "Component is PLDM"}});
constexpr Table dramTable{.rows = dramRows,
                          .size = 0x80,
                          .validOffset = 0x3b,
                          .validWidth = 2,
                          .validLabel = "Valid",
                          .moreValid = dramValid};

constexpr auto moduleTypes = std::to_array<Name>({
    {0, "health status"},
    {1, "media status"},
    {2, "life used"},
    {3, "temperature"},
    {4, "data path"},
    {5, "label storage"},
    {6, "sideband bus"},
    {7, "media FRU"},
    {8, "power management"},
});
constexpr auto healthFields = std::to_array<Field>({
    {0, 1, "maintenance"},
    {1, 1, "degraded"},
    {2, 1, "replace"},
});
constexpr auto healthRows = std::to_array<Row>({
    {0, 1, "Health status", always, bitsOf(healthFields)},
    {1, 1, "Media status", always, number},
    {2, 1, "Additional status", always, hex},
    {3, 1, "Life used", always, number},
    {4, 2, "Temperature", always, signedNumber},
    {6, 4, "Dirty shutdowns", always, number},
    {10, 4, "Corrected volatile", always, number},
    {14, 4, "Corrected persistent", always, number},
});
constexpr Table healthTable{.rows = healthRows, .size = 18};
constexpr auto moduleRows = std::to_array<Row>({
    {0x30, 1, "Type", always, oneOf(moduleTypes)},
    {0x31, 18, "Health info", always, part(healthTable)},
    {0x45, 16, "Component ID", 0, bytes},
    {0x55, 1, "Sub-type", always, number},
});
constexpr auto moduleValid = std::to_array<Name>({{1, "Component is PLDM"}});
constexpr Table moduleTable{.rows = moduleRows,
                            .size = 0x80,
                            .validOffset = 0x43,
                            .validWidth = 2,
                            .validLabel = "Valid",
                            .moreValid = moduleValid};

constexpr auto physicalSwitchTypes = std::to_array<Name>({{0, "link state"}, {1, "slot status"}});
constexpr auto physicalSwitchRows = std::to_array<Row>({
    {0x30, 1, "Port", always, number},
    {0x31, 1, "Type", always, oneOf(physicalSwitchTypes)},
    {0x32, 2, "Slot status", always, hex},
    {0x35, 1, "Port state", always, number},
    {0x36, 1, "Device mode", always, hex},
    {0x38, 1, "Device type", always, hex},
    {0x39, 1, "CXL modes", always, hex},
    {0x3a, 5, "Link width/speed", always, bytes},
    {0x3f, 1, "LTSSM", always, number},
    {0x40, 1, "Lane", always, number},
    {0x41, 2, "Link flags", always, hex},
});
constexpr Table physicalSwitchTable{.rows = physicalSwitchRows, .size = 0x80};

constexpr auto virtualSwitchTypes = std::to_array<Name>({
    {0, "binding"},
    {1, "secondary bus reset"},
    {2, "link control"},
    {3, "slot control"},
});
constexpr auto virtualSwitchRows = std::to_array<Row>({
    {0x30, 1, "VCS", always, number},
    {0x31, 1, "vPPB", always, number},
    {0x32, 1, "Type", always, oneOf(virtualSwitchTypes)},
    {0x33, 1, "Binding status", always, number},
    {0x34, 1, "Port", always, number},
    {0x35, 1, "LD", always, number},
    {0x36, 2, "Link control", always, hex},
    {0x38, 2, "Slot control", always, hex},
});
constexpr Table virtualSwitchTable{.rows = virtualSwitchRows, .size = 0x80};

constexpr auto mldPortTypes = std::to_array<Name>({
    {0, "correctable message"},
    {1, "non-fatal message"},
    {2, "fatal message"},
});
constexpr auto mldPortRows = std::to_array<Row>({
    {0x30, 1, "Type", always, oneOf(mldPortTypes)},
    {0x31, 1, "Port", always, number},
    {0x34, 8, "Message", always, hex},
});
constexpr Table mldPortTable{.rows = mldPortRows, .size = 0x80};

/** The event record, of which only the common part is known without a table for the rest. */
std::size_t addEvent(Bytes body, const Table* event, Nodes& nodes, Findings& findings) {
    body = upToStated(body, numberOr0(body, 0, 4), cxlEventTable.size, findings);
    if (!isSet(numberOr0(body, 4, 8), cxlEventLogBit)) {
        return cxlEventTable.size;
    }
    const auto record = cut(body, shift);
    Object object;
    interpret(commonTable, record, object.members, findings);
    if (event != nullptr) {
        interpret(*event, record, object.members, findings);
    } else if (record.size() > commonTable.size) {
        object.members.push_back({"Data", Raw{hexDigits(cut(record, commonTable.size))}});
    }
    nodes.push_back({"Event log", std::move(object)});
    return event != nullptr ? shift + event->size : body.size();
}

template <const Table* event>
std::size_t addEventOf(Bytes body, Nodes& nodes, Findings& findings) {
    return addEvent(body, event, nodes, findings);
}

std::string addressText(const Node* log) {
    const auto address = valueText(find(find(log, "Device physical address"), "Address"));
    return address.empty() ? address : "device physical address " + address;
}

Described describeEvent(const Node* body) {
    const auto* device = find(body, "Device ID");
    const auto* log = find(body, "Event log");
    Phrase about;
    about.add(valueText(find(log, "Type")))
        .add(flagNames(find(log, "Descriptor")))
        .add(valueText(find(log, "Transaction")));
    const auto function = pciAddress(device, "Bus", "Device number");
    const auto names = vendorAndDevice(device);
    Phrase where;
    where.add(function.empty() ? function : "device " + function)
        .add(names)
        .add(body, "Serial number", "serial number")
        .inside()
        .add(log, "Port", "port")
        .add(log, "VCS", "virtual switch")
        .add(log, "Channel", "channel")
        .add(log, "Rank", "rank")
        .add(log, "Bank group", "bank group")
        .add(log, "Bank", "bank")
        .add(log, "Row", "row")
        .add(log, "Column", "column")
        .add(addressText(log));
    return {about.text(), where};
}

template <const SectionKind* kind>
Described describeEventOf(const Node* body) {
    auto described = describeEvent(body);
    std::string name{kind->name.substr(kind->name.find(": ") + 2)};
    described.what = withDetails("CXL " + name + " event", described.what);
    return described;
}

} // namespace

constexpr SectionKind cxlGeneralMedia{"fbcd0a77-c260-417f-85a9-088b1621eba6",
                                      "CXL component event: general media", &cxlEventTable,
                                      addEventOf<&mediaTable>, describeEventOf<&cxlGeneralMedia>};
constexpr SectionKind cxlDram{"601dcbb3-9c06-4eab-b8af-4e9bfb5c9624", "CXL component event: DRAM",
                              &cxlEventTable, addEventOf<&dramTable>, describeEventOf<&cxlDram>};
constexpr SectionKind cxlMemoryModule{"fe927475-dd59-4339-a586-79bab113b774",
                                      "CXL component event: memory module", &cxlEventTable,
                                      addEventOf<&moduleTable>, describeEventOf<&cxlMemoryModule>};
constexpr SectionKind cxlPhysicalSwitch{
    "77cf9271-9c02-470b-9fe4-bc7b75f2da97", "CXL component event: physical switch", &cxlEventTable,
    addEventOf<&physicalSwitchTable>, describeEventOf<&cxlPhysicalSwitch>};
constexpr SectionKind cxlVirtualSwitch{
    "40d26425-3396-4c4d-a5da-3d47263af425", "CXL component event: virtual switch", &cxlEventTable,
    addEventOf<&virtualSwitchTable>, describeEventOf<&cxlVirtualSwitch>};
constexpr SectionKind cxlMldPort{"8dc44363-0c96-4710-b7bf-04bb99534c3f",
                                 "CXL component event: MLD port", &cxlEventTable,
                                 addEventOf<&mldPortTable>, describeEventOf<&cxlMldPort>};
constexpr SectionKind cxlMemorySparing{"e71f3a40-2d29-4092-8a39-4d1c966c7c65",
                                       "CXL component event: memory sparing", &cxlEventTable,
                                       addEventOf<nullptr>, describeEventOf<&cxlMemorySparing>};
constexpr SectionKind cxlDynamicCapacity{"ca95afa7-f183-4018-8c2f-95268e101a2a",
                                         "CXL component event: dynamic capacity", &cxlEventTable,
                                         addEventOf<nullptr>, describeEventOf<&cxlDynamicCapacity>};

} // namespace tavrisk::cper
