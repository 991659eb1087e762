// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "zel/store.hpp"

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrisk::zel {

/** What waits in a spill file. */
struct Waiting {
    std::int64_t entries = 0;
    Losses losses;
    std::int64_t lossesMark = 0; // what isTold() looks for
    std::string writtenAt;       // UTC, the last time

    /** Whether a database that remembers this has been told of the losses. */
    [[nodiscard]] bool isTold(std::int64_t mark) const;
};

/**
 * Entries and losses that the database cannot take yet, in a file of a fixed size beside it, whose
 * space is taken beforehand. What is in it belongs to a generation, which ends when the database
 * has taken all; with the generation's number, a database remembers how far it got, and which
 * losses it was told of.
 *
 * The file, in the byte order of the machine: two places for its header, 512 bytes each, of which
 * the whole one with the higher serial number counts, and from 4096 on the records, one behind the
 * other, up to the first that is not whole or of an earlier generation.
 *
 * A file that cannot be opened or written has no room. Several processes may use one.
 */
class Spill {
public:
    /** Of the database at `path`. */
    explicit Spill(const std::string& path) : path_{path + ".spill"} {}
    ~Spill();
    Spill(const Spill&) = delete;
    Spill& operator=(const Spill&) = delete;

    /** Looks at a spill without making or changing it. */
    static Waiting look(const std::string& path);

    [[nodiscard]] const std::string& path() const { return path_; }

    /** Makes the file where there is none, as large as there is room. */
    [[nodiscard]] bool isEmpty();

    /** Adds entries behind those that wait, all or none, on the disk. False when there is no room.
     */
    bool add(std::span<const Entry> entries);

    /** Counts events that nothing has room for. False when there is nothing to count in. */
    bool count(const std::string& cause, std::int64_t events);

    /** The entries and losses of a generation, in pieces. Keeps other processes out meanwhile. */
    class Reading {
    public:
        explicit Reading(Spill& spill);
        ~Reading();
        Reading(const Reading&) = delete;
        Reading& operator=(const Reading&) = delete;

        /** What a database has remembered of its last piece: goes on behind that if it is of this
         *  generation. */
        void goOnBehind(std::int64_t mark);
        /** To be remembered with a piece. */
        [[nodiscard]] std::int64_t mark() const;

        /** The next entries, so many as one transaction is to have. */
        std::vector<Entry> next();
        /** Whether there are no more. */
        [[nodiscard]] bool isAtEnd() const;
        [[nodiscard]] const Losses& losses() const { return losses_; }

        /** The database has all of it. */
        void finish();

    private:
        Spill& spill_;
        std::uint64_t generation_ = 0;
        std::uint64_t serial_ = 0;
        Losses losses_;
        off_t at_;
    };

private:
    struct Header;
    struct Record;

    bool open();
    [[nodiscard]] off_t size() const;
    [[nodiscard]] Header header() const;
    [[nodiscard]] bool write(Header header) const;
    [[nodiscard]] bool begin(Header header) const;
    [[nodiscard]] std::optional<Entry> read(off_t& at, std::uint64_t generation) const;
    [[nodiscard]] off_t end(std::uint64_t generation);
    static Losses losses(const Header& header);

    std::string path_;
    int file_ = -1;
    // Where the records of a generation were seen to end, at least.
    std::uint64_t generation_ = 0;
    off_t end_ = 0;
};

} // namespace tavrisk::zel
