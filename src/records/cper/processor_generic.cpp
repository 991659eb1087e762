// SPDX-License-Identifier: Apache-2.0
// Processor generic.

#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto processorTypes = std::to_array<Name>({{0, "IA32/X64"}, {1, "IA64"}, {2, "ARM"}});
constexpr auto instructionSets = std::to_array<Name>({
    {0, "IA32"},
    {1, "IA64"},
    {2, "X64"},
    {3, "ARM A32/T32"},
    {4, "ARM A64"},
});
constexpr auto errorTypes = std::to_array<Name>({
    {0, "unknown"},
    {1, "cache"},
    {2, "TLB"},
    {4, "bus"},
    {8, "micro-architectural"},
});
constexpr auto processorOperations = std::to_array<Name>({
    {0, "unknown/generic"},
    {1, "data read"},
    {2, "data write"},
    {3, "instruction execution"},
});
constexpr auto flags = std::to_array<Field>({
    {0, 1, "restartable"},
    {1, 1, "precise IP"},
    {2, 1, "overflow"},
    {3, 1, "corrected"},
});

constexpr auto processorRows = std::to_array<Row>({
    {8, 1, "Processor type", 0, oneOf(processorTypes)},
    {9, 1, "Instruction set", 1, oneOf(instructionSets)},
    {10, 1, "Error type", 2, sumOf(errorTypes)},
    {11, 1, "Operation", 3, oneOf(processorOperations)},
    {12, 1, "Flags", 4, bitsOf(flags)},
    {13, 1, "Level", 5, number},
    {16, 8, "CPU version", 6, hex},
    {24, 128, "CPU brand string", 7, text},
    {152, 8, "Processor ID", 8, hex},
    {160, 8, "Target address", 9, hex},
    {168, 8, "Requestor ID", 10, hex},
    {176, 8, "Responder ID", 11, hex},
    {184, 8, "Instruction pointer", 12, hex},
});
constexpr Table processorTable{.rows = processorRows, .size = 192, .validWidth = 8};

Described describeProcessor(const Node* body) {
    const auto* type = as<Choice>(find(body, "Error type"));
    const bool known = type != nullptr && type->value != 0;
    const auto* operation = as<Choice>(find(body, "Operation"));
    Phrase about;
    about.add(operation != nullptr && operation->value != 0 ? operation->name : "")
        .add(body, "Level", "level");
    Phrase where;
    where.add(body, "Processor ID", "processor")
        .inside()
        .add(body, "Target address", "target address")
        .add(body, "Instruction pointer", "instruction pointer");
    return {withDetails(known ? type->name + " error" : "processor error", about.text()), where};
}

} // namespace

constexpr SectionKind processorGeneric{"9876ccad-47b4-4bdb-b65e-16f193c4f3db", "Processor generic",
                                       &processorTable, nullptr, describeProcessor};

} // namespace tavrisk::cper
