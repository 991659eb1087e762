// SPDX-License-Identifier: Apache-2.0
// CCIX PER log.

#include "records/cper/phrase.hpp"
#include "records/cper/section_kind.hpp"

namespace tavrisk::cper {
namespace {

using namespace show;

constexpr unsigned logBit = 2;
constexpr auto logName = std::to_array<Name>({{logBit, "PER log"}});
constexpr auto rows = std::to_array<Row>({
    {0, 4, "Length", always, number},
    {12, 1, "Source ID", 0, hex},
    {13, 1, "Port ID", 1, hex.bits(0, 5)},
});
constexpr Table table{
    .rows = rows, .size = 16, .validOffset = 4, .validWidth = 8, .moreValid = logName};

std::size_t addLog(Bytes body, Nodes& nodes, Findings& findings) {
    body = upToStated(body, numberOr0(body, 0, 4), table.size, findings);
    if (!isSet(numberOr0(body, 4, 8), logBit)) {
        return table.size;
    }
    constexpr std::size_t wordSize = 4;
    const auto log = cut(body, table.size);
    nodes.push_back(wordList("PER log", log, wordSize));
    if (log.empty()) {
        findings.missing.emplace_back("PER log");
    }
    return table.size + log.size() / wordSize * wordSize;
}

Described describeCcix(const Node* body) {
    Phrase where;
    where.add(body, "Source ID", "source").add(body, "Port ID", "port");
    return {"CCIX error", where};
}

} // namespace

constexpr SectionKind ccix{"91335ef6-ebfb-4478-a6a6-88b728cf75d7", "CCIX PER log", &table, addLog,
                           describeCcix};

} // namespace tavrisk::cper
