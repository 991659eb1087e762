// SPDX-License-Identifier: Apache-2.0
#include "records/cper/arm_error.hpp"

#include <algorithm>
#include <array>
#include <optional>

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr auto armTransactionTypes = std::to_array<Name>({
    {0, "instruction"},
    {1, "data access"},
    {2, "generic"},
});
constexpr auto cacheOperations = std::to_array<Name>({
    {0, "generic"},
    {1, "generic read"},
    {2, "generic write"},
    {3, "data read"},
    {4, "data write"},
    {5, "instruction fetch"},
    {6, "prefetch"},
    {7, "eviction"},
    {8, "snooping"},
    {9, "snooped"},
    {10, "management"},
});
constexpr Names busOperations = Names{cacheOperations}.first(7);
constexpr auto tlbOperations = std::to_array<Name>({
    {0, "generic"},
    {1, "generic read"},
    {2, "generic write"},
    {3, "data read"},
    {4, "data write"},
    {5, "instruction fetch"},
    {6, "prefetch"},
    {7, "local management"},
    {8, "external management"},
});
constexpr auto armParticipations = std::to_array<Name>({
    {0, "originated"},
    {1, "responded"},
    {2, "observed"},
    {3, "generic"},
});
constexpr auto armAddressSpaces = std::to_array<Name>({
    {0, "external memory"},
    {1, "internal memory"},
    {3, "device memory"},
});
constexpr auto accessModes = std::to_array<Name>({{0, "secure"}, {1, "normal"}});

// "Corrected" where an IA32/X64 processor has "uncorrected".
constexpr auto cacheError = std::to_array<Field>({
    {16, 2, "Transaction type", 0, armTransactionTypes},
    {18, 4, "Operation", 1, cacheOperations},
    {22, 3, "Level", 2},
    {25, 1, "Context corrupt", 3},
    {26, 1, "Corrected", 4},
    {27, 1, "Precise PC", 5},
    {28, 1, "Restartable PC", 6},
});
constexpr auto tlbError = std::to_array<Field>({
    {16, 2, "Transaction type", 0, armTransactionTypes},
    {18, 4, "Operation", 1, tlbOperations},
    {22, 3, "Level", 2},
    {25, 1, "Context corrupt", 3},
    {26, 1, "Corrected", 4},
    {27, 1, "Precise PC", 5},
    {28, 1, "Restartable PC", 6},
});
constexpr auto busError = std::to_array<Field>({
    {16, 2, "Transaction type", 0, armTransactionTypes},
    {18, 4, "Operation", 1, busOperations},
    {22, 3, "Level", 2},
    {25, 1, "Context corrupt", 3},
    {26, 1, "Corrected", 4},
    {27, 1, "Precise PC", 5},
    {28, 1, "Restartable PC", 6},
    {29, 2, "Participation", 7, armParticipations},
    {31, 1, "Timed out", 8},
    {32, 2, "Address space", 9, armAddressSpaces},
    {34, 9, "Memory attributes", 10, {}, Kind::hex},
    {43, 1, "Access mode", 11, accessModes},
});

/** Kinds of errors in the order of all encodings; the last one's information is the vendor's. */
constexpr auto kindNames =
    std::to_array<std::string_view>({"cache", "TLB", "bus", "micro-architectural"});
constexpr std::array<Fields, kindNames.size()> kindFields{cacheError, tlbError, busError, Fields{}};

/** The type byte has been encoded in three ways. */
enum class Encoding : std::uint8_t { number, bitsFrom1, bitsFrom0 };
constexpr auto encodingNames =
    std::to_array<std::string_view>({"before 2.9A", "2.9A and 2.10", "2.11"});

constexpr std::size_t least = 32;
constexpr std::size_t typeOffset = 4;

/** The encoding of a section whose structures have these types. Where they do not tell, it is taken
 *  for the second; a 1 cannot be of that. */
Encoding encodingOf(const std::vector<std::uint8_t>& types) {
    const auto has = [&types](auto... values) {
        return std::any_of(types.begin(), types.end(),
                           [=](std::uint8_t type) { return ((type == values) || ...); });
    };
    if (has(16)) {
        return Encoding::bitsFrom1;
    }
    return has(0, 1, 3) ? Encoding::number : Encoding::bitsFrom1;
}

/** The kinds that a type byte names, a bit for each. */
unsigned kindsOf(std::uint8_t type, Encoding encoding) {
    switch (encoding) {
    case Encoding::number:
        return type < kindNames.size() ? 1U << type : 0;
    case Encoding::bitsFrom1:
        return (type & 1U) == 0 && type < 32 ? type >> 1U : 0U;
    case Encoding::bitsFrom0:
        break;
    }
    return type < 16 ? type : 0U;
}

