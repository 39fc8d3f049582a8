// Opening a layer's file: found or made, ours or refused, whole or damaged. With the store's lock held.
#ifndef VARDEX_STORE_OPEN_H
#define VARDEX_STORE_OPEN_H

#include <sqlite3.h>
#include <stdint.h>
#include <sys/types.h>

// A file as it was when it was opened.
struct vardex_file {
    dev_t device;
    ino_t inode; // 0 = not there
};

// An open layer.
struct vardex_database {
    sqlite3 *db;                // null = closed
    char *path;                 // of the file, with the root
    struct vardex_file file[3]; // the database, its log, the log's index
    bool read_only;
    bool damaged; // what can be read is read, nothing is written
};

// What went wrong: SQLite's extended result code or 0, an errno or 0, and words (a constant) or null.
struct vardex_trouble {
    int code;
    int error;
    const char *words;
};

enum vardex_opened { VARDEX_NOT_OPENED = -1, VARDEX_NOT_THERE = 0, VARDEX_OPENED = 1 };
// Opens `path` (without the root); `create`: also when there is none. `durable`: commits are on the disk.
// `wipe`: what is in it lasts only until the machine starts again. `busy` is called with `context` while
// another process is in the way.
enum vardex_opened vardex_database_open(struct vardex_database *database, const char *path, bool create,
                                        bool durable, bool wipe, int (*busy)(void *context, int times),
                                        void *context, struct vardex_trouble *trouble);
// Closes it. `leave`: touches nothing of its files, which are not ours any more.
void vardex_database_close(struct vardex_database *database, bool leave);
// Whether the open files still are those under their names, and the database begins as ours does: null, or
// what is wrong in words.
const char *vardex_database_astray(const struct vardex_database *database);
// Looks through the whole database, and sets `damaged`.
void vardex_database_check(struct vardex_database *database);

#endif
