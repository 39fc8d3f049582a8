// The store's files in the hands of a test, and of another program.
#ifndef NARO_TESTS_STORE_FIXTURE_H
#define NARO_TESTS_STORE_FIXTURE_H

#include <fstream>
#include <iterator>
#include <sqlite3.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>

#include "client_fixture.h"

inline const char mem_file[] = "/run/naro/vardex-mem.db";
inline const char nvram_file[] = "/mnt/nvram/naro/vardex.db";

inline std::string contents(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The layer's file in the hands of another program.
class Database
{
  public:
    explicit Database(const std::string &path)
    {
        if (sqlite3_open(path.c_str(), &db) != SQLITE_OK)
            abort();
    }
    ~Database() { sqlite3_close(db); }
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;
    void run(const std::string &sql) const
    {
        char *error = nullptr;
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
            fprintf(stderr, "%s: %s\n", sql.c_str(), error);
            abort();
        }
    }
    int64_t number(const std::string &sql) const
    {
        sqlite3_stmt *statement = nullptr;
        sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr);
        const int64_t result =
            sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
        sqlite3_finalize(statement);
        return result;
    }
    sqlite3 *db;
};

class StoreTest : public SettingsTest
{
  protected:
    static std::string path(const char *file) { return root() + file; }
};

#endif
