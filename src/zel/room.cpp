// SPDX-License-Identifier: Apache-2.0
#include "zel/room.hpp"

#include "zel/layout.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

namespace tavrisk::zel {
namespace {

// Less is not worth another try.
constexpr std::int64_t least = 65536;

/** Makes the tables, and one more that is as large as the room is to be. */
void makeFilled(const Connection& connection, std::int64_t bytes) {
    Transaction transaction{connection};
    if (connection.queryInteger("PRAGMA user_version") != 0) { // by another process, by now
        return;
    }
    climb(connection);
    if (bytes >= least) {
        connection.execute("CREATE TABLE room (bytes BLOB NOT NULL)");
        Statement fill{connection, "INSERT INTO room VALUES (zeroblob(?))"};
        fill.bind(1, bytes);
        fill.step();
    }
    transaction.commit();
}

} // namespace

bool takeRoom(int file, off_t size) {
    struct stat status {};
    struct statvfs disk {};
    if (fstat(file, &status) != 0 || status.st_size >= size || fstatvfs(file, &disk) != 0) {
        return false;
    }
    const auto left = static_cast<off_t>(disk.f_bavail * disk.f_frsize);
    return fallocate(file, 0, 0, std::min(size, status.st_size + left / 2)) == 0;
}

void makeWithRoom(const Connection& connection, std::int64_t bytes) {
    std::error_code ignored;
    const auto disk = std::filesystem::space(
        std::filesystem::path{sqlite3_db_filename(connection.get(), "main")}.parent_path(),
        ignored);
    if (!ignored) {
        bytes = std::min(bytes, static_cast<std::int64_t>(disk.available / 4));
    }
    for (;; bytes /= 2) {
        try {
            makeFilled(connection, bytes);
            break;
        } catch (const SqliteError& error) {
            if (error.code() != SQLITE_FULL || bytes < least) {
                throw;
            }
        }
    }
    finishRoom(connection);
}

void finishRoom(const Connection& connection) {
    if (connection.queryInteger("SELECT count(*) FROM sqlite_schema WHERE name = 'room'") != 0) {
        // To write over the pages would need as much room again.
        const auto secure = connection.queryInteger("PRAGMA secure_delete");
        connection.execute("PRAGMA secure_delete = OFF; DROP TABLE IF EXISTS room");
        connection.execute(("PRAGMA secure_delete = " + std::to_string(secure)).c_str());
    }
}

} // namespace tavrisk::zel
