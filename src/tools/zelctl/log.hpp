// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/reader.hpp"

/** The event log's own words, which all of this tool speaks. */
namespace tavrisk::zelctl {

using zel::Filter;
using zel::Health;
using zel::LogEntry;
using zel::LogReader;
using zel::name;
using zel::Severity;

} // namespace tavrisk::zelctl
