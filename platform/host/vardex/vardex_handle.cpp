// Where a client stands in the row of sets.
//
// Both layers number their sets themselves. Each also stamps them by the machine's one clock, from inside the
// transaction: so of two sets in different layers, of which one began when the other was acknowledged, the
// order can be told. To keep it, a look into both takes only what was stamped before the look began: what is
// newer may have an elder brother in the layer that was looked into first; its knock comes after.
#include "vardex_handle.h"

#include <algorithm>
#include <errno.h>
#include <map>
#include <sqlite3.h>
#include <string.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "naro_util.h"
#include "vardex_changes.h"

namespace
{

enum {
    AT_ONCE = 32,         // told from each layer in one call
    WAITING_WHOLE = 1024, // as many may wait without anything being left out
    ACKNOWLEDGE_EVERY = 64,
};
// A stamp that lies further ahead is of another clock: nothing waits for that one.
const int64_t CLOCK_ASTRAY_NS = 1000000000;

// A set that waits.
struct waiting {
    int64_t seq;
    int64_t stamp;
    std::string name; // group, a zero byte, key
    bool mergeable;
};

struct look {
    std::vector<waiting> row; // oldest first
    int64_t scanned;          // nothing up to here is left but the row
};

std::string text_of(sqlite3_stmt *statement, int column)
{
    const void *bytes = sqlite3_column_blob(statement, column);
    return bytes ? std::string(static_cast<const char *>(bytes),
                               static_cast<size_t>(sqlite3_column_bytes(statement, column)))
                 : std::string();
}

void bind(sqlite3_stmt *statement, int place, int64_t number)
{
    if (statement)
        sqlite3_bind_int64(statement, place, number);
}

// Keeps the reader's place in the store that it knows. Another one (a new file, or an emptied one) is read
// from its beginning: all that is in it was set since.
void keep_place(vardex_handle *handle, int layer, int64_t identity)
{
    vardex_reader *reader = &handle->readers[layer];
    if (reader->identity == identity)
        return;
    reader->identity = identity;
    reader->published = false;
    reader->seen = reader->acked = 0;
    for (vardex_registration &registration : handle->registrations)
        if (registration.layer == layer)
            registration.since = 0;
}

// Places the reader behind everything that was set up to now, or keeps the place that it has.
void find_place(vardex_handle *handle, int layer, int64_t identity, int64_t newest)
{
    vardex_reader *reader = &handle->readers[layer];
    if (reader->placed)
        keep_place(handle, layer, identity);
    else
        *reader = {false, identity, true, newest, newest, false};
}

bool is_wanted(const vardex_handle *handle, int layer, int64_t seq, const std::string &group,
               const std::string &key)
{
    for (const vardex_registration &registration : handle->registrations)
        if (registration.layer == layer && registration.confirmed && registration.since < seq &&
            registration.group == group && registration.key == key)
            return true;
    return false;
}

// Collects what waits and was stamped before `before_ns`. Inside a transaction.
look look_for(vardex_handle *handle, int layer, int64_t before_ns)
{
    look found = {{}, handle->readers[layer].seen};
    sqlite3_stmt *statement = vardex_store_statement(layer, VARDEX_VALUE_WAITING);
    bind(statement, 1, found.scanned);
    while (vardex_store_step(layer, statement) == 1) {
        const int64_t seq = sqlite3_column_int64(statement, 0), stamp = sqlite3_column_int64(statement, 3);
        if (stamp >= before_ns && stamp - before_ns < CLOCK_ASTRAY_NS)
            break;
        found.scanned = seq;
        const std::string group = text_of(statement, 1), key = text_of(statement, 2);
        if (!is_wanted(handle, layer, seq, group, key))
            continue;
        std::string name = group;
        name += '\0';
        name += key;
        found.row.push_back({seq, stamp, name, key != "alarm_event"});
    }
    return found;
}

// Leaves out older values of keys that were set again, where more wait than may.
void leave_out(vardex_reader *reader, int layer, std::vector<waiting> *row)
{
    if (row->size() <= WAITING_WHOLE) {
        reader->crowded = reader->crowded && !row->empty();
        return;
    }
    std::map<std::string, int64_t> newest;
    for (const waiting &set : *row)
        newest[set.name] = set.seq;
    const int64_t whole_from = (*row)[row->size() - WAITING_WHOLE].seq;
    row->erase(std::remove_if(row->begin(), row->end(),
                              [&](const waiting &set) {
                                  return set.mergeable && set.seq < whole_from && newest[set.name] != set.seq;
                              }),
               row->end());
    // Whoever wrote may have left out some already: that so many wait is what there is to be said.
    if (reader->crowded)
        return;
    reader->crowded = true;
    log_warning("[vardex] %s: more than %d notifications wait: older values of keys that were set again are "
                "left out\n",
                vardex_layer_name(layer), WAITING_WHOLE);
}

// Reads the beginning of a row.
void read_news(int layer, const std::vector<waiting> &row, std::vector<vardex_news> *news)
{
    for (size_t n = 0; n < row.size() && n < AT_ONCE; n++) {
        sqlite3_stmt *statement = vardex_store_statement(layer, VARDEX_VALUE_AT);
        bind(statement, 1, row[n].seq);
        if (vardex_store_step(layer, statement) != 1)
            return;
        news->push_back({layer,
                         row[n].seq,
                         row[n].stamp,
                         text_of(statement, 0),
                         {text_of(statement, 1), text_of(statement, 2)}});
    }
}

// Whether the store knows the mailbox. Inside a transaction.
bool is_known(const vardex_handle *handle, int layer)
{
    sqlite3_stmt *find = vardex_store_statement(layer, VARDEX_MAILBOX_FIND);
    vardex_bind_text(find, 1, handle->mailbox);
    return vardex_store_step(layer, find) != 0; // trouble says nothing
}

// Begins to read, and finds the reader's place. False when there is nothing to be read.
bool begin_look(vardex_handle *handle, int layer)
{
    vardex_reader *reader = &handle->readers[layer];
    const enum vardex_begun begun =
        vardex_store_begin(layer, VARDEX_READ, "look for changes", nullptr, VARDEX_WAIT_MS);
    if (begun == VARDEX_NO_STORE)
        reader->published = false;
    if (begun != VARDEX_BEGUN)
        return false;
    int64_t identity;
    if (reader->placed && vardex_store_number(layer, VARDEX_IDENTITY_GET, &identity)) {
        keep_place(handle, layer, identity);
        if (!is_known(handle, layer))
            reader->published = false;
    }
    return true;
}

} // namespace

