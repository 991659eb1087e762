// SPDX-License-Identifier: Apache-2.0
#include "records/cper/context.hpp"

#include <algorithm>

namespace tavrisk::cper {
namespace {

constexpr std::size_t padding = 16;

std::uint64_t arraySize(const ContextLayout& layout, Bytes context) {
    return numberOr0(context, layout.sizeOffset, layout.sizeWidth);
}

/** Whether a context can begin there. */
bool isLikely(const ContextLayout& layout, Bytes context) {
    const auto size = arraySize(layout, context);
    return context.size() >= layout.header->size && size != 0 &&
           size <= context.size() - layout.header->size &&
           numberOr0(context, layout.typeOffset, 2) <= layout.lastType;
}

/** Some producers fill a context up to a multiple of 16 bytes and some do not: where the next is
 *  likely to begin, or the last one to end. */
std::uint64_t endOf(const ContextLayout& layout, Bytes body, std::uint64_t begin, bool isLast) {
    const auto exact = begin + layout.header->size + arraySize(layout, cut(body, begin));
    const auto padded = begin + (exact - begin + padding - 1) / padding * padding;
    if (isLast) {
        const auto rest = cut(body, exact, padded - exact);
        const bool isPadding = padded == body.size() &&
                               std::all_of(rest.begin(), rest.end(), [](auto b) { return b == 0; });
        return isPadding ? padded : exact;
    }
    return !isLikely(layout, cut(body, exact)) && isLikely(layout, cut(body, padded)) ? padded
                                                                                      : exact;
}

} // namespace

std::size_t addContexts(const ContextLayout& layout, Bytes body, std::size_t offset,
                        std::uint64_t count, Nodes& nodes, Findings& findings) {
    std::uint64_t begin = offset;
    List list;
    while (list.elements.size() < count && begin < body.size()) {
        const auto context = cut(body, begin);
        Object object;
        interpret(*layout.header, context, object.members, findings);
        const auto size = arraySize(layout, context);
        const auto array = cut(context, layout.header->size, size);
        layout.addRegisters(numberOr0(context, layout.typeOffset, 2), context, array,
                            object.members, findings);
        if (array.size() < size) {
            findings.problems.push_back("A context's array of " + std::to_string(size) +
                                        " bytes has only " + std::to_string(array.size()) + ".");
        }
        list.elements.push_back({"Context", std::move(object)});
        begin = endOf(layout, body, begin, list.elements.size() == count);
    }
    if (list.elements.size() < count) {
        findings.problems.push_back("Of " + std::to_string(count) + " contexts only " +
                                    std::to_string(list.elements.size()) + " are there.");
    }
    if (count != 0) {
        nodes.push_back({"Contexts", std::move(list)});
    }
    return static_cast<std::size_t>(std::min<std::uint64_t>(begin, body.size()));
}

} // namespace tavrisk::cper
