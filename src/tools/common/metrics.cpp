// SPDX-License-Identifier: Apache-2.0
#include "tools/common/metrics.hpp"

#include "text/utf8.hpp"
#include "tools/common/output.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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

/** A file that takes the place of another once it is whole. Collectors read what ends in ".prom",
 *  which its name does not. */
class Replacement {
public:
    explicit Replacement(const std::string& path) : path_{path}, name_{path + ".XXXXXX"} {
        struct stat status {};
        if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
            throw Failure{Exit::failed, path + ": is not a file"};
        }
        file_ = mkstemp(name_.data());
        check(file_ >= 0);
    }
    ~Replacement() {
        if (file_ >= 0) {
            close(file_);
            unlink(name_.c_str());
        }
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    void write(std::string_view text) const {
        while (!text.empty()) {
            const auto written = ::write(file_, text.data(), text.size());
            check(written > 0);
            text.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    void takePlace() {
        constexpr mode_t everybodyReads = 0644; // whoever the collector is
        check(fchmod(file_, everybodyReads) == 0);
        check(std::rename(name_.c_str(), path_.c_str()) == 0);
        close(file_);
        file_ = -1;
    }

private:
    void check(bool done) const {
        if (!done) {
            // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
            throw Failure{Exit::failed, path_ + ": " + std::strerror(errno)};
        }
    }

    std::string path_;
    std::string name_;
    int file_ = -1;
};

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
    const auto path = arguments.value("to");
    if (!path) {
        put(text_);
        return;
    }
    Replacement file{*path};
    file.write(text_);
    file.takePlace();
}

} // namespace tavrisk::tools
