// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/store.hpp"

#include <cstdint>
#include <string>

namespace tavrisk::zel {

enum class Acknowledged { now, before, missing };

/** Notes that somebody has seen to entries. Nothing is noted until it is committed. */
class Acknowledger {
public:
    /** `by` is who, `note` what else there is to say. Raises what opening a Store does. */
    Acknowledger(const std::string& path, std::string by, std::string note);

    Acknowledged acknowledge(std::int64_t sequence);
    /** All events that were lost so far. */
    void acknowledgeLosses();
    void commit() { transaction_.commit(); }

private:
    Store store_; // brings an older layout up to date
    std::string by_;
    std::string at_;
    std::string note_;
    Transaction transaction_;
    Statement find_, set_;
};

} // namespace tavrisk::zel
