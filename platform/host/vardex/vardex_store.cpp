// One connection to each layer's file, shared by the process: who has it, what it is asked, what is said in
// trouble.
//
// A thread that wants a layer waits for its lock, then for other processes, both at most until the same
// deadline. The lock is tried again and again, not waited for: a wait with a deadline would count by the wall
// clock, which steps.
#include "vardex_store.h"

#include <atomic>
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <time.h>
#include <unistd.h>

#include "naro_util.h"
#include "vardex_store_open.h"

namespace
{

enum { LINE_MS = 10000, NAP_NS = 200000 };

const struct {
    const char *name;
    const char *path;
    bool durable;
} layers[VARDEX_LAYERS] = {
    {"mem", "/run/naro/vardex-mem.db", false},
    {"nvram", "/mnt/nvram/naro/vardex.db", true},
};

const char *const statements[VARDEX_STATEMENTS] = {
    // VARDEX_VALUE_INSERT
    "INSERT INTO value (grp, key, code, text, stamp) VALUES (?1, ?2, ?3, ?4, ?5)",
    // VARDEX_VALUE_TRIM: what the set numbered ?3 has made old, and everyone has been told of
    "DELETE FROM value WHERE grp = ?1 AND key = ?2 AND seq < ?3 AND seq <= ifnull((SELECT min(m.seen) "
    "FROM subscription s JOIN mailbox m ON m.id = s.mailbox WHERE s.grp = ?1 AND s.key = ?2), ?3)",
    // VARDEX_VALUE_GET
    "SELECT text FROM value WHERE grp = ?1 AND key = ?2 ORDER BY seq DESC LIMIT 1",
    // VARDEX_VALUE_LIST
    "SELECT grp, key, code, text FROM value WHERE seq IN (SELECT max(seq) FROM value GROUP BY grp, key) "
    "ORDER BY grp, key",
    // VARDEX_VALUE_WAITING
    "SELECT seq, grp, key, stamp FROM value WHERE seq > ?1 ORDER BY seq",
    // VARDEX_VALUE_AT
    "SELECT grp, key, text FROM value WHERE seq = ?1",
    // VARDEX_VALUE_NEWEST
    "SELECT ifnull(max(seq), 0) FROM value",
    // VARDEX_VALUE_COMPACT: what may be left out for everyone
    "DELETE FROM value AS v WHERE v.key <> 'alarm_event' "
    "AND EXISTS (SELECT 1 FROM value n WHERE n.grp = v.grp AND n.key = v.key AND n.seq > v.seq) "
    "AND v.seq <= ifnull((SELECT min(m.floor) FROM subscription s JOIN mailbox m ON m.id = s.mailbox "
    "WHERE s.grp = v.grp AND s.key = v.key), v.seq)",
    // VARDEX_VALUE_EMPTY
    "DELETE FROM value",
    // VARDEX_MAILBOX_INSERT
    "INSERT INTO mailbox (name, pid, program, seen, floor) VALUES (?1, ?2, ?3, ?4, 0) "
    "ON CONFLICT (name) DO UPDATE SET pid = ?2, program = ?3",
    // VARDEX_MAILBOX_FIND
    "SELECT id FROM mailbox WHERE name = ?1",
    // VARDEX_MAILBOX_SEEN
    "UPDATE mailbox SET seen = ?2 WHERE name = ?1",
    // VARDEX_MAILBOX_FLOORS: of each mailbox, all but the newest ?1 that wait
    "UPDATE mailbox AS m SET floor = max(seen, ifnull((SELECT v.seq FROM value v JOIN subscription s "
    "ON s.grp = v.grp AND s.key = v.key AND s.mailbox = m.id ORDER BY v.seq DESC LIMIT 1 OFFSET ?1), 0))",
    // VARDEX_MAILBOX_RESET
    "UPDATE mailbox SET seen = 0, floor = 0",
    // VARDEX_MAILBOX_DROP
    "DELETE FROM mailbox WHERE name = ?1",
    // VARDEX_MAILBOX_LIST
    "SELECT name FROM mailbox",
    // VARDEX_MAILBOX_OF_KEY
    "SELECT m.name FROM subscription s JOIN mailbox m ON m.id = s.mailbox WHERE s.grp = ?1 AND s.key = ?2",
    // VARDEX_SUBSCRIPTION_INSERT
    "INSERT OR IGNORE INTO subscription (grp, key, mailbox) SELECT ?1, ?2, id FROM mailbox WHERE name = ?3",
    // VARDEX_SUBSCRIPTION_DROP
    "DELETE FROM subscription WHERE mailbox = (SELECT id FROM mailbox WHERE name = ?1)",
    // VARDEX_SUBSCRIPTION_LIST
    "SELECT s.grp, s.key, m.pid, m.program, m.name FROM subscription s JOIN mailbox m ON m.id = s.mailbox "
    "WHERE (?1 IS NULL OR s.grp = ?1) AND (?2 IS NULL OR s.key = ?2) ORDER BY s.grp, s.key, m.pid, m.id",
    // VARDEX_IDENTITY_GET
    "SELECT identity FROM about",
    // VARDEX_IDENTITY_RENEW
    "UPDATE about SET identity = random()",
};

struct store {
    pthread_mutex_t lock; // protects what follows; held from begin to end
    vardex_database database;
    sqlite3_stmt *statement[VARDEX_STATEMENTS];
    int64_t deadline_ns; // of the wait for other processes
    bool patient;        // there is such a wait; else it is no trouble that others were there first
    enum vardex_access access;
    const char *what, *key; // of the transaction under way, for log lines
    bool failed;            // something has gone wrong since begin
    vardex_trouble trouble; // the first of it
    bool troubled;          // the last transaction failed
    int last_code;          // of the last line, and when it was said
    const char *last_words;
    uint64_t last_line_ms;
};

struct {
    pthread_mutex_t lock; // protects what follows
    unsigned holders;
    std::atomic<pid_t> pid; // whose the connections are; a child of a fork reads it without the lock
} use = {PTHREAD_MUTEX_INITIALIZER, 0, 0};

store stores[VARDEX_LAYERS] = {
    {PTHREAD_MUTEX_INITIALIZER, {}, {}, 0, true, VARDEX_READ, "", nullptr, false, {}, false, 0, nullptr, 0},
    {PTHREAD_MUTEX_INITIALIZER, {}, {}, 0, true, VARDEX_READ, "", nullptr, false, {}, false, 0, nullptr, 0},
};

void nap(void)
{
    const timespec span = {0, NAP_NS};
    nanosleep(&span, nullptr);
}

// SQLite asks whether to wait on for another process.
int wait_on(void *context, int)
{
    if (vardex_monotonic_ns() >= static_cast<store *>(context)->deadline_ns)
        return 0;
    nap();
    return 1;
}

bool lock_until(pthread_mutex_t *lock, int64_t deadline_ns)
{
    while (pthread_mutex_trylock(lock) != 0) {
        if (vardex_monotonic_ns() >= deadline_ns)
            return false;
        nap();
    }
    return true;
}

// One line about the trouble, unless the same was said a moment ago.
void complain(int layer)
{
    store *s = &stores[layer];
    const vardex_trouble *trouble = &s->trouble;
    if (!s->patient && (trouble->code & 0xff) == SQLITE_BUSY)
        return;
    const uint64_t now = naro_clock_monotonic_ms();
    if (s->troubled && s->last_code == trouble->code && s->last_words == trouble->words &&
        now - s->last_line_ms < LINE_MS)
        return;
    s->troubled = true;
    s->last_code = trouble->code;
    s->last_words = trouble->words;
    s->last_line_ms = now;
    std::string reason = trouble->words ? trouble->words : sqlite3_errstr(trouble->code);
    if (trouble->error != 0)
        reason += std::string(" (") + strerror(trouble->error) + ")";
    log_err("[vardex] %s: cannot %s%s%s%s: %s: %s\n", layers[layer].name, s->what, s->key ? " \"" : "",
            s->key ? s->key : "", s->key ? "\"" : "", layers[layer].path, reason.c_str());
}

// The system's number behind trouble with a file; 0 when it is not known. That of the log is the log's own to
// tell.
int system_error(sqlite3 *db)
{
    int error = sqlite3_system_errno(db);
    sqlite3_file *log = nullptr;
    if (error == 0 && sqlite3_file_control(db, "main", SQLITE_FCNTL_JOURNAL_POINTER, &log) == SQLITE_OK &&
        log && log->pMethods)
        log->pMethods->xFileControl(log, SQLITE_FCNTL_LAST_ERRNO, &error);
    return error;
}

// Takes down what SQLite says, the first time since begin.
void note(store *s)
{
    if (s->failed)
        return;
    s->failed = true;
    s->trouble = {};
    s->trouble.code = sqlite3_extended_errcode(s->database.db);
    // SQLite tells the system's number of an old call, too: only these are its own.
    switch (s->trouble.code & 0xff) {
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
    case SQLITE_READONLY:
        s->trouble.error = system_error(s->database.db);
        break;
    default:
        break;
    }
}

void close_store(store *s, bool leave)
{
    for (sqlite3_stmt *&statement : s->statement) {
        sqlite3_finalize(statement);
        statement = nullptr;
    }
    vardex_database_close(&s->database, leave);
}

bool fail(store *s, const char *words)
{
    s->failed = true;
    s->trouble = {0, 0, words};
    return false;
}

// Opens the store, or makes sure that what is open is still what lies there.
enum vardex_begun make_ready(int layer)
{
    store *s = &stores[layer];
    const char *astray = s->database.db ? vardex_database_astray(&s->database) : nullptr;
    if (astray) {
        log_warning("[vardex] %s: while in use, %s %s; it is opened anew\n", layers[layer].name,
                    layers[layer].path, astray);
        close_store(s, true);
    }
    if (!s->database.db) {
        s->trouble = {};
        switch (vardex_database_open(&s->database, layers[layer].path, s->access != VARDEX_READ,
                                     layers[layer].durable, layer == VARDEX_MEM, wait_on, s, &s->trouble)) {
        case VARDEX_NOT_OPENED:
            s->failed = true;
            return VARDEX_TROUBLE;
        case VARDEX_NOT_THERE:
            return VARDEX_NO_STORE;
        case VARDEX_OPENED:
            break;
        }
    }
    if (s->access == VARDEX_READ)
        return VARDEX_BEGUN;
    if (s->database.damaged)
        vardex_database_check(&s->database); // somebody may have put it right
    if (s->database.damaged) {
        fail(s, "is damaged, and is only read from");
        return VARDEX_TROUBLE;
    }
    return VARDEX_BEGUN;
}

// Runs `sql`, noting trouble.
bool run(store *s, const char *sql)
{
    if (sqlite3_exec(s->database.db, sql, nullptr, nullptr, nullptr) == SQLITE_OK)
        return true;
    note(s);
    return false;
}

enum vardex_begun begin_locked(int layer)
{
    store *s = &stores[layer];
    const enum vardex_begun ready = make_ready(layer);
    if (ready != VARDEX_BEGUN)
        return ready;
    // Lazy writes leave the sync to the next set; the log keeps their order.
    if (layers[layer].durable &&
        !run(s, s->access == VARDEX_WRITE_LAZY ? "PRAGMA synchronous=NORMAL" : "PRAGMA synchronous=FULL"))
        return VARDEX_TROUBLE;
    return run(s, s->access == VARDEX_READ ? "BEGIN" : "BEGIN IMMEDIATE") ? VARDEX_BEGUN : VARDEX_TROUBLE;
}

// After trouble: what may be wrong with the connection itself is better opened anew.
void recover(store *s)
{
    if (!s->database.db)
        return;
    if (sqlite3_get_autocommit(s->database.db) == 0)
        sqlite3_exec(s->database.db, "ROLLBACK", nullptr, nullptr, nullptr);
    switch (s->trouble.code & 0xff) {
    case SQLITE_CORRUPT:
        s->database.damaged = true;
        break;
    case SQLITE_NOTADB:
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
    case SQLITE_READONLY:
    case SQLITE_ERROR:
        close_store(s, true);
        break;
    default:
        break;
    }
}

} // namespace