bool vardex_handle_listens(const vardex_handle *handle, int layer)
{
    return std::any_of(handle->registrations.begin(), handle->registrations.end(),
                       [&](const vardex_registration &registration) { return registration.layer == layer; });
}

bool vardex_handle_publish(vardex_handle *handle, int layer, unsigned wait_ms)
{
    vardex_reader *reader = &handle->readers[layer];
    if (vardex_store_begin(layer, VARDEX_WRITE_LAZY, "listen", nullptr, wait_ms) != VARDEX_BEGUN)
        return false;
    int64_t identity = 0, newest = 0;
    if (!vardex_store_number(layer, VARDEX_IDENTITY_GET, &identity) ||
        !vardex_store_number(layer, VARDEX_VALUE_NEWEST, &newest))
        return vardex_store_end(layer, false);
    find_place(handle, layer, identity, newest);
    sqlite3_stmt *insert = vardex_store_statement(layer, VARDEX_MAILBOX_INSERT);
    vardex_bind_text(insert, 1, handle->mailbox);
    bind(insert, 2, getpid());
    vardex_bind_text(insert, 3, program_invocation_short_name);
    bind(insert, 4, reader->seen);
    vardex_store_run(layer, insert);
    sqlite3_stmt *drop = vardex_store_statement(layer, VARDEX_SUBSCRIPTION_DROP);
    vardex_bind_text(drop, 1, handle->mailbox);
    vardex_store_run(layer, drop);
    for (const vardex_registration &registration : handle->registrations) {
        if (registration.layer != layer)
            continue;
        sqlite3_stmt *add = vardex_store_statement(layer, VARDEX_SUBSCRIPTION_INSERT);
        vardex_bind_text(add, 1, registration.group.c_str());
        vardex_bind_text(add, 2, registration.key.c_str());
        vardex_bind_text(add, 3, handle->mailbox);
        vardex_store_run(layer, add);
    }
    if (!vardex_store_end(layer, true))
        return false;
    reader->published = true;
    for (vardex_registration &registration : handle->registrations) {
        if (registration.layer == layer && !registration.confirmed) {
            registration.confirmed = true;
            registration.since = newest;
        }
    }
    return true;
}

// Tells the store of a mailbox that it has lost, without waiting. True when it knows it now, and something
// may have been set before it did.
static bool publish_lost(vardex_handle *handle, int layer)
{
    const vardex_reader *reader = &handle->readers[layer];
    return reader->placed && !reader->published && vardex_handle_publish(handle, layer, 0);
}

