// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/options.hpp"

#include "tools/tavriskctl/command_table.hpp"
#include "tools/tavriskctl/commands.hpp"

#include <getopt.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>
#include <span>

namespace tavrisk::ctl {
namespace {

/** The options given, by key, with their values; of one that is repeated, the last. */
using Given = std::map<int, std::string>;

[[noreturn]] void failUsage(const std::string& sentence) {
    throw Failure{Exit::usage, sentence};
}

/** Takes the options, wherever they stand; what is left of the command line are its operands. */
std::span<char*> takeOptions(int argc, char** argv, Given& given) {
    std::array<option, optionRows.size() + 1> names{};
    std::transform(optionRows.begin(), optionRows.end(), names.begin(), [](const OptionRow& row) {
        return option{row.name, row.value != nullptr ? required_argument : no_argument, nullptr,
                      row.key};
    });
    opterr = 0;
    for (int key = 0; (key = getopt_long(argc, argv, ":h", names.data(), nullptr)) != -1;) {
        if (key == ':') {
            failUsage(std::string{argv[optind - 1]} + " needs a value");
        }
        if (key == '?') {
            const bool isLetter = optopt != 0 && optopt < optionJson;
            failUsage("there is no option '" +
                      (isLetter ? std::string{'-', static_cast<char>(optopt)} : argv[optind - 1]) +
                      "'");
        }
        given[key == 'h' ? optionHelp : key] = optarg != nullptr ? optarg : "";
    }
    return {argv + optind, argv + argc};
}

const CommandRow* findCommand(const std::string& name) {
    const auto* row = std::find_if(commandRows.begin(), commandRows.end(),
                                   [&name](const CommandRow& known) { return known.name == name; });
    if (row == commandRows.end()) {
        failUsage("there is no command '" + name + "'");
    }
    return row;
}

std::chrono::microseconds parseTimeout(const std::string& text) {
    constexpr double aYear = 365.0 * 24 * 60 * 60;
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0 && seconds <= aYear)) {
        failUsage("--timeout takes a number of seconds, a year's at most, not '" + text + "'");
    }
    return std::chrono::microseconds{static_cast<std::int64_t>(std::ceil(seconds * 1e6))};
}

void apply(const Given& given, const CommandRow& command, Options& options) {
    for (const auto& row : optionRows) {
        if (given.contains(row.key) && row.command != nullptr && row.command != command.run) {
            failUsage(std::string{command.name} + " has no option --" + row.name);
        }
    }
    options.timeout = given.contains(optionTimeout) ? parseTimeout(given.at(optionTimeout))
                                                    : std::chrono::microseconds{command.timeout};
    if (given.contains(optionBus)) {
        options.bus = given.at(optionBus);
        if (options.bus != "system" && options.bus != "session" &&
            options.bus.find(':') == std::string::npos) {
            failUsage(
                "--bus takes system, session or an address such as unix:path=/run/bus, not '" +
                options.bus + "'");
        }
    }
    options.verbose = given.contains(optionVerbose);
    if (given.contains(optionAs)) {
        options.kind = given.at(optionAs);
        if (options.kind != "event" && options.kind != "cper") {
            failUsage("--as takes event or cper, not '" + options.kind + "'");
        }
    }
}

void apply(std::span<char*> operands, const CommandRow& command, Options& options) {
    const auto count = static_cast<int>(operands.size());
    if (count < command.fewestOperands) {
        failUsage(std::string{command.name} + " needs " + command.operands);
    }
    if (count > command.mostOperands) {
        failUsage(std::string{command.name} + " takes " +
                  (command.mostOperands == 0 ? "no operands" : command.operands));
    }
    if (command.run == set) {
        options.property = operands[0];
        options.value = operands[1];
        return;
    }
    if (command.run == save) {
        options.name = operands[0];
        operands = operands.subspan(1);
    }
    options.files.assign(operands.begin(), operands.end());
}

} // namespace

void parseCommandLine(int argc, char** argv, Options& options) {
    Given given;
    const auto words = takeOptions(argc, argv, given);
    const CommandRow* command = words.empty() ? nullptr : findCommand(words.front());
    options.commandName = command != nullptr ? command->name : "";
    options.json = given.contains(optionJson);
    if (given.contains(optionHelp)) {
        printHelp(command);
    } else if (given.contains(optionVersion)) {
        std::cout << "tavriskctl " TAVRISK_VERSION "\n";
    } else if (command == nullptr) {
        failUsage("which command?");
    } else {
        apply(given, *command, options);
        apply(words.subspan(1), *command, options);
        options.command = command->run;
    }
}

} // namespace tavrisk::ctl
