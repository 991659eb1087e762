// SPDX-License-Identifier: Apache-2.0
#include "records/cper/section_kind.hpp"

#include <algorithm>
#include <array>

namespace tavrisk::cper {
namespace {

// Without a layout: their bodies are shown as bytes.
constexpr SectionKind processorIa64{"e429faf1-3cb7-11d4-bca7-0080c73c8881", "Processor IA64"};
constexpr SectionKind microsoftNmi{"e71254e7-c1b9-4940-ab76-909703a4320f", "Microsoft NMI"};
constexpr SectionKind microsoftGeneric{"e71254e8-c1b9-4940-ab76-909703a4320f", "Microsoft generic"};
constexpr SectionKind microsoftMachineCheck{"8a1e1d01-42f9-4557-9c33-565e5cc3f7e8",
                                            "Microsoft x86 machine check"};
constexpr SectionKind microsoftRasNode{"e3ebf4a2-df50-4708-b2d7-0b29ec2f7aa9",
                                       "Arm RAS node (Microsoft)"};

constexpr std::array<const SectionKind*, 28> kinds{
    &processorGeneric,
    &processorX86,
    &processorIa64,
    &processorArm,
    &memory,
    &memory2,
    &pcie,
    &firmwareReference,
    &pciBus,
    &pciComponent,
    &dmarGeneric,
    &dmarVtd,
    &dmarIommu,
    &ccix,
    &cxlProtocol,
    &cxlGeneralMedia,
    &cxlDram,
    &cxlMemoryModule,
    &cxlPhysicalSwitch,
    &cxlVirtualSwitch,
    &cxlMldPort,
    &cxlMemorySparing,
    &cxlDynamicCapacity,
    &fruMemoryPoison,
    &microsoftNmi,
    &microsoftGeneric,
    &microsoftMachineCheck,
    &microsoftRasNode,
};

} // namespace

std::span<const SectionKind* const> sectionKinds() {
    return kinds;
}

const SectionKind* findSectionKind(std::string_view guid) {
    const auto* const found = std::find_if(kinds.begin(), kinds.end(),
                                           [guid](const auto* kind) { return kind->guid == guid; });
    return found != kinds.end() ? *found : nullptr;
}

Bytes upToStated(Bytes body, std::uint64_t stated, std::size_t least, Findings& findings) {
    if (stated != body.size()) {
        findings.problems.push_back("The section gives its own length as " +
                                    std::to_string(stated) + " bytes, where there are " +
                                    std::to_string(body.size()) + ".");
    }
    return stated >= least ? cut(body, 0, stated) : body;
}

void addRepeated(const Repeated& repeated, Bytes bytes, std::size_t offset, std::uint64_t count,
                 Nodes& nodes, Findings& findings) {
    List list;
    while (list.elements.size() < count && offset < bytes.size()) {
        Object object;
        interpret(*repeated.table, cut(bytes, offset, repeated.stride), object.members, findings);
        list.elements.push_back({repeated.elementLabel, std::move(object)});
        offset += repeated.stride;
    }
    if (list.elements.size() < count) {
        findings.problems.push_back("Of " + std::to_string(count) + " structures \"" +
                                    std::string{repeated.elementLabel} + "\" only " +
                                    std::to_string(list.elements.size()) + " are there.");
    }
    nodes.push_back({repeated.label, std::move(list)});
}

} // namespace tavrisk::cper
