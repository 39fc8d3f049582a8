// The receiver: finds its broadcaster, again and again, and hands out what it sends.
//
// While there is no connection a timer tries to make one. That costs an idle machine twenty system calls a
// second and works wherever the path may appear, be its folder there or not.
#include "shbfev.h"

#include <atomic>
#include <errno.h>
#include <ev.h>
#include <new>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "naro_util.h"
#include "shbf.h"
#include "shbf_guard.h"
#include "shbf_path.h"
#include "shbf_wire.h"

namespace
{

enum {
    MESSAGES_A_TURN = 64,     // of the event loop, so that it serves others between
    QUIET_DATA_MS = 1000,     // between two lines about the same trouble with what arrives,
    QUIET_CONNECT_MS = 60000, // and with connecting, which is tried many times
};
// A broadcaster that comes is to be found within 200 ms; the rest is for a busy machine.
const double RETRY_S = 0.05;

struct channel_receiver {
    char *path;
    int (*on_closed)(void *context, void *buffer);
    void *closed_context;
    int (*on_data)(void *context, void *buffer);
    void *data_context;

    // Event loop only:
    struct ev_loop *loop; // null = the loop has ended
    ev_io watcher;
    ev_timer retry;
    ev_cleanup loop_end;
    shbf_receipt *receipt; // null = no greeting yet
    int last_complaint;    // errno of it, and when
    uint64_t last_complaint_ms;
    bool started;
    int calls; // callbacks under way, in which the receiver may be destroyed
    bool destroyed;

    pthread_mutex_t lock; // protects what follows
    int fd;               // written by the event loop, which reads it without the lock
    size_t room;          // see shbf_wire_room
    bool connected;       // the broadcaster has greeted us
};

// Logs an error; the same one again only after `quiet_ms`.
void complain(channel_receiver *rcv, const char *what, int error, uint64_t quiet_ms)
{
    const uint64_t now = naro_clock_monotonic_ms();
    if (error == rcv->last_complaint && now - rcv->last_complaint_ms < quiet_ms)
        return;
    rcv->last_complaint = error;
    rcv->last_complaint_ms = now;
    log_warning("[shbf] %s: %s: %s\n", rcv->path, what, strerror(error));
}

// Runs a callback in which the receiver may be destroyed; false when it was, and is now freed.
bool call_out(channel_receiver *rcv, int (*callback)(void *context, void *buffer), void *context,
              void *buffer)
{
    rcv->calls++;
    callback(context, buffer);
    rcv->calls--;
    if (!rcv->destroyed)
        return true;
    if (rcv->calls == 0) {
        free(rcv->path);
        delete rcv;
    }
    return false;
}

// Back to no connection; true when there was one.
bool disconnect(channel_receiver *rcv)
{
    int fd;
    bool was_connected;
    {
        const shbf_locked locked(&rcv->lock);
        fd = rcv->fd;
        was_connected = rcv->connected;
        rcv->fd = -1;
        rcv->connected = false;
    }
    if (fd >= 0) {
        ev_io_stop(rcv->loop, &rcv->watcher);
        close(fd);
    }
    shbf_receipt_unmap(rcv->receipt);
    rcv->receipt = nullptr;
    return was_connected;
}

// The connection is of no more use. The receiver may be freed after this.
void lose(channel_receiver *rcv)
{
    const bool was_connected = disconnect(rcv);
    naro_clock_arm_timer(rcv->loop, &rcv->retry, RETRY_S);
    if (was_connected && rcv->on_closed)
        (void)call_out(rcv, rcv->on_closed, rcv->closed_context, nullptr);
}

// The greeting: from here on the broadcaster knows us.
bool accept_greeting(channel_receiver *rcv, int file)
{
    shbf_receipt *page = rcv->receipt ? nullptr : shbf_receipt_map(file); // once only
    close(file);
    if (!page)
        return false;
    rcv->receipt = page;
    const shbf_locked locked(&rcv->lock);
    rcv->connected = true;
    return true;
}

void on_readable(struct ev_loop *, ev_io *watcher, int)
{
    channel_receiver *rcv = static_cast<channel_receiver *>(watcher->data);
    for (int turn = 0; turn < MESSAGES_A_TURN && rcv->fd >= 0; turn++) {
        void *buffer;
        int file;
        const enum shbf_arrival arrival = shbf_wire_receive(rcv->fd, &buffer, &file);
        const int error = errno;
        switch (arrival) {
        case SHBF_NOTHING:
            return;
        case SHBF_GREETED:
            if (accept_greeting(rcv, file))
                break;
            complain(rcv, "the broadcaster's greeting is wrong", EPROTO, QUIET_CONNECT_MS);
            lose(rcv);
            return;
        case SHBF_MESSAGE:
        case SHBF_LOST:
            if (!rcv->receipt) {
                complain(rcv, "no greeting from the broadcaster", arrival == SHBF_LOST ? error : EPROTO,
                         QUIET_CONNECT_MS);
                shbf_free(buffer);
                lose(rcv);
                return;
            }
            rcv->receipt->fetch_add(1, std::memory_order_release);
            if (arrival == SHBF_LOST)
                complain(rcv, "a message is lost", error, QUIET_DATA_MS);
            else if (!rcv->on_data)
                shbf_free(buffer);
            else if (!call_out(rcv, rcv->on_data, rcv->data_context, buffer))
                return;
            break;
        case SHBF_END:
            if (!rcv->receipt)
                complain(rcv, "the broadcaster does not let us in", EACCES, QUIET_CONNECT_MS);
            lose(rcv);
            return;
        case SHBF_GARBAGE:
            complain(rcv, "the broadcaster does not keep to the protocol", EPROTO, QUIET_DATA_MS);
            lose(rcv);
            return;
        }
    }
}

// Connects: 0 or an errno.
int try_connect(channel_receiver *rcv)
{
    struct sockaddr_un address = {};
    socklen_t size = 0;
    const int result = shbf_path_address(rcv->path, &address, &size);
    if (result != 0)
        return -result;
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return errno;
    pid_t pid = 0;
    uid_t uid = 0;
    int error = 0;
    if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), size) != 0)
        error = errno;
    else if (!shbf_peer(fd, &pid, &uid) || !shbf_peer_allowed(uid))
        error = EPERM;
    if (error) {
        close(fd);
        return error;
    }
    ev_io_init(&rcv->watcher, on_readable, fd, EV_READ);
    rcv->watcher.data = rcv;
    ev_io_start(rcv->loop, &rcv->watcher);
    const size_t room = shbf_wire_room(fd);
    const shbf_locked locked(&rcv->lock);
    rcv->fd = fd;
    rcv->room = room;
    return 0;
}

