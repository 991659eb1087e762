// SPDX-License-Identifier: Apache-2.0
#include "records/catalogue.hpp"

#include <algorithm>

namespace tavrisk {

// Events 3 and 8 have messages but no record is classified as either.
const std::array<CatalogueMessage, 8> catalogue{{
    {1, "HMC0001", "A critical error has been reported for %s."},
    {2, "HMC0002", "A warning condition has been reported for %s."},
    {3, "HMC0003", "The %s is operating normally."},
    {4, "HMC0004", "The %s warning threshold has been exceeded."},
    {5, "HMC0005", "The %s upper warning threshold has been exceeded."},
    {6, "HMC0006", "The %s upper critical threshold has been exceeded."},
    {7, "HMC0007", "The %s lower critical threshold has been exceeded."},
    {8, "HMC0008", "The %s is operating within the threshold range."},
}};

namespace {

template <typename Predicate>
const CatalogueMessage* findIf(Predicate predicate) {
    const auto row = std::find_if(catalogue.begin(), catalogue.end(), predicate);
    return row != catalogue.end() ? &*row : nullptr;
}

} // namespace

const CatalogueMessage* findMessage(std::int32_t event) {
    return findIf([event](const CatalogueMessage& row) { return row.event == event; });
}

const CatalogueMessage* findMessage(std::string_view messageId) {
    return findIf([messageId](const CatalogueMessage& row) { return row.messageId == messageId; });
}

std::string messageAbout(const CatalogueMessage& message, std::string_view device) {
    constexpr std::string_view placeholder = "%s";
    std::string text = message.text;
    return text.replace(text.find(placeholder), placeholder.size(), device);
}

} // namespace tavrisk
