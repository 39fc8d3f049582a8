// Opening a layer's file.
//
// Nothing of another's is ever written over: a file is made ours only when it is new or empty, and what
// begins in another way, or is damaged inside, is not written to. Restoring is a person's business.
#include "vardex_store_open.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "naro_util.h"

namespace
{

// What a file of ours begins with, beside SQLite's own 16 bytes: "nvdx", and the layout's number.
const uint32_t APPLICATION = 0x6e766478;
enum { LAYOUT = 1, HEADER_SIZE = 100, HEADER_APPLICATION_AT = 68, INDEX_SIZE_MIN = 32768 };

const char *const suffixes[3] = {"", "-wal", "-shm"};

// `value`: every set that somebody may still have to be told of, and the last of each key, which is the key's
// value. `mailbox`: who listens; everything up to `seen` has been told there, and older values of a key up to
// `floor` may be left out. `stamp` puts the sets of both layers in one order.
const char layout[] =
    "CREATE TABLE about (boot TEXT, identity INTEGER);"
    "CREATE TABLE value (seq INTEGER PRIMARY KEY, grp TEXT NOT NULL, key TEXT NOT NULL, code INTEGER NOT "
    "NULL, "
    "text BLOB NOT NULL, stamp INTEGER NOT NULL);"
    "CREATE UNIQUE INDEX value_of_key ON value (grp, key, seq);"
    "CREATE TABLE mailbox (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, pid INTEGER NOT NULL, "
    "program TEXT NOT NULL, seen INTEGER NOT NULL, floor INTEGER NOT NULL);"
    "CREATE TABLE subscription (grp TEXT NOT NULL, key TEXT NOT NULL, mailbox INTEGER NOT NULL, "
    "PRIMARY KEY (grp, key, mailbox)) WITHOUT ROWID;"
    "INSERT INTO about VALUES ('', random());";

// Settings of a connection. 4,096 pages of 4 KB bound the store; the log is written back at 64 pages, so that
// it stays a few hundred KB on a small flash.
const char settings[] = "PRAGMA max_page_count=4096;"
                        "PRAGMA wal_autocheckpoint=64;"
                        "PRAGMA journal_size_limit=1048576;"
                        "PRAGMA cell_size_check=ON;"
                        "PRAGMA foreign_keys=OFF;";

bool fail(vardex_database *database, vardex_trouble *trouble, const char *words)
{
    if (database->db && !words) {
        trouble->code = sqlite3_extended_errcode(database->db);
        trouble->error = sqlite3_system_errno(database->db);
    }
    trouble->words = words;
    return false;
}

bool run(vardex_database *database, const char *sql, vardex_trouble *trouble)
{
    return sqlite3_exec(database->db, sql, nullptr, nullptr, nullptr) == SQLITE_OK ||
           fail(database, trouble, nullptr);
}

// The first column of the first row, as a text in `text`.
bool ask(vardex_database *database, const char *sql, std::string *text, vardex_trouble *trouble)
{
    sqlite3_stmt *statement = nullptr;
    bool done = sqlite3_prepare_v2(database->db, sql, -1, &statement, nullptr) == SQLITE_OK &&
                sqlite3_step(statement) == SQLITE_ROW;
    if (done) {
        const unsigned char *answer = sqlite3_column_text(statement, 0);
        *text = answer ? reinterpret_cast<const char *>(answer) : "";
    } else {
        fail(database, trouble, nullptr);
    }
    sqlite3_finalize(statement);
    return done;
}

vardex_file look(const std::string &path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return {0, 0};
    return {status.st_dev, status.st_ino};
}

// Makes the folder of `path`, and sees to it that its name lasts.
bool make_folder(const char *path)
{
    std::string folder(path);
    folder.resize(folder.rfind('/'));
    if (naro_access(folder.c_str(), F_OK) == 0)
        return true;
    if (dir_make_parent(path, 0755) != 0)
        return false;
    // Every folder up to the root may be new, or have got a new entry.
    while (!folder.empty()) {
        folder.resize(folder.rfind('/'));
        const int fd = naro_open(folder.empty() ? "/" : folder.c_str(), O_RDONLY | O_DIRECTORY, 0);
        if (fd < 0)
            return false;
        const bool synced = fsync(fd) == 0 || errno == EINVAL; // some file systems cannot, and need not
        close(fd);
        if (!synced)
            return false;
    }
    return true;
}

// One start of the machine; "" when that cannot be told.
std::string boot_number()
{
    // The machine's, whatever the root: a root does not boot.
    const int fd = open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC);
    char text[64] = "";
    const ssize_t got = fd >= 0 ? read(fd, text, sizeof text - 1) : -1;
    if (fd >= 0)
        close(fd);
    return got > 0 ? std::string(text, strcspn(text, "\n")) : "";
}

