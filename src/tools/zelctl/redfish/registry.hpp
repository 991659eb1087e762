// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "contract/severity.hpp"
#include "records/catalogue.hpp"

#include <array>
#include <string>
#include <string_view>
#include <tuple>

namespace tavrisk::tools {

// What Redfish calls the registry of the catalogue's messages. A message that is added, or a text
// that changes, raises the version.
inline constexpr std::string_view registryPrefix = "OSKA";
inline constexpr std::string_view registryVersion = "1.0.0";

/** What the registry tells of a message beside the catalogue's text. */
struct RegistryMessage {
    Severity severity;
    const char* description;
    const char* resolution;
};

/** One row for each of the catalogue, in its order. */
extern const std::array<RegistryMessage, std::tuple_size_v<decltype(catalogue)>> registryMessages;

const RegistryMessage& registryMessageOf(const CatalogueMessage& message);

/** The ID by which a Redfish client finds the message: "OSKA.1.0.HMC0001". */
std::string registryIdOf(const CatalogueMessage& message);

/** Redfish's word for a severity. */
const char* redfishName(Severity severity);

} // namespace tavrisk::tools
