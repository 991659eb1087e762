// SPDX-License-Identifier: Apache-2.0
#include "platform/mosslink/notice.hpp"

#include <paths.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string_view>

namespace tavrisk::zel {

// Not by syslog(): that waits for a system log that does not read.
void notice(const char* format, ...) noexcept {
    std::array<char, 1024> line{};
    const int head =
        std::snprintf(line.data(), line.size() / 2, "<%d>%s[%d]: ", LOG_USER | LOG_CRIT,
                      program_invocation_short_name, getpid());
    std::va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it begins in the line before
    std::vsnprintf(line.data() + head, line.size() - static_cast<std::size_t>(head), format,
                   arguments);
    va_end(arguments);

    sockaddr_un address{AF_UNIX, _PATH_LOG};
    const int log = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (log >= 0) {
        const std::string_view text{line.data()};
        sendto(log, text.data(), text.size(), MSG_NOSIGNAL,
               reinterpret_cast<const sockaddr*>(&address), sizeof address);
        close(log);
    }
}

} // namespace tavrisk::zel
