// SPDX-License-Identifier: Apache-2.0
// What every test includes, compiled once.
#include "../world.hpp"
