// SPDX-License-Identifier: Apache-2.0
#include "tools/zelctl/verify.hpp"

#include "tools/zelctl/output.hpp"
#include "tools/zelctl/render.hpp"

namespace tavrisk::zelctl {
namespace {

struct Findings {
    std::int64_t entries = 0;
    std::vector<std::string> problems;
};

Findings check(const std::string& path) {
    Findings findings;
    try {
        const auto reader = LogReader::open(path);
        findings.problems = reader.findDamage();
        findings.entries = reader.health().entries;
    } catch (const zel::Unreadable& problem) {
        findings.problems.emplace_back(problem.what());
    } catch (const zel::SqliteError& error) {
        findings.problems.emplace_back(error.what());
    }
    return findings;
}

void putJson(const std::string& path, const Findings& findings) {
    Json::Value value{Json::objectValue};
    value["database"] = path;
    value["ok"] = findings.problems.empty();
    value["entries"] = Json::Int64{findings.entries};
    value["problems"] = Json::arrayValue;
    for (const auto& text : findings.problems) {
        value["problems"].append(text);
    }
    putLine(jsonLine(value));
}

} // namespace

bool verify(const std::string& path, bool missing, const Options& options) {
    const auto findings = missing ? Findings{} : check(path);
    if (options.json) {
        putJson(path, findings);
    } else if (findings.problems.empty()) {
        putLine(path + (missing ? ": no entry yet"
                                : ": all is well; entries: " + std::to_string(findings.entries)));
    } else {
        for (const auto& text : findings.problems) {
            putLine(harmless(text));
        }
    }
    return findings.problems.empty();
}

} // namespace tavrisk::zelctl
