// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tavrisk::zel {

/** The text with U+FFFD in place of every byte that is no part of a UTF-8 character. */
std::string toUtf8(std::string_view bytes);

/** A JSON array of the strings, valid whatever bytes they hold. */
std::string toJsonArray(std::span<const std::string_view> strings);

} // namespace tavrisk::zel