int64_t vardex_monotonic_ns(void)
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec + 1;
}

int vardex_layer_named(const char *name)
{
    for (int layer = 0; name && layer < VARDEX_LAYERS; layer++)
        if (strcmp(layers[layer].name, name) == 0)
            return layer;
    return -1;
}

const char *vardex_layer_name(int layer)
{
    return layers[layer].name;
}

bool vardex_store_hold(void)
{
    pthread_mutex_lock(&use.lock);
    const bool ours = use.holders == 0 || use.pid == getpid();
    if (ours) {
        use.pid = getpid();
        use.holders++;
    }
    pthread_mutex_unlock(&use.lock);
    if (!ours)
        log_err("[vardex] the settings were opened before a fork and cannot be used after it\n");
    return ours;
}

void vardex_store_release(void)
{
    pthread_mutex_lock(&use.lock);
    if (--use.holders == 0) {
        for (store &s : stores) {
            pthread_mutex_lock(&s.lock);
            if (s.database.db)
                close_store(&s, s.database.damaged || vardex_database_astray(&s.database) != nullptr);
            s.troubled = false; // who comes next is told once more
            pthread_mutex_unlock(&s.lock);
        }
    }
    pthread_mutex_unlock(&use.lock);
}

enum vardex_begun vardex_store_begin(int layer, enum vardex_access access, const char *what, const char *key,
                                     unsigned wait_ms)
{
    store *s = &stores[layer];
    const int64_t deadline_ns = vardex_monotonic_ns() + static_cast<int64_t>(wait_ms) * 1000000;
    if (use.pid.load(std::memory_order_relaxed) != getpid()) {
        log_err("[vardex] %s: cannot %s: opened before a fork\n", layers[layer].name, what);
        return VARDEX_TROUBLE;
    }
    if (!lock_until(&s->lock, deadline_ns)) {
        if (wait_ms > 0)
            log_err("[vardex] %s: cannot %s%s%s%s: another thread keeps it busy\n", layers[layer].name, what,
                    key ? " \"" : "", key ? key : "", key ? "\"" : "");
        return VARDEX_TROUBLE;
    }
    s->deadline_ns = deadline_ns;
    s->patient = wait_ms > 0;
    s->access = access;
    s->what = what;
    s->key = key;
    s->failed = false;
    const enum vardex_begun begun = begin_locked(layer);
    if (begun == VARDEX_BEGUN)
        return begun;
    if (begun == VARDEX_TROUBLE) {
        complain(layer);
        recover(s);
    }
    pthread_mutex_unlock(&s->lock);
    return begun;
}