// Runs `sql` as one transaction unless `query` (inside it) answers `unless`.
bool run_unless(vardex_database *database, const char *query, const std::string &unless,
                const std::string &sql, vardex_trouble *trouble)
{
    std::string answer;
    if (!run(database, "BEGIN IMMEDIATE", trouble))
        return false;
    if (!ask(database, query, &answer, trouble) ||
        (answer != unless && !run(database, sql.c_str(), trouble)) || !run(database, "COMMIT", trouble)) {
        sqlite3_exec(database->db, "ROLLBACK", nullptr, nullptr, nullptr);
        return false;
    }
    return true;
}

// The tables of a new file. Whoever comes first makes them.
bool make_layout(vardex_database *database, vardex_trouble *trouble)
{
    std::string pages, mode;
    if (!ask(database, "PRAGMA page_count", &pages, trouble))
        return false;
    // Before the log is in use, so that the file itself says whose it is.
    const std::string mark = "PRAGMA application_id=" + std::to_string(APPLICATION);
    if (pages == "0" && !run(database, mark.c_str(), trouble))
        return false;
    if (!ask(database, "PRAGMA journal_mode=WAL", &mode, trouble))
        return false;
    if (mode != "wal")
        return fail(database, trouble, "the file system cannot hold it");
    const std::string number = std::to_string(LAYOUT);
    return run_unless(database, "PRAGMA user_version", number,
                      std::string(layout) + "PRAGMA user_version=" + number, trouble);
}

