// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/sqlite.hpp"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tavrisk::zel {

struct Entry;

/** Events that did not become entries, by cause. */
using Losses = std::map<std::string, std::int64_t>;

/** Counts entries by message, severity and device, over the whole life of a database, and those
 *  of them that were dropped. */
class Totals {
public:
    explicit Totals(const Connection& connection);

    void count(const std::vector<const Entry*>& entries);
    /** One that the cap has dropped, and its number. */
    void countDropped(const Entry& entry, std::int64_t sequence) { count(entry, 0, sequence); }

private:
    void count(const Entry& like, std::int64_t recorded, std::int64_t dropped);
    bool addTo(std::string_view messageId, std::int64_t severity, std::string_view device);

    Statement device_, add_, insert_;
};

void addLosses(const Connection& connection, const Losses& losses);

} // namespace tavrisk::zel
