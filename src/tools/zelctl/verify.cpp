// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"
#include "tools/zelctl/commands.hpp"

namespace tavrisk::tools {
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

Json::Value toJson(const std::string& path, const Findings& findings) {
    Json::Value value{Json::objectValue};
    value["database"] = path;
    value["ok"] = findings.problems.empty();
    value["entries"] = Json::Int64{findings.entries};
    value["problems"] = tools::toJson(findings.problems);
    return value;
}

} // namespace

Exit verify(const Log& log, const Arguments& arguments) {
    const bool missing = log.isYetToCome();
    const auto findings = missing ? Findings{} : check(log.path());
    if (arguments.json()) {
        putLine(jsonLine(toJson(log.path(), findings)));
    } else if (findings.problems.empty()) {
        putLine(harmless(log.path()) +
                (missing ? ": no entry yet"
                         : ": all is well; entries: " + std::to_string(findings.entries)));
    } else {
        for (const auto& text : findings.problems) {
            putLine(harmless(text));
        }
    }
    return findings.problems.empty() ? Exit::done : Exit::failed;
}

} // namespace tavrisk::tools
