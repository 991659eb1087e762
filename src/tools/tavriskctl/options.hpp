// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/tavriskctl/exit.hpp"

#include <chrono>
#include <string>
#include <vector>

namespace tavrisk::ctl {

/** What the command line asks for. */
struct Options {
    using Command = Exit (*)(const Options&);

    /** Null when everything asked for was the help or the version, which have been printed. */
    Command command = nullptr;
    std::string commandName;
    bool json = false;
    /** "system", "session" or a D-Bus address. */
    std::string bus = "system";
    /** How long a call may take; 0 for no limit. */
    std::chrono::microseconds timeout{0};
    std::vector<std::string> files;
    /** The name that `save` keeps its file under. */
    std::string name;
    /** What `explain` is to take its files for, "event" or "cper"; empty to tell by their bytes. */
    std::string kind;
    /** Whether `explain` shows all that a record says. */
    bool verbose = false;
    std::string property;
    std::string value;
};

/** Reads the command line into `options`. Raises Failure with Exit::usage for one that cannot be
 *  understood; its command's name is then set if there was one. */
void parseCommandLine(int argc, char** argv, Options& options);

} // namespace tavrisk::ctl
