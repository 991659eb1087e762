// SPDX-License-Identifier: Apache-2.0
// Processor IA32/X64, with error information and register contexts.

#include "records/cper/context.hpp"
#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

#include <algorithm>

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto cpuidRows = std::to_array<Row>({
    {0, 8, "EAX", always, hex},
    {8, 8, "EBX", always, hex},
    {16, 8, "ECX", always, hex},
    {24, 8, "EDX", always, hex},
});
constexpr Table cpuidTable{.rows = cpuidRows, .size = 48};

// How many structures follow stands within the validation bits.
constexpr auto x86Rows = std::to_array<Row>({
    {0, 8, "Error info count", always, number.bits(2, 6)},
    {0, 8, "Context count", always, number.bits(8, 6)},
    {8, 8, "Local APIC ID", 0, hex},
    {16, 48, "CPUID info", 1, part(cpuidTable)},
});
constexpr Table x86Table{.rows = x86Rows, .size = 64, .validWidth = 8};

constexpr auto x86TransactionTypes = std::to_array<Name>({
    {0, "instruction"},
    {1, "data access"},
    {2, "generic"},
});
constexpr auto x86Operations = std::to_array<Name>({
    {0, "generic"},
    {1, "generic read"},
    {2, "generic write"},
    {3, "data read"},
    {4, "data write"},
    {5, "instruction fetch"},
    {6, "prefetch"},
    {7, "eviction"},
    {8, "snoop"},
});
// The last two are of caches only.
constexpr Names operationsOfOthers = Names{x86Operations}.first(7);
constexpr auto x86Participations = std::to_array<Name>({
    {0, "local processor originated"},
    {1, "responded"},
    {2, "observed"},
    {3, "generic"},
});
constexpr auto x86AddressSpaces = std::to_array<Name>({
    {0, "memory"},
    {1, "reserved"},
    {2, "I/O"},
    {3, "other transaction"},
});
constexpr auto cacheCheck = std::to_array<Field>({
    {16, 2, "Transaction type", 0, x86TransactionTypes},
    {18, 4, "Operation", 1, x86Operations},
    {22, 3, "Level", 2},
    {25, 1, "Context corrupt", 3},
    {26, 1, "Uncorrected", 4},
    {27, 1, "Precise IP", 5},
    {28, 1, "Restartable IP", 6},
    {29, 1, "Overflow", 7},
});
constexpr auto tlbCheck = std::to_array<Field>({
    {16, 2, "Transaction type", 0, x86TransactionTypes},
    {18, 4, "Operation", 1, operationsOfOthers},
    {22, 3, "Level", 2},
    {25, 1, "Context corrupt", 3},
    {26, 1, "Uncorrected", 4},
    {27, 1, "Precise IP", 5},
    {28, 1, "Restartable IP", 6},
    {29, 1, "Overflow", 7},
});
constexpr auto busCheck = std::to_array<Field>({
    {16, 2, "Transaction type", 0, x86TransactionTypes},
    {18, 4, "Operation", 1, operationsOfOthers},
    {22, 3, "Level", 2},
    {25, 1, "Context corrupt", 3},
    {26, 1, "Uncorrected", 4},
    {27, 1, "Precise IP", 5},
    {28, 1, "Restartable IP", 6},
    {29, 1, "Overflow", 7},
    {30, 2, "Participation", 8, x86Participations},
    {32, 1, "Timed out", 9},
    {33, 2, "Address space", 10, x86AddressSpaces},
});
constexpr auto microArchitectureErrors = std::to_array<Name>({
    {0, "none"},
    {1, "unclassified"},
    {2, "microcode ROM parity"},
    {3, "external"},
    {4, "FRC"},
    {5, "internal unclassified"},
    {6, "processor specific"},
    {7, "processor specific"},
});
constexpr auto microArchitectureCheck = std::to_array<Field>({
    {16, 3, "Error type", 0, microArchitectureErrors},
    {19, 1, "Context corrupt", 1},
    {20, 1, "Uncorrected", 2},
    {21, 1, "Precise IP", 3},
    {22, 1, "Restartable IP", 4},
    {23, 1, "Overflow", 5},
});

constexpr auto checkTypes = std::to_array<KnownGuid>({
    {"a55701f5-e3ef-43de-ac72-249b573fad2c", "cache"},
    {"fc06b535-5e1f-4562-9f25-0a3b9adb63c3", "TLB"},
    {"1cf3f8b3-c5b1-49a2-aa59-5eef92ffa63c", "bus"},
    {"48ab7f57-dc34-4f6c-a7d3-b0b5b0a74314", "micro-architecture"},
});
constexpr std::array<Fields, checkTypes.size()> checkFields{cacheCheck, tlbCheck, busCheck,
                                                            microArchitectureCheck};

