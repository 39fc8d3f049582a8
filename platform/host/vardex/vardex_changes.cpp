// A set is one transaction: the new value, and the end of older ones that nobody is still to be told of.
// Values that wait for someone stay, newest and older, and are numbered; so a store has the order of its
// sets, whoever made them.
#include "vardex_changes.h"

#include <sqlite3.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

#include "vardex_mailbox.h"
#include "vardex_store.h"

namespace
{

// Every so many sets someone looks what may be left out, and who is still there. Up to WAITING_MAX wait for
// each; it is twice of what is handed over without leaving out, so that it is the listener who notices, and
// says so.
enum { COMPACT_EVERY = 256, WAITING_MAX = 2048 };

void bind_key(sqlite3_stmt *statement, const char *group, const char *key)
{
    vardex_bind_text(statement, 1, group);
    vardex_bind_text(statement, 2, key);
}

void read_names(int layer, sqlite3_stmt *statement, std::vector<std::string> *names)
{
    while (vardex_store_step(layer, statement) == 1)
        if (const unsigned char *name = sqlite3_column_text(statement, 0))
            names->push_back(reinterpret_cast<const char *>(name));
}

// Writes the value, and finds who is to be woken.
void write(int layer, const char *group, const char *key, int code, const char *text,
           std::vector<std::string> *mailboxes)
{
    sqlite3_stmt *insert = vardex_store_statement(layer, VARDEX_VALUE_INSERT);
    if (!insert)
        return;
    bind_key(insert, group, key);
    sqlite3_bind_int(insert, 3, code);
    sqlite3_bind_blob(insert, 4, text, static_cast<int>(strlen(text)), SQLITE_STATIC);
    // Within the transaction: of two sets, one after the other, the later one has the later stamp.
    sqlite3_bind_int64(insert, 5, vardex_monotonic_ns());
    if (!vardex_store_run(layer, insert))
        return;
    const int64_t seq = sqlite3_last_insert_rowid(sqlite3_db_handle(insert));
    sqlite3_stmt *trim = vardex_store_statement(layer, VARDEX_VALUE_TRIM);
    bind_key(trim, group, key);
    if (trim)
        sqlite3_bind_int64(trim, 3, seq);
    vardex_store_run(layer, trim);
    if (seq % COMPACT_EVERY == 0) {
        sqlite3_stmt *floors = vardex_store_statement(layer, VARDEX_MAILBOX_FLOORS);
        if (floors)
            sqlite3_bind_int(floors, 1, WAITING_MAX);
        vardex_store_run(layer, floors);
        vardex_store_run(layer, vardex_store_statement(layer, VARDEX_VALUE_COMPACT));
        read_names(layer, vardex_store_statement(layer, VARDEX_MAILBOX_LIST), mailboxes);
    } else {
        sqlite3_stmt *names = vardex_store_statement(layer, VARDEX_MAILBOX_OF_KEY);
        bind_key(names, group, key);
        read_names(layer, names, mailboxes);
    }
}

} // namespace

bool vardex_change_set(int layer, const char *group, const char *key, int code, const char *text)
{
    std::vector<std::string> mailboxes;
    if (vardex_store_begin(layer, VARDEX_WRITE, "set", key, VARDEX_WAIT_MS) != VARDEX_BEGUN)
        return false;
    write(layer, group, key, code, text, &mailboxes);
    if (!vardex_store_end(layer, true))
        return false;
    for (const std::string &name : mailboxes)
        if (!vardex_mailbox_knock(name.c_str()))
            vardex_change_bury(layer, name.c_str());
    return true;
}

char *vardex_change_get(int layer, const char *group, const char *key)
{
    char *text = nullptr;
    if (vardex_store_begin(layer, VARDEX_READ, "get", key, VARDEX_WAIT_MS) != VARDEX_BEGUN)
        return nullptr;
    sqlite3_stmt *get = vardex_store_statement(layer, VARDEX_VALUE_GET);
    bind_key(get, group, key);
    if (vardex_store_step(layer, get) == 1) {
        const void *bytes = sqlite3_column_blob(get, 0);
        const size_t length = static_cast<size_t>(sqlite3_column_bytes(get, 0));
        text = static_cast<char *>(malloc(length + 1));
        if (text) {
            if (length > 0)
                memcpy(text, bytes, length);
            text[length] = '\0';
        }
    }
    vardex_store_end(layer, true);
    return text;
}

void vardex_change_bury(int layer, const char *mailbox)
{
    if (vardex_store_begin(layer, VARDEX_WRITE_LAZY, "remove a listener", nullptr, 0) != VARDEX_BEGUN)
        return;
    for (const enum vardex_statement number : {VARDEX_SUBSCRIPTION_DROP, VARDEX_MAILBOX_DROP}) {
        sqlite3_stmt *drop = vardex_store_statement(layer, number);
        vardex_bind_text(drop, 1, mailbox);
        vardex_store_run(layer, drop);
    }
    vardex_store_end(layer, true);
}
