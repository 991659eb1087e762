// SPDX-License-Identifier: Apache-2.0
#include "records/cper_section.hpp"

const std::array<std::string, 4> knownSectionTypes{
    "f244526d1227ec11bea7cb3fdb95c786",
    "1411bca5646fde4eb8633e83ed7c83b1",
    "54e995d9c1bb0f43ad91b44dcb3c6f35",
    "163d9ee111bce4119caac2051d5d46b0",
};

const std::map<std::int32_t, std::string> cperSeverityNames{
    {0, "Warning"},
    {1, "Critical"},
    {2, "OK"},
    {3, "Warning"},
};
