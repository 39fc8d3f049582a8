// The files behind the layers: one SQLite database each, opened when wanted, checked before each use.
//
// All threads of a process share one connection to each file. A thread has it between begin and end; no lock
// outlives that. Write-ahead logging: one sync makes a set durable, and who reads never waits for who writes.
#ifndef VARDEX_STORE_H
#define VARDEX_STORE_H

#include <stddef.h>
#include <stdint.h>

struct sqlite3_stmt;

enum vardex_layer { VARDEX_MEM, VARDEX_NVRAM, VARDEX_LAYERS };
// The layer of that name, or -1.
int vardex_layer_named(const char *name);
const char *vardex_layer_name(int layer);

// While at least one is held, connections stay open between uses; the last release closes them. False after a
// fork (logged): the parent's connections must not be touched. Any thread.
bool vardex_store_hold(void);
void vardex_store_release(void);

enum vardex_access {
    VARDEX_READ,       // sees one moment of the store
    VARDEX_WRITE,      // is on the disk when end has said so (nvram)
    VARDEX_WRITE_LAZY, // need not survive a power cut: who listens, how far they have read
};
enum vardex_begun { VARDEX_TROUBLE = -1, VARDEX_NO_STORE = 0, VARDEX_BEGUN = 1 };
// Begins to use `layer`, held by the caller, waiting at most `wait_ms` for others (0: and then not calling it
// trouble in the log). `what` and `key` (null is fine) name it in log lines ("set", "wdr"); both stay valid
// until the end. VARDEX_NO_STORE: to be read, and there is no file (nothing is logged or created). Only after
// VARDEX_BEGUN there is to be an end. Any thread; one at a time on each.
enum vardex_begun vardex_store_begin(int layer, enum vardex_access access, const char *what, const char *key,
                                     unsigned wait_ms);
// Ends it: keeps what was written (`keep`), or takes it back. True when it is kept as wanted, and nothing has
// gone wrong since begin; else a line was logged.
bool vardex_store_end(int layer, bool keep);

// ---- Between begin and end --------------------------------------------------------------------------------
// A statement of the table in vardex_store.cpp, ready to be bound; null in trouble.
enum vardex_statement {
    VARDEX_VALUE_INSERT,
    VARDEX_VALUE_TRIM,
    VARDEX_VALUE_GET,
    VARDEX_VALUE_LIST,
    VARDEX_VALUE_WAITING,
    VARDEX_VALUE_AT,
    VARDEX_VALUE_NEWEST,
    VARDEX_VALUE_COMPACT,
    VARDEX_VALUE_EMPTY,
    VARDEX_MAILBOX_INSERT,
    VARDEX_MAILBOX_FIND,
    VARDEX_MAILBOX_SEEN,
    VARDEX_MAILBOX_FLOORS,
    VARDEX_MAILBOX_RESET,
    VARDEX_MAILBOX_DROP,
    VARDEX_MAILBOX_LIST,
    VARDEX_MAILBOX_OF_KEY,
    VARDEX_SUBSCRIPTION_INSERT,
    VARDEX_SUBSCRIPTION_DROP,
    VARDEX_SUBSCRIPTION_LIST,
    VARDEX_IDENTITY_GET,
    VARDEX_IDENTITY_RENEW,
    VARDEX_STATEMENTS
};
sqlite3_stmt *vardex_store_statement(int layer, enum vardex_statement number);
// Binds a text, as bytes. Null is trouble that step will meet.
void vardex_bind_text(sqlite3_stmt *statement, int place, const char *text);
// Steps: 1 = a row, 0 = done, -1 = trouble (which end logs). A null statement is trouble.
int vardex_store_step(int layer, sqlite3_stmt *statement);
// Steps a statement that gives no rows.
bool vardex_store_run(int layer, sqlite3_stmt *statement);
// The first column of the only row; false in trouble, and *value is 0.
bool vardex_store_number(int layer, enum vardex_statement number, int64_t *value);

// The clock that all processes of the machine share, in nanoseconds; never steps back, never 0.
int64_t vardex_monotonic_ns(void);

#endif
