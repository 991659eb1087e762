// SPDX-License-Identifier: Apache-2.0
#include "zel/sqlite.hpp"

namespace tavrisk::zel {
namespace {

sqlite3* open(const std::string& path, int flags) {
    sqlite3* opened = nullptr;
    // The extended codes tell apart what the primary ones lump together.
    const int result =
        sqlite3_open_v2(path.c_str(), &opened, flags | SQLITE_OPEN_EXRESCODE, nullptr);
    if (result != SQLITE_OK) {
        const std::string message =
            opened != nullptr ? sqlite3_errmsg(opened) : sqlite3_errstr(result);
        sqlite3_close_v2(opened);
        throw SqliteError{result, message.c_str()};
    }
    return opened;
}

} // namespace

Connection::Connection(const std::string& path, int flags) : connection_{open(path, flags)} {}

void Connection::execute(const char* sql) const {
    const int result = sqlite3_exec(get(), sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK) {
        throw SqliteError{result, sqlite3_errmsg(get())};
    }
}

std::int64_t Connection::queryInteger(const char* sql) const {
    Statement statement{*this, sql};
    return statement.step() ? statement.integer(0) : 0;
}

std::string Connection::queryText(const char* sql) const {
    Statement statement{*this, sql};
    return statement.step() ? statement.text(0) : std::string{};
}

bool Connection::hasMoved() const {
    int moved = 0;
    const int result = sqlite3_file_control(get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return result != SQLITE_OK || moved != 0;
}

Statement::Statement(const Connection& connection, std::string_view sql) {
    sqlite3_stmt* prepared = nullptr;
    const int result = sqlite3_prepare_v2(connection.get(), sql.data(),
                                          static_cast<int>(sql.size()), &prepared, nullptr);
    statement_.reset(prepared);
    if (result != SQLITE_OK) {
        throw SqliteError{result, sqlite3_errmsg(connection.get())};
    }
}

void Statement::bind(int parameter, std::string_view text) {
    check(sqlite3_bind_text64(statement_.get(), parameter, text.data(), text.size(), SQLITE_STATIC,
                              SQLITE_UTF8));
}

void Statement::bind(int parameter, std::int64_t number) {
    check(sqlite3_bind_int64(statement_.get(), parameter, number));
}

bool Statement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        check(result);
    }
    return result == SQLITE_ROW;
}

void Statement::run() {
    try {
        step();
    } catch (...) {
        reset();
        throw;
    }
    reset();
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

std::string Statement::text(int column) const {
    const auto* text = sqlite3_column_text(statement_.get(), column);
    if (text == nullptr) {
        return {};
    }
    return {reinterpret_cast<const char*>(text),
            static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column))};
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

void Statement::check(int result) const {
    if (result != SQLITE_OK) {
        throw SqliteError{result, sqlite3_errmsg(sqlite3_db_handle(statement_.get()))};
    }
}

Transaction::~Transaction() {
    if (connection_ != nullptr) {
        sqlite3_exec(connection_->get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Transaction::commit() {
    if (commit_ != nullptr) {
        commit_->run();
    } else {
        connection_->execute("COMMIT");
    }
    connection_ = nullptr;
}

} // namespace tavrisk::zel