bool vardex_store_end(int layer, bool keep)
{
    store *s = &stores[layer];
    for (sqlite3_stmt *statement : s->statement)
        sqlite3_reset(statement);
    bool done = !s->failed;
    if (done)
        done = run(s, keep ? "COMMIT" : "ROLLBACK");
    if (!done) {
        complain(layer);
        recover(s);
    } else if (s->troubled && s->access != VARDEX_READ) {
        s->troubled = false;
        log_info("[vardex] %s: %s can be written again\n", layers[layer].name, layers[layer].path);
    }
    pthread_mutex_unlock(&s->lock);
    return done && keep;
}

sqlite3_stmt *vardex_store_statement(int layer, enum vardex_statement number)
{
    store *s = &stores[layer];
    sqlite3_stmt **statement = &s->statement[number];
    if (*statement) {
        sqlite3_reset(*statement);
        sqlite3_clear_bindings(*statement);
    } else if (sqlite3_prepare_v3(s->database.db, statements[number], -1, SQLITE_PREPARE_PERSISTENT,
                                  statement, nullptr) != SQLITE_OK) {
        note(s);
        return nullptr;
    }
    return *statement;
}

void vardex_bind_text(sqlite3_stmt *statement, int place, const char *text)
{
    if (statement && text)
        sqlite3_bind_text(statement, place, text, -1, SQLITE_TRANSIENT);
}

int vardex_store_step(int layer, sqlite3_stmt *statement)
{
    store *s = &stores[layer];
    const int result = statement && !s->failed ? sqlite3_step(statement) : SQLITE_ERROR;
    if (result == SQLITE_ROW)
        return 1;
    if (result == SQLITE_DONE)
        return 0;
    note(s);
    return -1;
}

bool vardex_store_run(int layer, sqlite3_stmt *statement)
{
    const bool done = vardex_store_step(layer, statement) == 0;
    if (statement)
        sqlite3_reset(statement);
    return done;
}

bool vardex_store_number(int layer, enum vardex_statement number, int64_t *value)
{
    sqlite3_stmt *statement = vardex_store_statement(layer, number);
    const int stepped = vardex_store_step(layer, statement);
    *value = stepped == 1 ? sqlite3_column_int64(statement, 0) : 0;
    if (statement)
        sqlite3_reset(statement);
    if (stepped == 0)
        fail(&stores[layer], "is not laid out as ours are");
    return stepped == 1;
}
