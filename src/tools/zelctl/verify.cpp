// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/completeness.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "tools/zelctl/form.hpp"

namespace tavrisk::tools {
namespace {

struct Findings {
    std::int64_t entries = 0;
    std::vector<std::string> problems;
    std::string advice;
};

void lookForTheRest(Findings& findings, const Completeness& completeness, std::int64_t highest) {
    auto shortfall = completeness.lacksItsLog(highest);
    if (!shortfall) {
        shortfall = completeness.lacksEntries(highest);
    }
    if (shortfall) {
        findings.problems.push_back(shortfall->problem);
        findings.advice = shortfall->advice;
    }
}

Findings examine(const std::string& path) {
    Findings findings;
    try {
        const Completeness completeness{path};
        const auto reader = LogReader::open(path);
        findings.problems = reader.findDamage();
        findings.advice = findings.problems.empty()
                              ? ""
                              : "keep a copy ('zelctl backup'); the service repairs what keeps it "
                                "from writing with the next event";
        lookForTheRest(findings, completeness, reader.highest());
        findings.entries = reader.health().entries;
    } catch (const zel::Unreadable& problem) {
        findings.problems.emplace_back(problem.what());
        findings.advice = problem.isDamage() ? "with the next event the service sets it aside and "
                                               "takes over what can be read"
                                             : "";
    } catch (const zel::SqliteError& error) {
        findings.problems.emplace_back(error.what());
        findings.advice = "look at the disk; with the next event that cannot be written the "
                          "service sets the database aside and takes over what can be read";
    }
    return findings;
}

Json::Value jsonOf(const std::string& path, const Findings& findings) {
    Json::Value value{Json::objectValue};
    value["database"] = path;
    value["ok"] = findings.problems.empty();
    value["entries"] = Json::Int64{findings.entries};
    value["problems"] = tools::toJson(findings.problems);
    value["advice"] = findings.advice.empty() ? Json::Value{} : Json::Value{findings.advice};
    return value;
}

} // namespace

Exit verify(const Log& log, const Arguments& arguments) {
    const auto form = formOf(arguments);
    const bool missing = log.isYetToCome();
    const auto findings = missing ? Findings{} : examine(log.path());
    if (form != Form::text) {
        Records{form}.put(jsonOf(log.path(), findings));
    } else if (findings.problems.empty()) {
        putLine(harmless(log.path()) +
                (missing ? ": no entry yet"
                         : ": all is well; entries: " + std::to_string(findings.entries)));
    } else {
        for (const auto& text : findings.problems) {
            putLine(harmless(text));
        }
        if (!findings.advice.empty()) {
            putLine("What to do: " +
                    hanging(Style::ofStandardOutput(), 12, harmless(findings.advice) + "."));
        }
    }
    return findings.problems.empty() ? Exit::done : Exit::failed;
}

} // namespace tavrisk::tools