Choice describeType(std::uint8_t type, unsigned kinds) {
    std::string name;
    for (unsigned kind = 0; kind < kindNames.size(); ++kind) {
        if (isSet(kinds, kind)) {
            name += (name.empty() ? "" : ", ") + std::string{kindNames.at(kind)};
        }
    }
    return {type, name.empty() ? "reserved" : name, {}};
}

constexpr auto multipleNames = std::to_array<Name>({{0, "single"}, {1, "several"}});
constexpr auto errorFlags = std::to_array<Field>({
    {0, 1, "first captured"},
    {1, 1, "last captured"},
    {2, 1, "propagated"},
    {3, 1, "overflow"},
});
constexpr std::int8_t informationBit = 2;
// The type and the error information depend on each other and are read apart.
constexpr auto armErrorRows = std::to_array<Row>({
    {0, 1, "Version", always, number},
    {1, 1, "Length", always, number},
    {5, 2, "Multiple error", 0, oneOf(multipleNames, "count")},
    {7, 1, "Flags", 1, bitsOf(errorFlags)},
    {16, 8, "Virtual fault address", 3, hex},
    {24, 8, "Physical fault address", 4, hex},
});
constexpr auto informationName = std::to_array<Name>({{informationBit, "Error information"}});
constexpr Table armErrorTable{.rows = armErrorRows,
                              .size = least,
                              .validOffset = 2,
                              .validWidth = 2,
                              .moreValid = informationName};

/** With version 1 the bits of the type byte begin at 0. */
Encoding encodingOf(Bytes error, Encoding encodingOfSection) {
    return numberOr0(error, 0, 1) != 0 ? Encoding::bitsFrom0 : encodingOfSection;
}

void addError(Bytes error, Encoding encoding, List& list, Findings& findings) {
    Object object;
    interpret(armErrorTable, error, object.members, findings);
    unsigned kinds = 0;
    if (const auto type = numberAt(error, typeOffset, 1)) {
        kinds = kindsOf(static_cast<std::uint8_t>(*type), encoding);
        object.members.push_back({"Type", describeType(static_cast<std::uint8_t>(*type), kinds)});
        object.members.push_back(
            {"Type encoding", std::string{encodingNames.at(static_cast<std::size_t>(encoding))}});
    } else {
        findings.missing.emplace_back("Type");
    }
    if (isSet(numberOr0(error, 2, 2), informationBit)) {
        const auto value = numberAt(error, 8, 8);
        unsigned kind = 0;
        while (kind + 1 < kindNames.size() && !isSet(kinds, kind)) {
            ++kind;
        }
        if (value) {
            object.members.push_back(
                {"Error information", readBits(*value, 64, kindFields.at(kind))});
        } else {
            findings.missing.emplace_back("Error information");
        }
    }
    list.elements.push_back({"Error info", std::move(object)});
}

/** The structures, each as long as it says; none behind one that says it is shorter than it can
 *  be. */
std::vector<Bytes> splitErrors(Bytes body, std::size_t& offset, std::uint64_t count,
                               Findings& findings) {
    std::vector<Bytes> errors;
    while (errors.size() < count && offset < body.size()) {
        const auto length = numberAt(body, offset + 1, 1).value_or(least);
        errors.push_back(cut(body, offset, std::max<std::uint64_t>(length, least)));
        if (length < least) {
            findings.problems.push_back("An error info structure gives its length as " +
                                        std::to_string(length) + " bytes, less than it can have.");
        }
        offset += std::max<std::size_t>(static_cast<std::size_t>(length), least);
    }
    if (errors.size() < count) {
        findings.problems.push_back("Of " + std::to_string(count) + " error info structures only " +
                                    std::to_string(errors.size()) + " are there.");
    }
    return errors;
}

} // namespace

std::size_t addArmErrors(Bytes body, std::size_t offset, std::uint64_t count, Nodes& nodes,
                         Findings& findings) {
    const auto errors = splitErrors(body, offset, count, findings);
    std::vector<std::uint8_t> types;
    for (const auto error : errors) {
        const auto type = numberAt(error, typeOffset, 1);
        if (type && numberOr0(error, 0, 1) == 0) {
            types.push_back(static_cast<std::uint8_t>(*type));
        }
    }
    const auto encoding = encodingOf(types);
    List list;
    for (const auto error : errors) {
        addError(error, encodingOf(error, encoding), list, findings);
    }
    if (count != 0) {
        nodes.push_back({"Error info", std::move(list)});
    }
    return offset;
}

} // namespace tavrisk::cper
