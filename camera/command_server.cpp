// The command socket of the desk camera.
//
// One libev watcher for each client; nothing here blocks. A client is read only while none of its requests is
// being worked on, so replies keep the order of requests, and a client that does not take its replies is
// dropped.
//
// The tracking command ends a frame's road: by then the daemon has broadcast the frame's events. They lie in
// another socket, so the command is set aside until an idle watcher of the lowest priority fires: that
// happens only after the loop has asked the kernel once more and found nothing else to do. So a frame's
// events always come before its command, on any machine, under any load.
#include "command_server.h"

#include <algorithm>
#include <errno.h>
#include <ev.h>
#include <list>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "desk.h"

namespace
{

struct client {
    ev_io readable;
    ev_io writable;
    ev_idle aside; // a tracking command waits for the loop to have nothing else
    ev_timer late; // a reply waits for its time
    int fd;
    bool busy; // aside or late is active: no further request is looked at
    bool close_when_sent;
    std::vector<uint8_t> in;
    std::vector<uint8_t> out;
    uint8_t held[IPC_REQUEST_MAX]; // the request set aside
    size_t held_length;
    std::vector<uint8_t> reply; // the reply that is late
    bool reply_closes;
};

enum { OUT_MAX = 16 * 1024 };

struct {
    struct ev_loop *loop;
    ev_io accepting;
    int fd = -1;
    command_server_settings settings;
    isp_state isp;
    command_server_counts counts;
    std::list<client> clients;
} server;

void work(client *peer);

client *client_of(void *data)
{
    return static_cast<client *>(data);
}

void drop(client *peer)
{
    ev_io_stop(server.loop, &peer->readable);
    ev_io_stop(server.loop, &peer->writable);
    ev_idle_stop(server.loop, &peer->aside);
    ev_timer_stop(server.loop, &peer->late);
    close(peer->fd);
    server.clients.remove_if([peer](const client &other) { return &other == peer; });
    server.counts.clients = static_cast<int>(server.clients.size());
}

// Sends what it can; false when the client is gone.
bool flush(client *peer)
{
    while (!peer->out.empty()) {
        const ssize_t sent = send(peer->fd, peer->out.data(), peer->out.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            ev_io_start(server.loop, &peer->writable);
            return true;
        }
        if (sent < 0) {
            drop(peer);
            return false;
        }
        peer->out.erase(peer->out.begin(), peer->out.begin() + sent);
    }
    ev_io_stop(server.loop, &peer->writable);
    if (peer->close_when_sent) {
        drop(peer);
        return false;
    }
    return true;
}

// Puts a reply on its way; false when the client is gone.
bool answer(client *peer, const std::vector<uint8_t> &reply, bool then_close)
{
    peer->out.insert(peer->out.end(), reply.begin(), reply.end());
    peer->close_when_sent = then_close;
    if (peer->out.size() > OUT_MAX) {
        desk_say("a client of the command socket does not take its replies; dropped");
        drop(peer);
        return false;
    }
    return flush(peer);
}

// The reply to a request, as the scenario bends it. *delay_ms: how late it is to go.
std::vector<uint8_t> make_reply(ipc_request *request, bool *then_close, uint32_t *delay_ms)
{
    uint8_t data[NARO_IPC_MAX_REPLY] = {};
    const scenario_rule *rule =
        server.settings.script ? scenario_take(server.settings.script, request->cmd_no) : nullptr;
    if (rule && rule->action == SCENARIO_REFUSE && request->ret == IPC_RET_OK)
        request->ret = static_cast<int32_t>(rule->value);
    else if (request->ret == IPC_RET_OK) {
        if (request->cmd_no == NARO_CMD_SOUND_RESULT_GET && server.settings.sound)
            server.isp.sound = server.settings.sound();
        request->ret = isp_state_apply(&server.isp, request, data);
    }
    if (request->ret != IPC_RET_OK)
        memset(data, 0, sizeof data);
    if (rule && rule->action == SCENARIO_DATA)
        for (uint32_t i = 0; i < rule->word_count; i++)
            ipc_put_word(data + size_t(4) * i, rule->words[i]);
    uint8_t bytes[NARO_IPC_MAX_REPLY];
    const size_t length = ipc_reply_build(bytes, request, data);
    std::vector<uint8_t> reply(bytes, bytes + length);
    *then_close = request->close;
    *delay_ms = 0;
    if (!rule)
        return reply;
    switch (rule->action) {
    case SCENARIO_DELAY:
        *delay_ms = rule->value;
        break;
    case SCENARIO_NUMBER:
        ipc_put_word(&reply[offsetof(naro_ipc_cmd_header, cmd_no)], rule->value);
        break;
    case SCENARIO_SURPLUS:
        reply.resize(length + rule->value, 0xEE);
        break;
    case SCENARIO_SHORT:
        reply.resize(std::min<size_t>(length, rule->value));
        break;
    case SCENARIO_CLOSE:
        reply.resize(std::min<size_t>(length, rule->value));
        *then_close = true;
        break;
    case SCENARIO_REFUSE:
    case SCENARIO_DATA:
        break;
    }
    return reply;
}

// Does one request and answers it, now or later; false when the client is gone.
bool serve(client *peer, ipc_request *request)
{
    server.counts.commands++;
    server.counts.last_command_at = ev_now(server.loop);
    const bool track = request->ret == IPC_RET_OK && request->cmd_no == NARO_CMD_TRACK_RUN;
    bool then_close;
    uint32_t delay_ms;
    const std::vector<uint8_t> reply = make_reply(request, &then_close, &delay_ms);
    if (request->ret != IPC_RET_OK)
        server.counts.refused++;
    // A frame was analysed whether or not the command is refused.
    if (track) {
        server.counts.track_commands++;
        const naro_isp_track_param boxes = isp_track_boxes(request->payload);
        if (server.settings.on_track)
            server.settings.on_track(&boxes);
    }
    if (delay_ms == 0)
        return answer(peer, reply, then_close);
    peer->busy = true;
    peer->reply = reply;
    peer->reply_closes = then_close;
    ev_timer_set(&peer->late, delay_ms / 1000., 0.);
    ev_timer_start(server.loop, &peer->late);
    return true;
}

void on_late(struct ev_loop *, ev_timer *watcher, int)
{
    client *peer = client_of(watcher->data);
    peer->busy = false;
    if (answer(peer, peer->reply, peer->reply_closes))
        work(peer);
}

void on_aside(struct ev_loop *loop, ev_idle *watcher, int)
{
    client *peer = client_of(watcher->data);
    ev_idle_stop(loop, watcher);
    peer->busy = false;
    ipc_request request;
    if (ipc_request_parse(peer->held, peer->held_length, &request) > 0 && serve(peer, &request))
        work(peer);
}

// Takes whole requests from what has arrived.
void work(client *peer)
{
    while (!peer->busy && !peer->close_when_sent) {
        ipc_request request;
        const size_t used = ipc_request_parse(peer->in.data(), peer->in.size(), &request);
        if (used == 0)
            break;
        if (request.ret == IPC_RET_OK && request.cmd_no == NARO_CMD_TRACK_RUN) {
            memcpy(peer->held, peer->in.data(), used);
            peer->held_length = used;
            peer->in.erase(peer->in.begin(), peer->in.begin() + static_cast<ptrdiff_t>(used));
            peer->busy = true;
            ev_idle_start(server.loop, &peer->aside);
            break;
        }
        if (request.close)
            desk_say(
                "the command socket got what is not a request (command %u, error %d); the client is closed",
                request.cmd_no, request.ret);
        if (!serve(peer, &request))
            return;
        peer->in.erase(peer->in.begin(), peer->in.begin() + static_cast<ptrdiff_t>(used));
    }
    // Bounded: a client that sends ahead of its replies waits in the kernel.
    if (peer->busy || peer->close_when_sent)
        ev_io_stop(server.loop, &peer->readable);
    else
        ev_io_start(server.loop, &peer->readable);
}

void on_readable(struct ev_loop *, ev_io *watcher, int)
{
    client *peer = client_of(watcher->data);
    uint8_t bytes[IPC_REQUEST_MAX];
    const ssize_t got = recv(peer->fd, bytes, sizeof bytes, MSG_DONTWAIT);
    if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
        return;
    if (got <= 0) {
        drop(peer);
        return;
    }
    peer->in.insert(peer->in.end(), bytes, bytes + got);
    work(peer);
}

void on_writable(struct ev_loop *, ev_io *watcher, int)
{
    flush(client_of(watcher->data));
}

void on_connection(struct ev_loop *loop, ev_io *watcher, int)
{
    const int fd = accept4(watcher->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
        return;
    ucred who = {};
    socklen_t size = sizeof who;
    // Abstract names have no permissions; the kernel says who is there.
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &who, &size) != 0 || (who.uid != geteuid() && who.uid != 0)) {
        desk_say("a process of user %u was refused at the command socket", who.uid);
        close(fd);
        return;
    }
    if (server.clients.size() >= COMMAND_SERVER_CLIENTS_MAX) {
        desk_say("more than %d clients at the command socket; one refused", COMMAND_SERVER_CLIENTS_MAX);
        close(fd);
        return;
    }
    client *peer = &server.clients.emplace_back();
    server.counts.clients = static_cast<int>(server.clients.size());
    peer->fd = fd;
    ev_io_init(&peer->readable, on_readable, fd, EV_READ);
    ev_io_init(&peer->writable, on_writable, fd, EV_WRITE);
    ev_idle_init(&peer->aside, on_aside);
    ev_set_priority(&peer->aside, EV_MINPRI);
    ev_init(&peer->late, on_late);
    peer->readable.data = peer->writable.data = peer->aside.data = peer->late.data = peer;
    ev_io_start(loop, &peer->readable);
    if (server.settings.on_client)
        server.settings.on_client();
}

