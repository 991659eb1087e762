// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "records/cper/tree.hpp"

#include <json/forwards.h>

#include <string>

namespace tavrisk::cper {

/** The members of an object line by line, each with a newline, parts set in by two blanks more than
 *  `indent`. All of it is printable ASCII. */
std::string toText(const Node& object, unsigned indent = 0);

/** The value of a node in JSON, as tavriskctl.schema.json promises. */
Json::Value toJson(const Node& node);

} // namespace tavrisk::cper
