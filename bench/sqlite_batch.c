/* SPDX-License-Identifier: Apache-2.0
 *
 * sqlite_batch DATABASE ENTRIES BATCH: the bare minimum beside the embedded event log: the same
 * rows into the same table with the same sync setting, BATCH of them with each transaction, from
 * one thread. Prints entries per second.
 */
#include <sqlite3.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static void insert(sqlite3_stmt* statement) {
    sqlite3_bind_text(statement, 1, "2026-01-01T00:00:00.000Z", -1, SQLITE_STATIC);
    sqlite3_bind_text(statement, 2, "HMC0005", -1, SQLITE_STATIC);
    sqlite3_bind_int64(statement, 3, 2);
    sqlite3_bind_text(statement, 4, "[\"GPU0\"]", -1, SQLITE_STATIC);
    if (sqlite3_step(statement) != SQLITE_DONE) {
        fputs("sqlite_batch: inserting failed\n", stderr);
        exit(EXIT_FAILURE);
    }
    sqlite3_reset(statement);
}

int main(int argc, char** argv) {
    sqlite3* database = NULL;
    sqlite3_stmt* statement = NULL;
    if (argc != 4 || sqlite3_open(argv[1], &database) != SQLITE_OK) {
        return EXIT_FAILURE;
    }
    const long entries = atol(argv[2]);
    const long batch = atol(argv[3]);
    sqlite3_exec(database,
                 "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
                 "PRAGMA wal_autocheckpoint = 256; PRAGMA journal_size_limit = 1048576",
                 NULL, NULL, NULL);
    sqlite3_prepare_v2(database,
                       "INSERT INTO entries (time, message_id, severity, arguments)"
                       " VALUES (?, ?, ?, ?)",
                       -1, &statement, NULL);
    const double begin = now();
    for (long done = 0; done < entries; done += batch) {
        sqlite3_exec(database, "BEGIN IMMEDIATE", NULL, NULL, NULL);
        for (long i = 0; i < batch; ++i) {
            insert(statement);
        }
        if (sqlite3_exec(database, "COMMIT", NULL, NULL, NULL) != SQLITE_OK) {
            return EXIT_FAILURE;
        }
    }
    printf("%.1f\n", (double)entries / (now() - begin));
    sqlite3_finalize(statement);
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, NULL);
    sqlite3_close(database);
    return 0;
}