sockaddr_un address()
{
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    memcpy(name.sun_path + 1, NARO_IPC_SOCKET_NAME, strlen(NARO_IPC_SOCKET_NAME));
    return name;
}

// The process that listens on the command socket, 0 when that cannot be found out.
pid_t owner()
{
    const sockaddr_un name = address();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    ucred who = {};
    socklen_t size = sizeof who;
    if (fd < 0)
        return 0;
    if (connect(fd, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0 ||
        getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &who, &size) != 0)
        who.pid = 0;
    close(fd);
    return who.pid;
}

void say_taken()
{
    const pid_t pid = owner();
    if (pid > 0)
        desk_say(
            "another camera runs on this machine already: process %d listens on the command socket \"%s\". "
            "There can be one at a time",
            pid, NARO_IPC_SOCKET_NAME);
    else
        desk_say("another camera runs on this machine already: the command socket \"%s\" is taken. "
                 "There can be one at a time",
                 NARO_IPC_SOCKET_NAME);
}

} // namespace

int command_server_start(struct ev_loop *loop, const command_server_settings *settings)
{
    const sockaddr_un name = address();
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    // The whole structure is the name, trailing zeros too: that is what the daemon connects to.
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr *>(&name), sizeof name) != 0 ||
        listen(fd, 16) != 0) {
        if (errno == EADDRINUSE)
            say_taken();
        else
            desk_say("the command socket: %s", strerror(errno));
        if (fd >= 0)
            close(fd);
        return -1;
    }
    server.loop = loop;
    server.fd = fd;
    server.settings = *settings;
    server.counts = {};
    isp_state_init(&server.isp);
    ev_io_init(&server.accepting, on_connection, fd, EV_READ);
    ev_io_start(loop, &server.accepting);
    return 0;
}

void command_server_stop(void)
{
    if (server.fd < 0)
        return;
    while (!server.clients.empty())
        drop(&server.clients.front());
    ev_io_stop(server.loop, &server.accepting);
    close(server.fd);
    server.fd = -1;
}

void command_server_set_light(const naro_isp_ev_attr *exposure, const naro_isp_wb_attr *white_balance)
{
    server.isp.exposure = *exposure;
    server.isp.white_balance = *white_balance;
}

const isp_state *command_server_isp(void)
{
    return &server.isp;
}

const command_server_counts *command_server_get_counts(void)
{
    return &server.counts;
}
