// SPDX-License-Identifier: Apache-2.0
// Processor ARM, with error information, register contexts and vendor data.

#include "records/cper/arm_error.hpp"
#include "records/cper/arm_registers.hpp"
#include "records/cper/context.hpp"
#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

#include <algorithm>

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto runningState = std::to_array<Field>({{0, 1, "running"}});
constexpr When isNotRunning{32, 4, 0, 1, always, 1U << 0U};

constexpr std::int8_t vendorBit = 3;
constexpr auto armRows = std::to_array<Row>({
    {4, 2, "Error info count", always, number},
    {6, 2, "Context count", always, number},
    {8, 4, "Section length", always, number},
    {12, 1, "Affinity level", 1, number},
    {16, 8, "MPIDR_EL1", 0, hex},
    {24, 8, "MIDR_EL1", always, hex},
    {32, 4, "Running state", 2, bitsOf(runningState)},
    {36, 4, "PSCI state", 2, hex, isNotRunning},
});
constexpr auto vendorName = std::to_array<Name>({{vendorBit, "Vendor info"}});
constexpr Table armTable{.rows = armRows, .size = 40, .validWidth = 4, .moreValid = vendorName};

constexpr auto armContextRows = std::to_array<Row>({
    {0, 2, "Version", always, number},
    {2, 2, "Type", always, oneOf(armContextTypes)},
    {4, 4, "Array size", always, number},
});
constexpr Table armContextTable{.rows = armContextRows, .size = 8};

constexpr auto encodingFields = std::to_array<Field>({
    {0, 3, "Op2"},
    {3, 4, "CRm"},
    {7, 4, "CRn"},
    {11, 3, "Op1"},
    {14, 1, "O0", always, {}, Kind::number},
});
constexpr auto systemRegisterRows = std::to_array<Row>({
    {0, 2, "Encoding", always, bitsOf(encodingFields)},
    {2, 8, "Value", always, hex},
});
constexpr Table systemRegisterTable{.rows = systemRegisterRows, .size = 10};
constexpr Repeated systemRegisters{"Registers", "Register", &systemRegisterTable, 10};

/** All ones stand for a base that is not valid. */
std::string baseText(Bytes value) {
    const bool isValid =
        std::any_of(value.begin(), value.end(), [](std::uint8_t byte) { return byte != 0xff; });
    return isValid ? hexText(value) : "invalid";
}

void addArmRegisters(std::uint64_t type, Bytes /*context*/, Bytes array, Nodes& nodes,
                     Findings& findings) {
    if (type == armSystemRegister) {
        addRepeated(systemRegisters, array, 0, array.size() / systemRegisters.stride, nodes,
                    findings);
        return;
    }
    const auto* const file =
        std::find_if(armRegisters.begin(), armRegisters.end(),
                     [type](const ArmRegisters& known) { return known.type == type; });
    if (file == armRegisters.end()) {
        nodes.push_back({"Array", Raw{hexDigits(array)}});
        return;
    }
    Object object;
    for (std::size_t i = 0; i < file->names.size() && (i + 1) * file->width <= array.size(); ++i) {
        const auto value = array.subspan(i * file->width, file->width);
        object.members.push_back(
            {file->names[i], type == armTableBases ? baseText(value) : hexText(value)});
    }
    nodes.push_back({"Registers", std::move(object)});
}

constexpr ContextLayout armContexts{&armContextTable, 2, 4, 4, armTableBases, addArmRegisters};

std::size_t addArmStructures(Bytes body, Nodes& nodes, Findings& findings) {
    body = upToStated(body, numberOr0(body, 8, 4), armTable.size, findings);
    auto end = addArmErrors(body, armTable.size, numberOr0(body, 4, 2), nodes, findings);
    end = addContexts(armContexts, body, end, numberOr0(body, 6, 2), nodes, findings);
    if (!isSet(numberOr0(body, 0, 4), vendorBit)) {
        return end;
    }
    if (end < body.size()) {
        nodes.push_back({"Vendor data", Raw{hexDigits(cut(body, end))}});
    }
    return body.size();
}

Described describeArm(const Node* body) {
    const auto& list = elements(body, "Error info");
    const auto* error = list.empty() ? nullptr : &list.front();
    const auto* type = as<Choice>(find(error, "Type"));
    const auto* information = find(error, "Error information");
    Phrase about;
    about.add(valueText(find(information, "Transaction type")))
        .add(valueText(find(information, "Operation")))
        .add(information, "Level", "level");
    Phrase where;
    where.add(body, "MPIDR_EL1", "processor with MPIDR")
        .add(body, "Affinity level", "affinity level")
        .inside()
        .add(error, "Virtual fault address", "virtual address")
        .add(error, "Physical fault address", "physical address");
    return {withDetails(type != nullptr ? type->name + " error" : "processor error", about.text()),
            where};
}

} // namespace

constexpr SectionKind processorArm{"e19e3d16-bc11-11e4-9caa-c2051d5d46b0", "Processor ARM",
                                   &armTable, addArmStructures, describeArm};

} // namespace tavrisk::cper
