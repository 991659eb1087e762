// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/retention/files.hpp"
#include "platform/retention/stage.hpp"

#include <cstddef>

namespace tavrisk::retention {

/** Keeps the bytes that are written and not on the medium yet to 16 MiB, so that no sync takes long
 *  and what was saved when the time is over counts. */
class Pace {
public:
    static constexpr std::size_t most = std::size_t{16} << 20;

    /** Does not own the directory, which is anyone of the file system. */
    explicit Pace(int store) : store_{store} {}

    /** To be called before that many bytes are written. */
    void writing(std::size_t bytes);
    /** Waits until all that was written is on the medium. */
    void sync();

private:
    int store_;
    std::size_t unsynced_ = 0;
};

/**
 * A copy of one file, without a name until it is placed. Where the file system has no files without
 * names, it is in the stage until then. Goes away with the instance unless it was placed.
 *
 * All but the destructor raise std::system_error.
 */
class Copy {
public:
    /** Begins the copy, for a directory of the store, which it does not own. */
    Copy(int directory, File source);
    ~Copy();
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    /** Copies contents, mode and times, and the owner where that may be. */
    void fill(const Descriptor& source, Pace& pace);
    /** To be called when it is said to be on the medium: raises the error if it is not. */
    void checkWritten() const;
    /** Gives it its name, in place of whatever file has that. */
    void place();

    const File& source() const { return source_; }
    ino_t inode() const { return statusOf(file_).st_ino; }

private:
    void copyRange(int source, off_t begin, off_t end, Pace& pace) const;
    bool link();
    void leaveStage();

    int directory_;
    File source_;
    Stage stage_;
    Descriptor file_;
    Descriptor staged_; // The stage's directory that it is in.
};

} // namespace tavrisk::retention
