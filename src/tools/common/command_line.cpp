// SPDX-License-Identifier: Apache-2.0
#include "tools/common/command_line.hpp"

#include "tools/common/output.hpp"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <exception>
#include <iostream>

namespace tavrisk::tools {
namespace {

using OptionRows = std::vector<OptionRow>;

OptionRows optionsOf(const Program& program) {
    OptionRows rows{program.options.begin(), program.options.end()};
    rows.push_back({"help", 'h', nullptr, "show this help, or that of a command", true});
    rows.push_back({"version", 0, nullptr, "show the version", true});
    return rows;
}

bool isNamed(std::string_view names, std::string_view name) {
    while (!names.empty()) {
        const auto end = std::min(names.find(' '), names.size());
        if (names.substr(0, end) == name) {
            return true;
        }
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    return false;
}

// --- Help ---

void putRow(const std::string& label, const std::string& text) {
    putLine("  " + padded(label, 19) + "  " + text);
}

void putOption(const OptionRow& row) {
    putRow(std::string{"--"} + row.name +
               (row.value != nullptr ? std::string{"="} + row.value : ""),
           row.help + (row.letter != 0 ? std::string{"; -"} + row.letter + " for short" : ""));
}

void putOverview(const Program& program) {
    putLine(std::string{"Usage: "} + program.name + " [OPTION]... COMMAND\n\n" + program.purpose +
            "\n\nCommands:");
    for (const auto& row : program.commands) {
        putRow(std::string{row.name} + " " + row.operands, row.summary);
    }
    putRow("help [COMMAND]", "show this help, or that of a command");
}

void putUsage(const Program& program, const CommandRow& command) {
    putLine(std::string{"Usage: "} + program.name + " " + command.name + " [OPTION]..." +
            (command.mostOperands == 0 ? "" : " ") + command.operands + "\n\nTo " +
            command.summary + ".");
}

/** The help of a command, or the program's when `command` is null. */
void putHelp(const Program& program, const CommandRow* command) {
    command != nullptr ? putUsage(program, *command) : putOverview(program);
    put(command != nullptr ? command->notes : "");
    putLine("\nOptions:");
    for (const auto& row : optionsOf(program)) {
        if (command == nullptr || isNamed(command->options, row.name) ||
            isNamed("help version", row.name)) {
            putOption(row);
        }
    }
    if (command == nullptr && *program.notes != '\0') {
        put(std::string{"\n"} + program.notes);
    }
    put(std::string{"\n"} + program.exitStatus);
}

// --- Reading the command line ---

/** Beyond all characters, so that getopt tells an option's long name from a letter. */
constexpr int firstKey = 256;

const OptionRow& findOption(const OptionRows& rows, int key) {
    return key >= firstKey ? rows.at(static_cast<std::size_t>(key - firstKey))
                           : *std::find_if(rows.begin(), rows.end(), [key](const OptionRow& row) {
                                 return row.letter == key;
                             });
}

/** Takes the options, wherever they stand; what is left of the command line are its operands. */
void takeWords(const OptionRows& rows, int argc, char** argv, Arguments& arguments) {
    std::vector<option> names;
    std::string letters{":"};
    for (const auto& row : rows) {
        const int key = firstKey + static_cast<int>(names.size());
        names.push_back({row.name, row.value != nullptr ? 1 : 0, nullptr, key});
        letters +=
            row.letter != 0 ? std::string{row.letter} + (row.value != nullptr ? ":" : "") : "";
    }
    names.push_back({});
    opterr = 0;
    // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
    for (int key = 0;
         (key = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1;) {
        if (key == ':') {
            failUsage(std::string{argv[optind - 1]} + " needs a value");
        }
        if (key == '?') {
            const bool isLetter = optopt != 0 && optopt < firstKey;
            failUsage("there is no option '" +
                      (isLetter ? std::string{'-', static_cast<char>(optopt)} : argv[optind - 1]) +
                      "'");
        }
        arguments.options[findOption(rows, key).name].emplace_back(optarg != nullptr ? optarg : "");
    }
    arguments.operands.assign(argv + optind, argv + argc);
}

std::string takeFirst(std::vector<std::string>& words) {
    auto first = words.front();
    words.erase(words.begin());
    return first;
}

const CommandRow& findCommand(const Program& program, const std::string& name) {
    const auto row = std::find_if(program.commands.begin(), program.commands.end(),
                                  [&name](const CommandRow& known) { return known.name == name; });
    if (row == program.commands.end()) {
        failUsage("there is no command '" + name + "'");
    }
    return *row;
}

void check(const Arguments& arguments, const CommandRow& command, const OptionRows& rows) {
    for (const auto& row : rows) {
        if (arguments.has(row.name) && !row.everywhere && !isNamed(command.options, row.name)) {
            failUsage(arguments.command + " has no option --" + row.name);
        }
    }
    const auto count = arguments.operands.size();
    if (count < command.fewestOperands) {
        failUsage(arguments.command + " needs " + command.operands);
    }
    if (count > command.mostOperands) {
        failUsage(arguments.command + " takes " +
                  (command.mostOperands == 0 ? "no operands" : command.operands));
    }
}

/** Does what the command line asks for; `arguments` become it. */
Exit obey(const Program& program, int argc, char** argv, Arguments& arguments) {
    const auto options = optionsOf(program);
    takeWords(options, argc, argv, arguments);
    auto& words = arguments.operands;
    const bool helpIsCommand = !words.empty() && words.front() == "help";
    if (helpIsCommand) {
        takeFirst(words);
    }
    const auto* command = words.empty() ? nullptr : &findCommand(program, takeFirst(words));
    arguments.command = command != nullptr ? command->name : "";
    if (helpIsCommand || arguments.has("help")) {
        putHelp(program, command);
    } else if (arguments.has("version")) {
        putLine(std::string{program.name} + " " TAVRISK_VERSION);
    } else if (command == nullptr) {
        failUsage("which command?");
    } else {
        check(arguments, *command, options);
        return command->run(arguments);
    }
    return Exit::done;
}

void complain(const Program& program, const char* sentence) {
    std::cerr << program.name << ": " << harmless(sentence) << "\n";
}

void complain(const Program& program, const Failure& failure, const std::string& command) {
    complain(program, failure.what());
    if (failure.status() == Exit::usage) {
        std::cerr << "Try '" << program.name << " " << command << (command.empty() ? "" : " ")
                  << "--help'.\n";
    }
}

} // namespace

std::optional<std::string> Arguments::value(std::string_view option) const {
    const auto found = options.find(option);
    return found != options.end() ? std::optional{found->second.back()} : std::nullopt;
}

std::vector<std::string> Arguments::values(std::string_view option) const {
    const auto found = options.find(option);
    return found != options.end() ? found->second : std::vector<std::string>{};
}

int run(const Program& program, int argc, char** argv) {
    // Output that nobody reads is noticed where it is written.
    std::signal(SIGPIPE, SIG_IGN);
    Arguments arguments;
    Exit status = Exit::done;
    std::optional<Failure> failure;
    try {
        try {
            status = obey(program, argc, argv, arguments);
        } catch (const Failure& raised) {
            failure = raised; // Told behind what was put out before it.
        }
        flushOutput();
    } catch (const NobodyReads&) {
        status = Exit::done;
    } catch (const std::exception& error) {
        complain(program, error.what());
        status = Exit::failed;
    }
    if (failure) {
        complain(program, *failure, arguments.command);
        status = std::max(status, failure->status());
    }
    return static_cast<int>(status);
}

std::int64_t toNumber(std::string_view what, const std::string& text, std::int64_t least,
                      std::int64_t most) {
    std::int64_t value = 0;
    const auto* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stopped != end || value < least || value > most) {
        failUsage(std::string{what} + " takes a number from " + std::to_string(least) +
                  (most == INT64_MAX ? "" : " to " + std::to_string(most)) + ", not '" + text +
                  "'");
    }
    return value;
}

} // namespace tavrisk::tools
