// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace tavrisk::zel {

/** A failed SQLite call: its extended result code and the library's words for it. */
class SqliteError final : public std::exception {
public:
    SqliteError(int code, const char* message) : code_{code}, message_{message} {}

    /** The primary result code, such as SQLITE_BUSY. */
    [[nodiscard]] int code() const noexcept { return code_ & 0xff; }
    [[nodiscard]] int extendedCode() const noexcept { return code_; }
    [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

private:
    int code_;
    std::string message_;
};

/** A connection to one database file, used by one thread at a time. */
class Connection {
public:
    /** `flags` are those of sqlite3_open_v2. Raises SqliteError, as all that follows does. */
    Connection(const std::string& path, int flags);

    [[nodiscard]] sqlite3* get() const noexcept { return connection_.get(); }

    /** Runs statements that yield nothing. */
    void execute(const char* sql) const;

    /** The first value of the first row. */
    [[nodiscard]] std::int64_t queryInteger(const char* sql) const;
    [[nodiscard]] std::string queryText(const char* sql) const;

    /** Whether the path no longer leads to the file that is open. */
    [[nodiscard]] bool hasMoved() const;

private:
    struct Close {
        void operator()(sqlite3* raw) const noexcept { sqlite3_close_v2(raw); }
    };
    std::unique_ptr<sqlite3, Close> connection_;
};

/** A prepared statement; parameters and columns count as SQLite counts them, from 1 and from 0. */
class Statement {
public:
    Statement(const Connection& connection, std::string_view sql);

    /** `text` must live until the statement is stepped. */
    void bind(int parameter, std::string_view text);
    void bind(int parameter, std::int64_t number);

    /** False at the end of the rows. */
    bool step();
    /** Steps one that yields nothing, and resets it. */
    void run();
    void reset() noexcept { sqlite3_reset(statement_.get()); }

    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] bool isNull(int column) const;

private:
    void check(int result) const;

    struct Finalize {
        void operator()(sqlite3_stmt* raw) const noexcept { sqlite3_finalize(raw); }
    };
    std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/** A transaction, taken back unless it is committed. */
class Transaction {
public:
    enum class Kind { read, write };

    explicit Transaction(const Connection& connection, Kind kind = Kind::write)
        : connection_{&connection} {
        connection.execute(kind == Kind::write ? "BEGIN IMMEDIATE" : "BEGIN");
    }
    /** With statements for its begin and its commit that were prepared before. */
    Transaction(const Connection& connection, Statement& begin, Statement& commit)
        : connection_{&connection}, commit_{&commit} {
        begin.run();
    }
    ~Transaction();
    void commit();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

private:
    const Connection* connection_;
    Statement* commit_ = nullptr;
};

/** Does what `body` does, again after each `pause` while it fails with an error that may pass, and
 *  until the deadline. Returns what it returns, or raises what it raises last. */
template <typename MayPass, typename Body>
auto retryUntil(std::chrono::steady_clock::time_point deadline, std::chrono::milliseconds pause,
                MayPass mayPass, Body body) {
    for (;;) {
        try {
            return body();
        } catch (const SqliteError& error) {
            if (!mayPass(error) || std::chrono::steady_clock::now() > deadline) {
                throw;
            }
        }
        std::this_thread::sleep_for(pause);
    }
}

} // namespace tavrisk::zel
