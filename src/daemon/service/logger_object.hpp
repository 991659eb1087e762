// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "daemon/interface/server.hpp"

#include <sdbusplus/server.hpp>

#include <cstdint>
#include <string>
#include <vector>

/** The daemon's one D-Bus object: hands every method of the interface to its handler and folds the
 *  handler's result into what the caller gets. */
class Tavrisk final
    : public sdbusplus::server::object::object<sdbusplus::server::com::vorn::bmc::Tavrisk> {
public:
    /** Registers and announces the object; raises SdBusError when the bus refuses either. */
    using object::object;
    ~Tavrisk() override = default;

    std::int32_t log(std::string validationString,
                     std::vector<std::uint8_t> logDataBuffer) override;
    std::int32_t save(std::string validationString,
                      std::vector<std::uint8_t> logDataBuffer) override;
    std::int32_t cPERlog(std::string validationString,
                         std::vector<std::uint8_t> logDataBuffer) override;
    std::int32_t saveAndClearCache() override;
};
