// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/redfish/registry.hpp"

#include <cstddef>

namespace tavrisk::tools {

// The severity is the one with which events of that number are submitted.
const std::array<RegistryMessage, std::tuple_size_v<decltype(catalogue)>> registryMessages{{
    {Severity::critical, "A device has reported a critical error.",
     "Find out which part the record of the error names, and replace it if the error persists."},
    {Severity::warning, "A device has reported a condition that may become an error.",
     "Watch the device. If such warnings become frequent, replace the part that their records "
     "name."},
    {Severity::other, "A device that had reported a condition is operating normally again.",
     "None."},
    {Severity::warning, "A value has gone beyond its warning threshold.",
     "Find out what drives the value, and watch whether it returns."},
    {Severity::warning, "A reading is above its upper warning threshold.",
     "Check the load, the cooling and the supply of what the sensor measures."},
    {Severity::critical, "A reading is above its upper critical threshold.",
     "Check the load, the cooling and the supply of what the sensor measures at once, and shut it "
     "down if the reading stays."},
    {Severity::critical, "A reading is below its lower critical threshold.",
     "Check at once whether what the sensor measures, such as a fan or a supply, has failed, and "
     "replace it."},
    {Severity::other, "A reading is within its thresholds again.", "None."},
}};

const RegistryMessage& registryMessageOf(const CatalogueMessage& message) {
    return registryMessages.at(static_cast<std::size_t>(&message - catalogue.data()));
}

std::string registryIdOf(const CatalogueMessage& message) {
    std::string id{registryPrefix};
    id.append(".").append(registryVersion.substr(0, registryVersion.rfind('.')));
    return id.append(".").append(message.messageId);
}

const char* redfishName(Severity severity) {
    switch (severity) {
    case Severity::critical:
        return "Critical";
    case Severity::warning:
        return "Warning";
    case Severity::other:
        break;
    }
    return "OK";
}

} // namespace tavrisk::tools
