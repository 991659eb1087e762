// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sdbusplus/server/interface.hpp"
#include "sdbusplus/server/object.hpp"
