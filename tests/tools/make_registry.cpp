// SPDX-License-Identifier: Apache-2.0
// Prints the message registry of the catalogue in JSON.
#include "records/catalogue.hpp"
#include "tools/common/output.hpp"
#include "tools/zelctl/redfish/registry.hpp"

using namespace tavrisk;
using namespace tavrisk::tools;

namespace {

Json::Value registered(const CatalogueMessage& message) {
    const auto& row = registryMessageOf(message);
    Json::Value object;
    object["Description"] = row.description;
    object["Message"] = messageAbout(message, "%1");
    object["MessageSeverity"] = redfishName(row.severity);
    object["Severity"] = redfishName(row.severity); // as clients of older registries read it
    object["NumberOfArgs"] = 1;
    object["ParamTypes"].append("string");
    object["ArgDescriptions"].append("What the message is about, such as a device or a sensor");
    object["Resolution"] = row.resolution;
    return object;
}

} // namespace

int main() {
    const std::string prefix{registryPrefix};
    const std::string version{registryVersion};
    Json::Value registry;
    registry["@odata.type"] = "#MessageRegistry.v1_4_0.MessageRegistry";
    registry["Id"] = prefix + "." + version;
    registry["Name"] = "OSKA Message Registry";
    registry["Language"] = "en";
    registry["Description"] = "Messages of the platform event log (ZEL)";
    registry["RegistryPrefix"] = prefix;
    registry["RegistryVersion"] = version;
    registry["OwningEntity"] = "tavrisk";
    for (const auto& message : catalogue) {
        registry["Messages"][message.messageId] = registered(message);
    }
    putLine(jsonLine(registry));
}