// The check information lies between; its layout depends on the check type.
constexpr auto x86ErrorRows = std::to_array<Row>({
    {0, 16, "Check type", always, guidOf(checkTypes)},
    {32, 8, "Target identifier", 1, hex},
    {40, 8, "Requestor identifier", 2, hex},
    {48, 8, "Responder identifier", 3, hex},
    {56, 8, "Instruction pointer", 4, hex},
});
constexpr auto checkName = std::to_array<Name>({{0, "Check information"}});
constexpr Table x86ErrorTable{
    .rows = x86ErrorRows, .size = 64, .validOffset = 16, .validWidth = 8, .moreValid = checkName};
constexpr Repeated errors{"Error info", "Error info", &x86ErrorTable, x86ErrorTable.size};

void addCheckInformation(Bytes error, Nodes& nodes, Findings& findings) {
    if (!isSet(numberOr0(error, 16, 8), 0)) {
        return;
    }
    const auto value = numberAt(error, 24, 8);
    if (!value) {
        findings.missing.emplace_back("Check information");
        return;
    }
    const auto type = guidText(error.data());
    const auto* const row =
        std::find_if(checkTypes.begin(), checkTypes.end(),
                     [&type](const KnownGuid& known) { return known.guid == type; });
    const auto index = static_cast<std::size_t>(row - checkTypes.begin());
    nodes.push_back(
        {"Check information",
         readBits(*value, 64, row != checkTypes.end() ? checkFields.at(index) : Fields{})});
}

constexpr auto contextTypes = std::to_array<Name>({
    {0, "unclassified"},
    {1, "MSRs"},
    {2, "32-bit execution"},
    {3, "64-bit execution"},
    {4, "FXSAVE"},
    {5, "32-bit debug registers"},
    {6, "64-bit debug registers"},
    {7, "memory-mapped registers"},
});
constexpr When isMsrs{0, 2, 0, 16, always, 1U << 1U};
constexpr When isMemoryMapped{0, 2, 0, 16, always, 1U << 7U};
constexpr auto x86ContextRows = std::to_array<Row>({
    {0, 2, "Type", always, oneOf(contextTypes)},
    {2, 2, "Array size", always, number},
    {4, 4, "First MSR number", always, hex, isMsrs},
    {8, 8, "First memory address", always, hex, isMemoryMapped},
});
constexpr Table x86ContextTable{.rows = x86ContextRows, .size = 16};

constexpr auto registers32 = std::to_array<Row>({
    {0, 4, "EAX", always, hex},   {4, 4, "EBX", always, hex},   {8, 4, "ECX", always, hex},
    {12, 4, "EDX", always, hex},  {16, 4, "ESI", always, hex},  {20, 4, "EDI", always, hex},
    {24, 4, "EBP", always, hex},  {28, 4, "ESP", always, hex},  {32, 2, "CS", always, hex},
    {34, 2, "DS", always, hex},   {36, 2, "SS", always, hex},   {38, 2, "ES", always, hex},
    {40, 2, "FS", always, hex},   {42, 2, "GS", always, hex},   {44, 4, "EFLAGS", always, hex},
    {48, 4, "EIP", always, hex},  {52, 4, "CR0", always, hex},  {56, 4, "CR1", always, hex},
    {60, 4, "CR2", always, hex},  {64, 4, "CR3", always, hex},  {68, 4, "CR4", always, hex},
    {72, 8, "GDTR", always, hex}, {80, 8, "IDTR", always, hex}, {88, 2, "LDTR", always, hex},
    {90, 2, "TR", always, hex},
});
constexpr Table execution32{.rows = registers32, .size = 92};

constexpr auto registers64 = std::to_array<Row>({
    {0, 8, "RAX", always, hex},     {8, 8, "RBX", always, hex},      {16, 8, "RCX", always, hex},
    {24, 8, "RDX", always, hex},    {32, 8, "RSI", always, hex},     {40, 8, "RDI", always, hex},
    {48, 8, "RBP", always, hex},    {56, 8, "RSP", always, hex},     {64, 8, "R8", always, hex},
    {72, 8, "R9", always, hex},     {80, 8, "R10", always, hex},     {88, 8, "R11", always, hex},
    {96, 8, "R12", always, hex},    {104, 8, "R13", always, hex},    {112, 8, "R14", always, hex},
    {120, 8, "R15", always, hex},   {128, 2, "CS", always, hex},     {130, 2, "DS", always, hex},
    {132, 2, "SS", always, hex},    {134, 2, "ES", always, hex},     {136, 2, "FS", always, hex},
    {138, 2, "GS", always, hex},    {144, 8, "RFLAGS", always, hex}, {152, 8, "RIP", always, hex},
    {160, 8, "CR0", always, hex},   {168, 8, "CR1", always, hex},    {176, 8, "CR2", always, hex},
    {184, 8, "CR3", always, hex},   {192, 8, "CR4", always, hex},    {200, 8, "CR8", always, hex},
    {208, 16, "GDTR", always, hex}, {224, 16, "IDTR", always, hex},  {240, 2, "LDTR", always, hex},
    {242, 2, "TR", always, hex},
});
constexpr Table execution64{.rows = registers64, .size = 244};

