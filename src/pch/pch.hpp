// SPDX-License-Identifier: Apache-2.0
// What most sources include, compiled once for each target that has many of them. Sources include
// what they use all the same: an optimised build is without it.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
