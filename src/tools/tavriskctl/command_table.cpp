// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/command_table.hpp"

#include "tools/tavriskctl/commands.hpp"

#include <iomanip>
#include <iostream>
#include <string_view>

using namespace std::chrono_literals;

namespace tavrisk::ctl {

// `clear`: saving and three clearings have five minutes each; one more for what comes before.
const std::array<CommandRow, 8> commandRows{{
    {"log", "FILE...", 1, INT_MAX, logEvents, 60s, "hand in JSON event records"},
    {"cper", "FILE...", 1, INT_MAX, logCpers, 60s, "hand in UEFI CPERs"},
    {"save", "NAME FILE", 2, 2, save, 60s, "have a file kept under a name"},
    {"clear", "", 0, 0, clear, 21min, "have the data cache saved and emptied"},
    {"status", "", 0, 0, status, 25s, "show the daemon, its settings and its data"},
    {"set", "PROPERTY VALUE", 2, 2, set, 25s, "change a setting"},
    {"monitor", "", 0, 0, monitor, 25s, "show changes as they come, until interrupted"},
    {"explain", "FILE...", 1, INT_MAX, explain, 0s,
     "say without a daemon what records tell, and what would become of them"},
}};

const std::array<OptionRow, 7> optionRows{{
    {"json", nullptr, optionJson, nullptr, "one JSON object per line instead of text"},
    {"bus", "BUS", optionBus, nullptr, "system (the default), session or a D-Bus address"},
    {"timeout", "SECONDS", optionTimeout, nullptr,
     "longest wait for a reply, 0 for ever; default "},
    {"as", "KIND", optionAs, explain,
     "for explain: event or cper; by default, what the file begins like"},
    {"verbose", nullptr, optionVerbose, explain, "for explain: all that a CPER says"},
    {"help", nullptr, optionHelp, nullptr, "show this help, or that of a command; -h for short"},
    {"version", nullptr, optionVersion, nullptr, "show the version"},
}};

namespace {

constexpr auto usage = R"(Usage: tavriskctl [OPTION]... COMMAND

Hands event records, CPERs and data to the tavrisk daemon, and looks after it.

Commands:
)";

constexpr auto fileHelp = "FILE - is standard input.\n";
constexpr auto propertyHelp = "PROPERTY is SystemLEDSetting, a text, or RetentionSizeInMB or "
                              "RetentionIntervalInMinutes,\na number from 0 to 255.\n";

constexpr auto exitStatusHelp = R"(
Exit status: 0 accepted; 1 refused, or a file could not be read or sent; 2 wrong usage;
3 the daemon could not be reached. Of several files the worst result counts.
)";

void printRow(const std::string& label, const std::string& text) {
    std::cout << "  " << std::left << std::setw(19) << label << "  " << text << "\n";
}

/** Whether the command, or any when `command` is null, makes something of the option. */
bool isOfUse(const OptionRow& row, const CommandRow* command) {
    const bool needsBus = row.key == optionBus || row.key == optionTimeout;
    return command == nullptr || ((row.command == nullptr || row.command == command->run) &&
                                  !(needsBus && command->timeout == 0s));
}

void printOption(const OptionRow& row, const CommandRow* command) {
    const std::string value{row.value != nullptr ? std::string{"="} + row.value : ""};
    std::string help{row.help};
    if (row.key == optionTimeout) {
        help += command != nullptr ? std::to_string(command->timeout.count())
                                   : "depends on COMMAND, see its help";
    }
    printRow("--" + (row.name + value), help);
}

} // namespace

void printHelp(const CommandRow* command) {
    if (command != nullptr) {
        std::cout << "Usage: tavriskctl " << command->name << " [OPTION]..."
                  << (command->mostOperands == 0 ? "" : " ") << command->operands << "\n\nTo "
                  << command->summary << ".\n";
        const std::string_view operands{command->operands};
        std::cout << (operands.find("FILE") != std::string_view::npos ? fileHelp : "")
                  << (operands.find("PROPERTY") != std::string_view::npos ? propertyHelp : "");
    } else {
        std::cout << usage;
        for (const auto& row : commandRows) {
            printRow(std::string{row.name} + " " + row.operands, row.summary);
        }
    }
    std::cout << "\nOptions:\n";
    for (const auto& row : optionRows) {
        if (isOfUse(row, command)) {
            printOption(row, command);
        }
    }
    std::cout << exitStatusHelp;
}

} // namespace tavrisk::ctl
