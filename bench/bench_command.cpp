// A command to the media server and its reply, against a server in this program that only answers; beside a
// bare socket pair on which the same numbers of bytes go there and back.
#include "benches.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "harness.h"
#include "naro_ipc.h"
#include "naro_isp.h"

namespace
{

// Answers every request of one client until it leaves: success, the data zero.
void *serve(void *listener)
{
    const int client = accept(*static_cast<int *>(listener), nullptr, nullptr);
    uint32_t words[NARO_IPC_MAX_REQUEST / 4];
    // The client waits for each answer, so a read brings one request, whole.
    for (;;) {
        const ssize_t got = read(client, words, sizeof words);
        naro_ipc_cmd_header header;
        memcpy(&header, words, sizeof header);
        if (got < static_cast<ssize_t>(sizeof header) || header.length != static_cast<size_t>(got))
            break;
        uint32_t reply[NARO_IPC_MAX_REPLY / 4] = {};
        const size_t data = header.cmd_no == NARO_CMD_EV_ATTR_GET ? sizeof(naro_isp_ev_attr) : 0;
        header.length = static_cast<uint32_t>(24 + data);
        header.cmd_no++;
        memcpy(reply, &header, sizeof header);
        reply[header.length / 4 - 1] = NARO_IPC_TAIL;
        if (send(client, reply, header.length, MSG_NOSIGNAL) != static_cast<ssize_t>(header.length))
            break;
    }
    close(client);
    return nullptr;
}

struct pair {
    int fd[2];
    size_t request, reply;
};

void *answer(void *context)
{
    const pair *ends = static_cast<pair *>(context);
    uint8_t buffer[256] = {};
    while (read(ends->fd[1], buffer, ends->request) == static_cast<ssize_t>(ends->request))
        if (write(ends->fd[1], buffer, ends->reply) != static_cast<ssize_t>(ends->reply))
            break;
    return nullptr;
}

void compare_command(const char *title, size_t request, size_t reply, int (*command)(void))
{
    pair ends = {{-1, -1}, request, reply};
    pthread_t thread;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.fd) != 0 ||
        pthread_create(&thread, nullptr, answer, &ends) != 0)
        abort();
    compare(title,
            {{"command and reply",
              [&](size_t times) {
                  for (; times > 0; times--)
                      if (command() != 0)
                          abort();
              }},
             {"limit: the bytes there and back, bare",
              [&](size_t times) {
                  uint8_t buffer[256] = {};
                  for (; times > 0; times--)
                      if (write(ends.fd[0], buffer, request) != static_cast<ssize_t>(request) ||
                          read(ends.fd[0], buffer, reply) != static_cast<ssize_t>(reply))
                          abort();
              }}},
            clocked::wall);
    shutdown(ends.fd[0], SHUT_RDWR);
    pthread_join(thread, nullptr);
    close(ends.fd[0]);
    close(ends.fd[1]);
}

} // namespace

void bench_command(void)
{
    int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    memcpy(name.sun_path + 1, NARO_IPC_SOCKET_NAME, sizeof NARO_IPC_SOCKET_NAME);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr *>(&name), sizeof name) != 0 ||
        listen(listener, 1) != 0) {
        printf("Command round trip: not measured, a camera runs on this machine\n\n");
        return;
    }
    pthread_t server;
    if (pthread_create(&server, nullptr, serve, &listener) != 0 || naro_ipc_server_connect() != 0)
        abort();
    compare_command("Command round trip, no payload (20 bytes there, 24 back)", 20, 24, naro_isp_track_stop);
    compare_command("Command round trip, exposure (20 bytes there, 52 back)", 20, 52, [] {
        naro_isp_ev_attr attr;
        return naro_isp_ev_attr_get(&attr);
    });
    compare_command("Command round trip, person boxes (116 bytes there, 24 back)", 116, 24, [] {
        naro_isp_track_param param = {};
        return naro_isp_track_run(&param, 1);
    });
    naro_ipc_server_disconnect();
    pthread_join(server, nullptr);
    close(listener);
}
