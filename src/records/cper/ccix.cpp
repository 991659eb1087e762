// SPDX-License-Identifier: Apache-2.0
// CCIX PER log.

#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr unsigned ccixLogBit = 2;
constexpr auto ccixLogName = std::to_array<Name>({{ccixLogBit, "PER log"}});
constexpr auto ccixRows = std::to_array<Row>({
    {0, 4, "Length", always, number},
    {12, 1, "Source ID", 0, hex},
    {13, 1, "Port ID", 1, hex.bits(0, 5)},
});
constexpr Table ccixTable{
    .rows = ccixRows, .size = 16, .validOffset = 4, .validWidth = 8, .moreValid = ccixLogName};

std::size_t addLog(Bytes body, Nodes& nodes, Findings& findings) {
    body = upToStated(body, numberOr0(body, 0, 4), ccixTable.size, findings);
    if (!isSet(numberOr0(body, 4, 8), ccixLogBit)) {
        return ccixTable.size;
    }
    constexpr std::size_t wordSize = 4;
    const auto log = cut(body, ccixTable.size);
    nodes.push_back(wordList("PER log", log, wordSize));
    if (log.empty()) {
        findings.missing.emplace_back("PER log");
    }
    return ccixTable.size + log.size() / wordSize * wordSize;
}

Described describeCcix(const Node* body) {
    Phrase where;
    where.add(body, "Source ID", "source").add(body, "Port ID", "port");
    return {"CCIX error", where};
}

} // namespace

constexpr SectionKind ccix{"91335ef6-ebfb-4478-a6a6-88b728cf75d7", "CCIX PER log", &ccixTable,
                           addLog, describeCcix};

} // namespace tavrisk::cper