// What is wrong with the beginning of the file itself; null for nothing. While there is a log SQLite may
// never look at it, and would in the end write the log's pages over whatever it is.
const char *find_foreign(const vardex_database *database)
{
    sqlite3_file *file = nullptr;
    unsigned char header[HEADER_SIZE];
    if (sqlite3_file_control(database->db, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK || !file ||
        !file->pMethods || file->pMethods->xRead(file, header, HEADER_SIZE, 0) != SQLITE_OK)
        return "is no settings store";
    const unsigned char mark[] = {APPLICATION >> 24, APPLICATION >> 16 & 0xff, APPLICATION >> 8 & 0xff,
                                  APPLICATION & 0xff};
    if (memcmp(header, "SQLite format 3", 16) != 0)
        return "is no settings store";
    return memcmp(header + HEADER_APPLICATION_AT, mark, sizeof mark) != 0 ? "is another program's database"
                                                                          : nullptr;
}

bool is_empty(const vardex_database *database)
{
    struct stat status;
    return stat(database->path, &status) == 0 && status.st_size == 0;
}

bool has_beside(const vardex_database *database, const char *suffix)
{
    struct stat status;
    return stat((std::string(database->path) + suffix).c_str(), &status) == 0 && status.st_size > 0;
}

// Makes a file ours that is new, and refuses other versions.
bool settle(vardex_database *database, vardex_trouble *trouble)
{
    std::string version;
    if (!ask(database, "PRAGMA user_version", &version, trouble))
        return false;
    if (version == std::to_string(LAYOUT))
        return true;
    if (version != "0")
        return fail(database, trouble, "is of another version");
    if (database->read_only)
        return fail(database, trouble, "has not been made yet, and cannot be written");
    return make_layout(database, trouble);
}

// What a start of the machine ends: who listened, what they were still to be told, and all of "mem".
bool notice_boot(vardex_database *database, bool wipe, vardex_trouble *trouble)
{
    std::string known;
    const std::string now = boot_number();
    if (database->read_only || database->damaged || now.empty())
        return true;
    if (!ask(database, "SELECT boot FROM about", &known, trouble))
        return false;
    if (known == now)
        return true;
    std::string sql = "DELETE FROM mailbox; DELETE FROM subscription;";
    if (wipe)
        sql += "DELETE FROM value; UPDATE about SET identity = random();";
    else
        sql += "DELETE FROM value WHERE seq NOT IN (SELECT max(seq) FROM value GROUP BY grp, key);"
               "UPDATE value SET stamp = 0;"; // of another boot's clock
    for (const char c : now)
        if (!strchr("0123456789abcdef-", c))
            return true;
    sql += "UPDATE about SET boot = '" + now + "';";
    return run_unless(database, "SELECT boot FROM about", now, sql, trouble);
}

int open_connection(vardex_database *database, int flags, bool immutable)
{
    std::string name(database->path);
    if (immutable) {
        name = "file:";
        char hex[4];
        for (const char *c = database->path; *c; c++) {
            snprintf(hex, sizeof hex, "%%%02x", static_cast<unsigned char>(*c));
            name += hex;
        }
        name += "?immutable=1";
        flags |= SQLITE_OPEN_URI;
    }
    return sqlite3_open_v2(name.c_str(), &database->db, flags | SQLITE_OPEN_NOMUTEX, nullptr);
}

bool set_up(vardex_database *database, bool durable, int (*busy)(void *context, int times), void *context,
            vardex_trouble *trouble)
{
    sqlite3 *db = database->db;
    sqlite3_extended_result_codes(db, 1);
    sqlite3_busy_handler(db, busy, context);
    // A file from outside may hold triggers and views: they get no power.
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    return run(database, settings, trouble) &&
           run(database, durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=OFF", trouble);
}

// The whole way, on an open connection.
bool enter(vardex_database *database, bool durable, bool wipe, int (*busy)(void *context, int times),
           void *context, vardex_trouble *trouble)
{
    std::string answer;
    // First of all. A journal is there when the power went while the file was being made: it puts the
    // beginning right.
    const char *foreign =
        is_empty(database) || has_beside(database, "-journal") ? nullptr : find_foreign(database);
    if (foreign)
        return fail(database, trouble, foreign);
    if (!set_up(database, durable, busy, context, trouble))
        return false;
    database->read_only = sqlite3_db_readonly(database->db, "main") == 1;
    if (!settle(database, trouble))
        return false;
    vardex_database_check(database);
    if (!notice_boot(database, wipe, trouble) ||
        !ask(database, "SELECT count(*) FROM about", &answer, trouble))
        return false;
    if (answer != "1")
        return fail(database, trouble, "is not laid out as ours are");
    for (size_t n = 0; n < 3; n++)
        database->file[n] = look(std::string(database->path) + suffixes[n]);
    return true;
}

} // namespace

enum vardex_opened vardex_database_open(vardex_database *database, const char *path, bool create,
                                        bool durable, bool wipe, int (*busy)(void *context, int times),
                                        void *context, vardex_trouble *trouble)
{
    *database = {};
    if (naro_access(path, F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
        if (!create)
            return VARDEX_NOT_THERE;
        if (!make_folder(path)) {
            trouble->error = errno;
            trouble->words = "its folder cannot be made";
            return VARDEX_NOT_OPENED;
        }
    }
    database->path = strdup((std::string(naro_root()) + path).c_str());
    if (!database->path) {
        trouble->error = ENOMEM;
        return VARDEX_NOT_OPENED;
    }
    const int flags = SQLITE_OPEN_READWRITE | (create ? SQLITE_OPEN_CREATE : 0);
    bool done = open_connection(database, flags, false) == SQLITE_OK
                    ? enter(database, durable, wipe, busy, context, trouble)
                    : fail(database, trouble, nullptr);
    const int code = trouble->code & 0xff;
    if (!done && (code == SQLITE_CANTOPEN || code == SQLITE_READONLY) && !has_beside(database, "-wal") &&
        access(database->path, R_OK) == 0 && access(database->path, W_OK) != 0) {
        // Where nothing can be written, not even the log's index can be made: nobody else can be writing
        // either.
        sqlite3_close(database->db);
        database->db = nullptr;
        done = open_connection(database, SQLITE_OPEN_READONLY, true) == SQLITE_OK
                   ? enter(database, durable, wipe, busy, context, trouble)
                   : fail(database, trouble, nullptr);
    }
    if (done)
        return VARDEX_OPENED;
    vardex_database_close(database, true);
    return VARDEX_NOT_OPENED;
}

void vardex_database_close(vardex_database *database, bool leave)
{
    if (leave && database->db)
        sqlite3_db_config(database->db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    sqlite3_close(database->db);
    free(database->path);
    *database = {};
}

const char *vardex_database_astray(const vardex_database *database)
{
    for (size_t n = 0; n < 3; n++) {
        struct stat status = {};
        const bool there = stat((std::string(database->path) + suffixes[n]).c_str(), &status) == 0;
        const vardex_file *file = &database->file[n];
        if (file->inode != 0 && (!there || status.st_dev != file->device || status.st_ino != file->inode))
            return n == 0 ? "was removed or replaced" : "lost its log";
        // The index is mapped: behind a cut end wait the bus error and the process's death.
        if (n == 2 && file->inode != 0 && status.st_size < INDEX_SIZE_MIN)
            return "has a damaged log";
    }
    return find_foreign(database);
}

void vardex_database_check(vardex_database *database)
{
    vardex_trouble trouble = {};
    std::string answer;
    if (ask(database, "PRAGMA quick_check(1)", &answer, &trouble))
        database->damaged = answer != "ok";
    else if ((trouble.code & 0xff) == SQLITE_CORRUPT)
        database->damaged = true;
}
