// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>

namespace tavrisk::zel {

/**
 * Sees what others do to the files of a database while it is open: SQLite itself goes on writing
 * into files that were emptied or have lost their names. Has files of its own open, so it must be
 * gone last: closing them takes away the locks that SQLite has in this process.
 */
class Guard {
public:
    enum class State {
        sound,
        doubtful, // to be opened, and looked through, anew
        removed,  // no name leads to what is open here, and nothing else has its name
        moved,    // as above, but it has another name
        replaced, // another database has the name
        damaged
    };

    /** Of a database that SQLite has opened, in the mode with a write-ahead log, and has read. */
    explicit Guard(const std::string& path);

    /** Makes the `-shm` file as long again as SQLite has mapped it: touched behind its end, it ends
     *  the process. */
    void growSharedMemory();

    /** Has the disk keep that much for the write-ahead log. */
    void reserveLog(off_t size) const;

    /** What has become of the files. Other processes may be writing meanwhile. */
    State look();

    /** As of the last look: pages in the write-ahead log, and whether the database has them all. */
    [[nodiscard]] std::uint32_t pagesInLog() const { return pagesInLog_; }
    [[nodiscard]] bool isCheckpointed() const { return isCheckpointed_; }

    /** Gives copies of what has lost its name that name. Raises std::system_error. */
    void putBack() const;

private:
    class File {
    public:
        explicit File(std::string path);
        ~File();
        File(const File&) = delete;
        File& operator=(const File&) = delete;

        [[nodiscard]] const std::string& path() const { return path_; }
        [[nodiscard]] int descriptor() const { return descriptor_; }
        [[nodiscard]] struct stat status() const;
        /** What has its name now; of no file, the size is 0. */
        [[nodiscard]] struct stat named() const;
        [[nodiscard]] bool hasItsName() const;
        [[nodiscard]] bool read(void* to, std::size_t size, off_t at) const;
        void putBack() const;

    private:
        std::string path_;
        int descriptor_;
        struct stat opened_ {}; // asked for once: its device and number stay as they are
    };

    using Header = std::array<unsigned char, 100>;

    [[nodiscard]] State lookAtNames() const;
    [[nodiscard]] State lookAtLog();
    State lookAtDatabase();

    File database_, log_, index_;
    off_t sharedMemory_ = 0; // the size that was seen
    Header header_{};        // of the database, when it was last sound
    struct stat status_ {};  // as well
    std::uint32_t pagesInLog_ = 0;
    bool isCheckpointed_ = false;
};

} // namespace tavrisk::zel
