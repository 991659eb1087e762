// SPDX-License-Identifier: Apache-2.0
#include "tools/tavriskctl/options.hpp"
#include "tools/tavriskctl/report.hpp"

#include <exception>
#include <iostream>

using tavrisk::ctl::Exit;

namespace {

Exit run(int argc, char** argv) {
    tavrisk::ctl::Options options;
    try {
        tavrisk::ctl::parseCommandLine(argc, argv, options);
        return options.command != nullptr ? options.command(options) : Exit::accepted;
    } catch (const tavrisk::ctl::Failure& failure) {
        tavrisk::ctl::reportFailure(options, failure);
        return failure.status();
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        Exit status = run(argc, argv);
        if (!std::cout.flush()) {
            std::cerr << "tavriskctl: the output could not be written\n";
            status = std::max(status, Exit::refused);
        }
        return static_cast<int>(status);
    } catch (const std::exception& e) {
        std::cerr << "tavriskctl: " << e.what() << "\n";
        return static_cast<int>(Exit::refused);
    }
}
