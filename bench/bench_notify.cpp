// A setting that is set until the running daemon has acted on it: until the media server has its command, and
// until the daemon has logged it; beside a bare round trip through the store, a set until this process itself
// is told of it. The three take turns, one set each, so that whatever else the machine does meets them alike.
#include "benches.h"

#include <algorithm>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "harness.h"
#include "libvardex.h"
#include "naro_ipc_wire.h"
#include "naro_util.h"

namespace
{

enum { PATIENCE_MS = 10000 };

double now_s()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Something that a thread of ours sees happen.
struct sight {
    sem_t seen;
    double at_s; // when the last one was; after `seen`
    void is_seen()
    {
        at_s = now_s();
        sem_post(&seen);
    }
    bool wait(int timeout_ms)
    {
        timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += timeout_ms / 1000;
        until.tv_nsec += timeout_ms % 1000 * 1000000L;
        if (until.tv_nsec >= 1000000000L) {
            until.tv_sec++;
            until.tv_nsec -= 1000000000L;
        }
        return sem_timedwait(&seen, &until) == 0;
    }
};
sight command, line;

// ---- The media server ---------------------------------------------------------------------------------------

bool answer(int client, naro_ipc_cmd_header header)
{
    const naro_ipc_command *row = naro_ipc_command_find(header.cmd_no);
    uint32_t reply[NARO_IPC_MAX_REPLY / 4] = {};
    if (!row)
        return false;
    header.length = naro_ipc_reply_length(*row);
    header.cmd_no++;
    memcpy(reply, &header, sizeof header);
    reply[header.length / 4 - 1] = NARO_IPC_TAIL;
    return send(client, reply, header.length, MSG_NOSIGNAL) == static_cast<ssize_t>(header.length);
}

// Answers one client until it leaves. The client waits for each answer, so a read brings one request, whole.
void *serve(void *listener)
{
    const int client = accept(*static_cast<int *>(listener), nullptr, nullptr);
    uint32_t words[NARO_IPC_MAX_REQUEST / 4];
    while (read(client, words, sizeof words) >= static_cast<ssize_t>(sizeof(naro_ipc_cmd_header))) {
        naro_ipc_cmd_header header;
        memcpy(&header, words, sizeof header);
        if (header.cmd_no == NARO_CMD_WDR_ENABLE || header.cmd_no == NARO_CMD_WDR_DISABLE)
            command.is_seen();
        if (!answer(client, header))
            break;
    }
    close(client);
    return nullptr;
}

// ---- The daemon ---------------------------------------------------------------------------------------------

// Reads the daemon's log to its end, and sees the lines about the two keys that are set for the line.
void *read_log(void *end)
{
    FILE *log = fdopen(*static_cast<int *>(end), "r");
    char *text = nullptr;
    size_t size = 0;
    while (getline(&text, &size, log) > 0)
        if (strstr(text, "[key=hdr_switch]") || strstr(text, "[key=face_detect]"))
            line.is_seen();
    free(text);
    fclose(log);
    return nullptr;
}

// The daemon beside this program.
std::string daemon_path()
{
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const std::string own(path, length > 0 ? static_cast<size_t>(length) : 0);
    return own.substr(0, own.rfind('/') + 1) + "naro_algo";
}

pid_t start_daemon(int *log)
{
    int ends[2];
    const std::string path = daemon_path();
    fflush(stdout);
    if (pipe(ends) != 0)
        abort();
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDERR_FILENO);
        if (!freopen("/dev/null", "w", stdout))
            _exit(1);
        close(ends[0]);
        close(ends[1]);
        execl(path.c_str(), path.c_str(), nullptr);
        _exit(1);
    }
    close(ends[1]);
    *log = ends[0];
    return pid;
}

// ---- Measurement --------------------------------------------------------------------------------------------

void set(void *h, const char *layer, const char *key, const char *value)
{
    if (libvardex_set_value(h, layer, nullptr, key, VARDEX_TEXT, value, 0, 0, 0, 0) != 1)
        abort();
}

double own_told_s;

int told(void *, void *)
{
    own_told_s = now_s();
    return 0;
}

// A set until this process is told, by the same thread.
double own_round_trip(void *h, const char *layer)
{
    const double begin = now_s();
    own_told_s = 0;
    set(h, layer, "own", "on");
    for (pollfd entry = {libvardex_client_fd(h), POLLIN, 0}; own_told_s == 0.;) {
        if (poll(&entry, 1, PATIENCE_MS) <= 0 || libvardex_xhandle_response(h) != 1)
            abort();
    }
    return own_told_s - begin;
}

