// SPDX-License-Identifier: Apache-2.0
#include "tools/common/output.hpp"
#include "tools/zelctl/commands.hpp"
#include "tools/zelctl/entry_text.hpp"
#include "zel/files.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tavrisk::tools {
namespace {

/** A file that was not there before: nobody's copy is written over. */
void make(const std::string& path) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is one thread
        throw Failure{Exit::failed, path + ": " + std::strerror(errno)};
    }
    close(file);
}

/** Copies, and reads the copy again; how many entries it has. */
std::int64_t copy(const LogReader& reader, const std::string& path) {
    reader.copyTo(path);
    zel::Directory{std::filesystem::path{path}.parent_path()}.sync();
    const auto copied = LogReader::open(path);
    if (const auto damage = copied.findDamage(); !damage.empty()) {
        throw Failure{Exit::failed, path + " is no good copy: " + damage.front()};
    }
    return copied.health().entries;
}

} // namespace

Exit backup(const Log& log, const Arguments& arguments) {
    const auto& path = arguments.operands.front();
    const auto reader = log.open();
    if (!reader) {
        throw Failure{Exit::failed, "there are no entries yet"};
    }
    make(path);
    try {
        const auto entries = copy(*reader, path);
        putLine(harmless(path) + ": " + countText(entries, "entry", "entries") + ", checked");
    } catch (...) {
        unlink(path.c_str());
        throw;
    }
    return Exit::done;
}

} // namespace tavrisk::tools
