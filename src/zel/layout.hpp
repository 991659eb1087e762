// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/sqlite.hpp"

#include <cstdint>
#include <exception>

/** The database behind the embedded event log. Here, its layout. */
namespace tavrisk::zel {

/** A database that is left alone, for fear of destroying what it holds. */
class Refused final : public std::exception {
public:
    enum class Reason { newer, damaged };

    explicit Refused(Reason reason) : reason_{reason} {}
    [[nodiscard]] Reason reason() const noexcept { return reason_; }
    [[nodiscard]] const char* what() const noexcept override {
        return reason_ == Reason::newer ? "written by a later version" : "damaged";
    }

private:
    Reason reason_;
};

/** The layout this version writes; `PRAGMA user_version` holds the layout of a database. */
extern const std::int64_t schemaVersion;

/** The layout of an open database, 0 for an empty one. Raises Refused for a later layout and for a
 *  database of something else. Reads no more than it must: damaged pages show when they are read.
 */
std::int64_t schemaVersionOf(const Connection& connection);

/** The same after a look at all pages: Refused also says that they do not hold together. */
std::int64_t checkedSchemaVersion(const Connection& connection);

/** Brings a database that has been checked up to the layout this version writes. */
void bringUpToDate(const Connection& connection);

/** The same within a transaction of the caller's. */
void climb(const Connection& connection);

} // namespace tavrisk::zel
