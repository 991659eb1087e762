// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/common/command_line.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tavrisk::tools {

/** Figures for Prometheus, in the text form 0.0.4 that it and the collector of text files read. */
class Metrics {
public:
    struct Sample {
        std::int64_t value;
        std::vector<std::pair<const char*, std::string>> labels{};
    };

    /** Adds figures of one name, in an order of their labels that does not change from run to run.
     *  Values of the same labels become one, their sum: Prometheus refuses all of a text that has
     *  one of them twice. Without samples there is nothing to add. */
    void add(const char* name, const char* type, const char* help,
             const std::vector<Sample>& samples);
    void addGauge(const char* name, const char* help, std::int64_t value);

    /** Writes them to where --to says, or to standard output. A file is there whole or as it was
     *  before, whoever looks and whatever happens. Raises Failure, or as put() does. */
    void write(const Arguments& arguments) const;

private:
    std::string text_;
};

} // namespace tavrisk::tools
