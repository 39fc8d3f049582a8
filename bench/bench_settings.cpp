// A setting that is set until another process has been told, beside a bare store: one row committed and read
// back by SQLite with the same care for the disk, on the same disk, and no one told.
#include "benches.h"

#include <poll.h>
#include <signal.h>
#include <sqlite3.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "harness.h"
#include "libvardex.h"
#include "naro_util.h"

namespace
{

int answer_fd = -1;

int told(void *, void *)
{
    if (write(answer_fd, "t", 1) != 1)
        _exit(1);
    return 0;
}

// A process that follows "followed" in both layers, and writes a byte to the pipe for each set. Before this
// process has opened a client.
pid_t start_listener(int *fd)
{
    int ends[2];
    fflush(stdout);
    if (pipe(ends) != 0)
        abort();
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        answer_fd = ends[1];
        void *h = libvardex_config_open(0);
        uint64_t id;
        for (const char *layer : {"mem", "nvram"})
            libvardex_register_notification(h, layer, nullptr, "followed", &id, told, told, 0, 0);
        told(nullptr, nullptr); // ready
        for (pollfd entry = {libvardex_client_fd(h), POLLIN, 0}; poll(&entry, 1, 1000) >= 0;)
            if (entry.revents)
                libvardex_xhandle_response(h);
            else
                libvardex_timeout_process(h);
        _exit(1);
    }
    close(ends[1]);
    *fd = ends[0];
    return pid;
}

void hear(int fd)
{
    char byte;
    if (read(fd, &byte, 1) != 1)
        abort();
}

struct bare_store {
    bare_store(const char *name, const char *mode, const char *synchronous)
    {
        const std::string path = std::string(naro_root()) + "/run/" + name;
        if (sqlite3_open(path.c_str(), &db) != SQLITE_OK)
            abort();
        run(std::string("PRAGMA journal_mode=") + mode);
        run(std::string("PRAGMA synchronous=") + synchronous);
        run("CREATE TABLE value (key TEXT PRIMARY KEY, text BLOB) WITHOUT ROWID");
        sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO value VALUES ('k', ?1)", -1, &set, nullptr);
        sqlite3_prepare_v2(db, "SELECT text FROM value WHERE key = 'k'", -1, &get, nullptr);
        set_and_get();
    }
    ~bare_store()
    {
        sqlite3_finalize(set);
        sqlite3_finalize(get);
        sqlite3_close(db);
    }
    bare_store(const bare_store &) = delete;
    bare_store &operator=(const bare_store &) = delete;
    void run(const std::string &sql) const
    {
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            abort();
    }
    void read_back() const
    {
        if (sqlite3_step(get) != SQLITE_ROW)
            abort();
        sqlite3_reset(get);
    }
    void set_and_get() const
    {
        sqlite3_bind_blob(set, 1, "on", 2, SQLITE_STATIC);
        if (sqlite3_step(set) != SQLITE_DONE)
            abort();
        sqlite3_reset(set);
        read_back();
    }
    sqlite3 *db = nullptr;
    sqlite3_stmt *set = nullptr, *get = nullptr;
};

void set(void *h, const char *layer, const char *key)
{
    if (libvardex_set_value(h, layer, nullptr, key, VARDEX_TEXT, "on", 0, 0, 0, 0) != 1)
        abort();
}

} // namespace

void bench_settings(void)
{
    int heard;
    const pid_t listener = start_listener(&heard);
    hear(heard);
    void *h = libvardex_config_open(0);
    {
        const bare_store log("bare-log.db", "WAL", "FULL"), journal("bare-journal.db", "TRUNCATE", "FULL");
        compare("A durable setting: set, and another process told",
                {{"set, until the callback has run",
                  [&](size_t times) {
                      for (; times > 0; times--) {
                          set(h, "nvram", "followed");
                          hear(heard);
                      }
                  }},
                 {"set, nobody follows",
                  [&](size_t times) {
                      for (; times > 0; times--)
                          set(h, "nvram", "not followed");
                  }},
                 {"limit: bare store, set and get",
                  [&](size_t times) {
                      for (; times > 0; times--)
                          log.set_and_get();
                  }},
                 {"bare store with a rollback journal",
                  [&](size_t times) {
                      for (; times > 0; times--)
                          journal.set_and_get();
                  }}},
                clocked::wall);
    }
    {
        const bare_store log("bare-mem.db", "WAL", "OFF");
        compare("A volatile setting: set, and another process told",
                {{"set, until the callback has run",
                  [&](size_t times) {
                      for (; times > 0; times--) {
                          set(h, "mem", "followed");
                          hear(heard);
                      }
                  }},
                 {"set, nobody follows",
                  [&](size_t times) {
                      for (; times > 0; times--)
                          set(h, "mem", "not followed");
                  }},
                 {"limit: bare store, set and get",
                  [&](size_t times) {
                      for (; times > 0; times--)
                          log.set_and_get();
                  }}},
                clocked::wall);
        compare("A setting read", {{"get",
                                    [&](size_t times) {
                                        for (; times > 0; times--)
                                            free(libvardex_config_get(0, "mem", nullptr, "followed"));
                                    }},
                                   {"limit: bare store, get", [&](size_t times) {
                                        for (; times > 0; times--)
                                            log.read_back();
                                    }}});
    }
    libvardex_close(h);
    kill(listener, SIGKILL);
    waitpid(listener, nullptr, 0);
    close(heard);
}