// Some producers leave CR8 out.
constexpr std::size_t sizeWithoutCr8 = 236;
constexpr std::size_t cr8Offset = 200;
constexpr auto tail64 = std::to_array<Row>({
    {200, 16, "GDTR", always, hex},
    {216, 16, "IDTR", always, hex},
    {232, 2, "LDTR", always, hex},
    {234, 2, "TR", always, hex},
});
constexpr Table withoutCr8{.rows = tail64, .size = sizeWithoutCr8};

void addMsrs(Bytes context, Bytes array, Nodes& nodes) {
    constexpr std::size_t unit = 8;
    const auto first = numberOr0(context, 4, 4);
    List list;
    for (std::size_t i = 0; (i + 1) * unit <= array.size(); ++i) {
        list.elements.push_back(
            {"MSR", Object{{{"Number", hexText((first + i) & 0xffffffff, 32)},
                            {"Value", hexText(numberOr0(array, i * unit, unit), 64)}}}});
    }
    nodes.push_back({"MSRs", std::move(list)});
}

void addExecution(const Table& file, Bytes array, Nodes& nodes, Findings& findings) {
    Object object;
    if (file.size == execution64.size && array.size() == sizeWithoutCr8) {
        // What seems to be missing here stands earlier, in the shorter form.
        Findings ignored;
        interpret(file, array.first(cr8Offset), object.members, ignored);
        interpret(withoutCr8, array, object.members, findings);
    } else {
        interpret(file, array, object.members, findings);
    }
    nodes.push_back({"Registers", std::move(object)});
}

void addX86Registers(std::uint64_t type, Bytes context, Bytes array, Nodes& nodes,
                     Findings& findings) {
    switch (type) {
    case 1:
        return addMsrs(context, array, nodes);
    case 2:
        return addExecution(execution32, array, nodes, findings);
    case 3:
        return addExecution(execution64, array, nodes, findings);
    case 5:
        return nodes.push_back(wordList("Registers", array, 4));
    case 6:
        return nodes.push_back(wordList("Registers", array, 8));
    default:
        return nodes.push_back({"Array", Raw{hexDigits(array)}});
    }
}

constexpr ContextLayout x86Contexts{&x86ContextTable, 0, 2, 2, 7, addX86Registers};

std::size_t addX86Structures(Bytes body, Nodes& nodes, Findings& findings) {
    const auto counts = numberOr0(body, 0, 8);
    const auto errorCount = slice(counts, 2, 6);
    const auto end = x86Table.size + errors.stride * static_cast<std::size_t>(errorCount);
    if (errorCount != 0) {
        addRepeated(errors, body, x86Table.size, errorCount, nodes, findings);
        auto offset = std::size_t{x86Table.size};
        for (auto& error : std::get<List>(nodes.back().value).elements) {
            addCheckInformation(cut(body, offset, errors.stride),
                                std::get<Object>(error.value).members, findings);
            offset += errors.stride;
        }
    }
    return addContexts(x86Contexts, body, end, slice(counts, 8, 6), nodes, findings);
}

Described describeX86(const Node* body) {
    const auto& list = elements(body, "Error info");
    const auto* error = list.empty() ? nullptr : &list.front();
    const auto* type = as<Guid>(find(error, "Check type"));
    const auto* check = find(error, "Check information");
    const bool known = type != nullptr && !type->name.empty();
    Phrase about;
    about.add(valueText(find(check, "Error type")))
        .add(valueText(find(check, "Transaction type")))
        .add(valueText(find(check, "Operation")))
        .add(check, "Level", "level");
    Phrase where;
    where.add(body, "Local APIC ID", "processor with APIC ID")
        .inside()
        .add(error, "Target identifier", "target")
        .add(error, "Instruction pointer", "instruction pointer");
    return {
        withDetails(known ? std::string{type->name} + " error" : "processor error", about.text()),
        where};
}

} // namespace

constexpr SectionKind processorX86{"dc3ea0b0-a144-4797-b95b-53fa242b6e1d", "Processor IA32/X64",
                                   &x86Table, addX86Structures, describeX86};

} // namespace tavrisk::cper
