// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string_view>

namespace tavrisk::tools {

/** The program of that name between us and a file. */
class Gzip {
public:
    /** Raises Failure when it cannot be started. */
    explicit Gzip(int output);
    /** Ends it where it was not finished. */
    ~Gzip();
    Gzip(const Gzip&) = delete;
    Gzip& operator=(const Gzip&) = delete;

    /** Raises Failure when it has ended before its time. */
    void write(std::string_view bytes);
    /** Waits until all is in the file; raises Failure when it is not. */
    void finish();

private:
    void closeInput();
    [[nodiscard]] int wait();

    pid_t pid_ = -1;
    int input_ = -1;
};

} // namespace tavrisk::tools
