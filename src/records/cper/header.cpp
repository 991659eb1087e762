// SPDX-License-Identifier: Apache-2.0
// Record header and section descriptor.

#include "records/cper/header.hpp"

#include <array>

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto severities = std::to_array<Name>({
    {0, "recoverable"},
    {1, "fatal"},
    {2, "corrected"},
    {3, "informational"},
});

constexpr auto notificationTypes = std::to_array<KnownGuid>({
    {"2dce8bb1-bdd7-450e-b9ad-9cf4ebd4f890", "Corrected Machine Check", "CMC"},
    {"4e292f96-d843-4a55-a8c2-d481f27ebeee", "Corrected Platform Error", "CPE"},
    {"e8f56ffe-919c-4cc5-ba88-65abe14913bb", "Machine Check Exception", "MCE"},
    {"cf93c01f-1a16-4dfc-b8bc-9c4daf67c104", "PCI Express Error", "PCIe"},
    {"cc5263e8-9308-454a-89d0-340bd39bc98e", "INIT record", "INIT"},
    {"5bad89ff-b7e6-42c9-814a-cf2485d6e98a", "Non-Maskable Interrupt", "NMI"},
    {"3d61a466-ab40-409a-a698-f362d464b38f", "Boot error record", "BOOT"},
    {"667dd791-c6b3-4c27-8a6b-0f8e722deb41", "DMA Remapping Error", "DMAr"},
    {"9a78788a-bbe8-11e4-809e-67611e5d46b0", "Synchronous External Abort", "SEA"},
    {"5c284c81-b0ae-4e87-a322-b04c85624323", "SError Interrupt", "SEI"},
    {"09a9d5ac-5204-4214-96e5-94992e752bcd", "Platform Error Interrupt", "PEI"},
    {"69293bc9-41df-49a3-b4bd-4fb0db3041f6", "CXL Component", "CXL"},
    {"487565ba-6494-4367-95ca-4eff893522f6", "Microsoft BMC", "BMC"},
    {"919448b2-3739-4b7f-a8f1-e0062805c2a3", "Microsoft CMCI", "CMCI"},
    {"e9d59197-94ee-4a4f-8ad8-9b7d8bd93d2e", "Microsoft SCI", "SCI"},
    {"3e62a467-ab40-409a-a698-f362d464b38f", "Microsoft generic", "generic"},
});

constexpr auto creators = std::to_array<KnownGuid>({
    {"cf07c4bd-b789-4e18-b3c4-1f732cb57131", "Windows"},
});

constexpr auto recordFlags = std::to_array<Field>({
    {0, 1, "recovered by system software"},
    {1, 1, "from a previous session (PREVERR)"},
    {2, 1, "simulated/injected"},
});

constexpr auto headerRows = std::to_array<Row>({
    {0, 4, "Signature start", always, text},
    {4, 2, "Revision", always, revision},
    {6, 4, "Signature end", always, hex},
    {10, 2, "Section count", always, number},
    {12, 4, "Error severity", always, oneOf(severities)},
    {20, 4, "Record length", always, number},
    {24, 8, "Timestamp", 1, timestamp},
    {32, 16, "Platform ID", 0, guid},
    {48, 16, "Partition ID", 2, guid},
    {64, 16, "Creator ID", always, guidOf(creators)},
    {80, 16, "Notification type", always, guidOf(notificationTypes)},
    {96, 8, "Record ID", always, hex},
    {104, 4, "Flags", always, bitsOf(recordFlags)},
    {108, 8, "Persistence information", always, hex},
});

constexpr auto sectionFlags = std::to_array<Field>({
    {0, 1, "primary"},
    {1, 1, "containment warning"},
    {2, 1, "reset"},
    {3, 1, "error threshold exceeded"},
    {4, 1, "resource not accessible"},
    {5, 1, "latent error"},
    {6, 1, "propagated"},
    {7, 1, "overflow"},
});

// The section type's name is looked up with the section's table.
constexpr auto descriptorRows = std::to_array<Row>({
    {0, 4, "Section offset", always, number},
    {4, 4, "Section length", always, number},
    {8, 2, "Revision", always, revision},
    {12, 4, "Flags", always, bitsOf(sectionFlags)},
    {16, 16, "Section type", always, guid},
    {32, 16, "FRU ID", 0, guid},
    {48, 4, "Section severity", always, oneOf(severities)},
    {52, 20, "FRU text", 1, text},
});

} // namespace

constexpr Table headerTable{.rows = headerRows, .size = 128, .validOffset = 16, .validWidth = 4};
constexpr Table descriptorTable{
    .rows = descriptorRows, .size = 72, .validOffset = 10, .validWidth = 1};

} // namespace tavrisk::cper