double until_seen(sight *what, void *h, const char *layer, const char *key, const char *value)
{
    const double begin = now_s();
    set(h, layer, key, value);
    if (!what->wait(PATIENCE_MS))
        abort();
    return what->at_s - begin;
}

double quantile(std::vector<double> values, double share)
{
    std::sort(values.begin(), values.end());
    return values[static_cast<size_t>(share * static_cast<double>(values.size() - 1) + 0.5)];
}

struct measured {
    const char *name;
    std::vector<double> took_s;
};

// The last one is what the others are held against.
void print(const char *title, const std::vector<measured> &rows)
{
    printf("%s\n", title);
    for (const measured &row : rows) {
        const double median = quantile(row.took_s, 0.5), p99 = quantile(row.took_s, 0.99);
        printf("  %-44s median %8.2f ms, p99 %8.2f ms", row.name, median * 1e3, p99 * 1e3);
        if (&row != &rows.back())
            printf("   %5.2f and %5.2f times the bare round trip's",
                   median / quantile(rows.back().took_s, 0.5), p99 / quantile(rows.back().took_s, 0.99));
        printf("\n");
    }
    printf("\n");
    fflush(stdout);
}

void measure(void *h)
{
    std::vector<measured> lasting = {{"set \"wdr\", until the server has the command", {}},
                                     {"set \"hdr_switch\", until the line is read", {}},
                                     {"limit: a set, until its own setter is told", {}}};
    std::vector<measured> volatile_ones = {{"set \"face_detect\", until the line is read", {}},
                                           {"limit: a set, until its own setter is told", {}}};
    for (int round = harness_quick() ? 10 : 500; round > 0; round--) {
        const char *value = round % 2 ? "on" : "off";
        lasting[0].took_s.push_back(until_seen(&command, h, "nvram", "wdr", value));
        lasting[1].took_s.push_back(until_seen(&line, h, "nvram", "hdr_switch", value));
        lasting[2].took_s.push_back(own_round_trip(h, "nvram"));
        volatile_ones[0].took_s.push_back(until_seen(&line, h, "mem", "face_detect", "off"));
        volatile_ones[1].took_s.push_back(own_round_trip(h, "mem"));
    }
    print("A lasting setting on the running daemon", lasting);
    print("A volatile setting on the running daemon", volatile_ones);
}

// The daemon follows the settings when it logs one.
bool daemon_follows(void *h)
{
    for (int tries = PATIENCE_MS / 100; tries > 0; tries--) {
        set(h, "mem", "face_detect", "off");
        if (line.wait(100)) {
            while (line.wait(200)) // those before may still come
                ;
            return true;
        }
    }
    return false;
}

void measure_daemon(void)
{
    int log;
    const pid_t daemon = start_daemon(&log);
    pthread_t reader;
    if (pthread_create(&reader, nullptr, read_log, &log) != 0)
        abort();
    void *h = libvardex_config_open(0);
    uint64_t id;
    for (const char *layer : {"mem", "nvram"})
        libvardex_register_notification(h, layer, nullptr, "own", &id, told, told, 0, 0);
    if (daemon_follows(h))
        measure(h);
    else
        printf("Settings on the running daemon: not measured, %s does not follow them\n\n",
               daemon_path().c_str());
    libvardex_close(h);
    kill(daemon, SIGTERM);
    waitpid(daemon, nullptr, 0);
    pthread_join(reader, nullptr);
}

} // namespace

void bench_notify(void)
{
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    memcpy(name.sun_path + 1, NARO_IPC_SOCKET_NAME, sizeof NARO_IPC_SOCKET_NAME);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr *>(&name), sizeof name) != 0 ||
        listen(listener, 1) != 0) {
        printf("Settings on the running daemon: not measured, a camera runs on this machine\n\n");
        return;
    }
    sem_init(&command.seen, 0, 0);
    sem_init(&line.seen, 0, 0);
    pthread_t server;
    if (pthread_create(&server, nullptr, serve, &listener) != 0)
        abort();
    measure_daemon();
    // Wakes a server that has never had a client.
    shutdown(listener, SHUT_RDWR);
    pthread_join(server, nullptr);
    close(listener);
}