void connect_or_retry(channel_receiver *rcv)
{
    const int error = try_connect(rcv);
    switch (error) {
    case 0:
        return;
    case ENOENT: // no broadcaster yet,
    case ENOTDIR:
    case ECONNREFUSED: // none any more,
    case EAGAIN:       // or one with many waiting at its door
        break;
    case EPERM:
        complain(rcv, "the broadcaster is another user's", error, QUIET_CONNECT_MS);
        break;
    default:
        complain(rcv, "no connection", error, QUIET_CONNECT_MS);
        break;
    }
    naro_clock_arm_timer(rcv->loop, &rcv->retry, RETRY_S);
}

void on_retry(struct ev_loop *, ev_timer *timer, int)
{
    connect_or_retry(static_cast<channel_receiver *>(timer->data));
}

void leave_loop(channel_receiver *rcv)
{
    if (!rcv->loop)
        return;
    (void)disconnect(rcv);
    ev_timer_stop(rcv->loop, &rcv->retry);
    ev_cleanup_stop(rcv->loop, &rcv->loop_end);
    rcv->loop = nullptr;
}

// The loop is about to be destroyed while we are on it.
void on_loop_end(struct ev_loop *, ev_cleanup *watcher, int)
{
    leave_loop(static_cast<channel_receiver *>(watcher->data));
}

} // namespace

void *shbfev_rcv_create(struct ev_loop *loop, const char *path)
{
    const int result = loop ? shbf_path_check(path) : -EINVAL;
    channel_receiver *rcv = result == 0 ? new (std::nothrow) channel_receiver() : nullptr;
    char *copy = rcv ? strdup(path) : nullptr;
    if (!copy) {
        delete rcv;
        errno = result == 0 ? ENOMEM : -result;
        return nullptr;
    }
    rcv->path = copy;
    rcv->loop = loop;
    rcv->fd = -1;
    pthread_mutex_init(&rcv->lock, nullptr);
    ev_init(&rcv->retry, on_retry);
    ev_cleanup_init(&rcv->loop_end, on_loop_end);
    rcv->retry.data = rcv->loop_end.data = rcv;
    ev_cleanup_start(loop, &rcv->loop_end);
    shbf_peer_check_list();
    return rcv;
}

int shbfev_rcv_register(void *handle, int event, int (*callback)(void *context, void *buffer), void *context)
{
    channel_receiver *rcv = static_cast<channel_receiver *>(handle);
    if (!rcv)
        return -EINVAL;
    switch (event) {
    case SHBFEV_RCV_CLOSED:
        rcv->on_closed = callback;
        rcv->closed_context = context;
        return 0;
    case SHBFEV_RCV_DATA:
        rcv->on_data = callback;
        rcv->data_context = context;
        return 0;
    default:
        return -EINVAL;
    }
}

int shbfev_rcv_start(void *handle)
{
    channel_receiver *rcv = static_cast<channel_receiver *>(handle);
    if (!rcv || !rcv->loop)
        return -EINVAL;
    if (rcv->started)
        return -EALREADY;
    rcv->started = true;
    connect_or_retry(rcv);
    return 0;
}

int shbfev_rcv_send_message(void *handle, const void *buffer, size_t length)
{
    channel_receiver *rcv = static_cast<channel_receiver *>(handle);
    if (!rcv || (!buffer && length > 0))
        return -EINVAL;
    if (length > SHBFEV_MESSAGE_MAX)
        return -EMSGSIZE;
    const shbf_no_cancel guard;
    const shbf_locked locked(&rcv->lock);
    if (!rcv->connected)
        return -ENOTCONN;
    if (length <= SHBF_SMALL || length <= rcv->room)
        return shbf_wire_send_bytes(rcv->fd, buffer, length);
    const int file = shbf_wire_file(buffer, length);
    if (file < 0)
        return file;
    const int result = shbf_wire_send_file(rcv->fd, file, length);
    close(file);
    return result;
}

int shbfev_rcv_connected(void *handle)
{
    channel_receiver *rcv = static_cast<channel_receiver *>(handle);
    if (!rcv)
        return 0;
    const shbf_no_cancel guard;
    const shbf_locked locked(&rcv->lock);
    return rcv->connected ? 1 : 0;
}

void shbfev_rcv_destroy(void *handle)
{
    channel_receiver *rcv = static_cast<channel_receiver *>(handle);
    if (!rcv)
        return;
    leave_loop(rcv);
    pthread_mutex_destroy(&rcv->lock);
    rcv->destroyed = true;
    if (rcv->calls > 0)
        return; // in a callback of ours, which frees the rest
    free(rcv->path);
    delete rcv;
}
