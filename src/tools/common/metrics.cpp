// SPDX-License-Identifier: Apache-2.0
#include "tools/common/metrics.hpp"

#include "text/utf8.hpp"
#include "tools/common/draft.hpp"

#include <sys/types.h>

#include <map>
#include <string_view>

namespace tavrisk::tools {
namespace {

/** A label's value between its quotes; text that is no UTF-8 would have all of it refused. */
std::string escaped(std::string_view value) {
    std::string result;
    while (!value.empty()) {
        const auto character = text::firstCharacter(value);
        if (!character.valid) {
            result += "\xef\xbf\xbd";
        } else if (character.codePoint == '\n') {
            result += "\\n";
        } else {
            result += character.codePoint == '"' || character.codePoint == '\\' ? "\\" : "";
            result += value.substr(0, character.length);
        }
        value.remove_prefix(character.length);
    }
    return result;
}

std::string textOf(const Metrics::Sample& sample) {
    std::string text;
    for (const auto& [name, value] : sample.labels) {
        text += (text.empty() ? "{" : ",") + std::string{name} + "=\"" + escaped(value) + "\"";
    }
    return text.empty() ? text : text + "}";
}

} // namespace

void Metrics::add(const char* name, const char* type, const char* help,
                  const std::vector<Sample>& samples) {
    std::map<std::string, std::int64_t> values;
    for (const auto& sample : samples) {
        values[textOf(sample)] += sample.value;
    }
    if (!values.empty()) {
        text_ +=
            std::string{"# HELP "} + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }
    for (const auto& [labels, value] : values) {
        text_ += name + labels + " " + std::to_string(value) + "\n";
    }
}

void Metrics::addGauge(const char* name, const char* help, std::int64_t value) {
    add(name, "gauge", help, {{value}});
}

void Metrics::write(const Arguments& arguments) const {
    constexpr mode_t everybodyReads = 0644; // whoever the collector is
    Draft draft{arguments.value("to").value_or("-"), everybodyReads};
    draft.write(text_);
    draft.finish();
}

} // namespace tavrisk::tools
