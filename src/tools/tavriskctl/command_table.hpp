// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/tavriskctl/options.hpp"

#include <array>
#include <climits>

namespace tavrisk::ctl {

/** A command as the user gives it. */
struct CommandRow {
    const char* name;
    const char* operands;
    int fewestOperands;
    int mostOperands;
    Options::Command run;
    /** How long a call may take by default; 0 for a command that makes none. */
    std::chrono::seconds timeout;
    const char* summary;
};
extern const std::array<CommandRow, 8> commandRows;

/** Beyond all characters, so that getopt tells an option's long name from a letter. */
enum OptionKey {
    optionJson = 256,
    optionBus,
    optionTimeout,
    optionAs,
    optionVerbose,
    optionHelp,
    optionVersion,
};

struct OptionRow {
    const char* name;
    /** What stands for its value in the help; null when it takes none. */
    const char* value;
    OptionKey key;
    /** The one command that takes it; null when every one does. */
    Options::Command command;
    const char* help;
};
extern const std::array<OptionRow, 7> optionRows;

/** Prints the help of a command, or the program's when `command` is null. */
void printHelp(const CommandRow* command);

} // namespace tavrisk::ctl