void vardex_handle_forget(vardex_handle *handle, int layer)
{
    std::vector<std::string> dead;
    if (vardex_store_begin(layer, VARDEX_READ, "read", nullptr, VARDEX_WAIT_MS) != VARDEX_BEGUN)
        return;
    int64_t identity = 0, newest = 0;
    vardex_store_number(layer, VARDEX_IDENTITY_GET, &identity);
    vardex_store_number(layer, VARDEX_VALUE_NEWEST, &newest);
    sqlite3_stmt *names = vardex_store_statement(layer, VARDEX_MAILBOX_LIST);
    while (vardex_store_step(layer, names) == 1) {
        const std::string name = text_of(names, 0);
        if (!vardex_mailbox_is_found(name.c_str()))
            dead.push_back(name);
    }
    if (!vardex_store_end(layer, true))
        return;
    find_place(handle, layer, identity, newest);
    handle->readers[layer].seen = newest;
    for (const std::string &name : dead)
        vardex_change_bury(layer, name.c_str());
}

void vardex_handle_withdraw(vardex_handle *handle, int layer)
{
    if (handle->readers[layer].published)
        vardex_change_bury(layer, handle->mailbox);
}

bool vardex_handle_waits(vardex_handle *handle, int layer)
{
    if (!begin_look(handle, layer))
        return publish_lost(handle, layer);
    const bool found = !look_for(handle, layer, INT64_MAX).row.empty();
    const bool done = vardex_store_end(layer, true);
    return (done && found) || publish_lost(handle, layer);
}

std::vector<vardex_news> vardex_handle_news(vardex_handle *handle, bool *more)
{
    std::vector<vardex_news> news;
    int64_t until_ns = INT64_MAX; // of what is told now
    const int64_t begun_ns = vardex_monotonic_ns();
    *more = false;
    for (int layer = 0; layer < VARDEX_LAYERS; layer++) {
        if (!vardex_handle_listens(handle, layer) || !begin_look(handle, layer))
            continue;
        vardex_reader *reader = &handle->readers[layer];
        look found = look_for(handle, layer, begun_ns);
        leave_out(reader, layer, &found.row);
        std::vector<vardex_news> read;
        read_news(layer, found.row, &read);
        const bool done = vardex_store_end(layer, true);
        *more |= publish_lost(handle, layer);
        if (!done)
            continue;
        if (found.row.size() > read.size()) {
            *more = true;
            until_ns = std::min(until_ns, read.empty() ? 0 : read.back().stamp);
        }
        if (read.empty() && found.row.empty())
            reader->seen = found.scanned;
        news.insert(news.end(), read.begin(), read.end());
    }
    std::stable_sort(news.begin(), news.end(),
                     [](const vardex_news &a, const vardex_news &b) { return a.stamp < b.stamp; });
    while (!news.empty() && news.back().stamp > until_ns) {
        news.pop_back();
        *more = true;
    }
    return news;
}

void vardex_handle_acknowledge(vardex_handle *handle)
{
    for (int layer = 0; layer < VARDEX_LAYERS; layer++) {
        vardex_reader *reader = &handle->readers[layer];
        if (!reader->published || reader->seen - reader->acked < ACKNOWLEDGE_EVERY ||
            vardex_store_begin(layer, VARDEX_WRITE_LAZY, "acknowledge", nullptr, 0) != VARDEX_BEGUN)
            continue;
        sqlite3_stmt *seen = vardex_store_statement(layer, VARDEX_MAILBOX_SEEN);
        vardex_bind_text(seen, 1, handle->mailbox);
        bind(seen, 2, reader->seen);
        vardex_store_run(layer, seen);
        if (vardex_store_end(layer, true))
            reader->acked = reader->seen;
    }
}

void vardex_handle_repair(vardex_handle *handle)
{
    handle->repaired_ms = naro_clock_monotonic_ms();
    if (!vardex_mailbox_is_found(handle->mailbox)) {
        char name[VARDEX_MAILBOX_NAME];
        const int fd = vardex_mailbox_create(name);
        epoll_event event = {};
        event.events = EPOLLIN;
        if (fd >= 0 && epoll_ctl(handle->poll_fd, EPOLL_CTL_ADD, fd, &event) == 0) {
            for (int layer = 0; layer < VARDEX_LAYERS; layer++)
                vardex_handle_withdraw(handle, layer);
            vardex_mailbox_destroy(handle->mailbox_fd, handle->mailbox);
            handle->mailbox_fd = fd;
            memcpy(handle->mailbox, name, sizeof name);
            for (vardex_reader &reader : handle->readers)
                reader.published = false;
        } else if (fd >= 0) {
            vardex_mailbox_destroy(fd, name);
        }
    }
    for (int layer = 0; layer < VARDEX_LAYERS; layer++)
        if (vardex_handle_listens(handle, layer) && !handle->readers[layer].published)
            vardex_handle_publish(handle, layer, VARDEX_WAIT_MS);
}
