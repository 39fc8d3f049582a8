// The broadcaster: listens on the event loop, sends from any thread.
//
// A message goes straight into the socket of each receiver, without waiting; nothing is queued in this
// process. What a receiver that lags may still get is in shbf_delivery.h.
//
// A broadcast touches no watcher. What only the event loop may do (say what was lost) it asks for through an
// event descriptor that the loop watches, which stays harmless when the loop is gone.
#include "shbfev.h"

#include <atomic>
#include <errno.h>
#include <ev.h>
#include <inttypes.h>
#include <new>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "naro_util.h"
#include "shbf.h"
#include "shbf_delivery.h"
#include "shbf_guard.h"
#include "shbf_path.h"
#include "shbf_wire.h"

namespace
{

enum {
    ACCEPTS_A_TURN = 16,  // of the event loop, so that it serves others between
    MESSAGES_A_TURN = 64, // from one receiver
};
// When no descriptor is free: the one who waits is served soon after one is.
const double ACCEPT_PAUSE_S = 0.05;
const double LOSS_REPORT_S = 1.;
const uint64_t SAME_ERROR_MS = 1000;

struct broadcaster;

struct receiver {
    broadcaster *owner;
    receiver *next; // lock held
    ev_io watcher;  // event loop only
    pid_t pid;
    shbf_delivery delivery; // lock held, but for the descriptor and the page, which stay the same
};

struct broadcaster {
    char *path;
    int (*on_error)(void *context, int error);
    void *error_context;
    int (*on_message)(void *context, const void *buffer, size_t length);
    void *message_context;

    // Event loop only:
    struct ev_loop *loop; // null = not started, or the loop has ended
    ev_io listen_watcher;
    ev_io wake_watcher;
    ev_timer accept_pause;
    ev_timer loss_report;
    ev_cleanup loop_end;
    int lock_fd;
    int listen_fd;
    shbf_path_identity identity;
    int last_error; // what `complain` reported last, and when
    uint64_t last_error_ms;
    int calls; // callbacks under way, in which the broadcaster may be destroyed
    bool destroyed;

    int wake_fd; // constant from start to destroy
    std::atomic<bool> started;

    pthread_mutex_t lock; // protects what follows, and the members of receivers where it says so
    receiver *receivers;
    int receiver_count;
    bool loss_pending; // the event loop has been asked for a report
    int send_error;    // what hindered us from sending, for the event loop to say; 0 = nothing
};

// ---- Errors and losses (event loop) -----------------------------------------------------------------------

// Runs a callback in which the broadcaster may be destroyed; false when it was, and is now freed.
template <typename Call> bool call_out(broadcaster *brd, Call call)
{
    brd->calls++;
    call();
    brd->calls--;
    if (!brd->destroyed)
        return true;
    if (brd->calls == 0) {
        free(brd->path);
        delete brd;
    }
    return false;
}

// Logs an error and raises event 4; the same error again at most once a second. False when the callback
// destroyed the broadcaster.
bool complain(broadcaster *brd, const char *what, int error)
{
    const uint64_t now = naro_clock_monotonic_ms();
    if (error == brd->last_error && now - brd->last_error_ms < SAME_ERROR_MS)
        return true;
    brd->last_error = error;
    brd->last_error_ms = now;
    log_warning("[shbf] %s: %s: %s\n", brd->path, what, strerror(error));
    if (!brd->on_error)
        return true;
    return call_out(brd, [&] {
        errno = error;
        brd->on_error(brd->error_context, error);
    });
}

void log_loss(const broadcaster *brd, pid_t pid, uint32_t lost)
{
    log_warning("[shbf] %s: receiver %d does not keep up: %" PRIu32 " messages lost\n", brd->path,
                static_cast<int>(pid), lost);
}

// One line for each receiver that lost messages since the last time. Logged without the lock: a slow log must
// not hold up a broadcast. The list itself changes on this thread only.
void on_loss_report(struct ev_loop *loop, ev_timer *timer, int)
{
    broadcaster *brd = static_cast<broadcaster *>(timer->data);
    bool again = false;
    for (receiver *peer = brd->receivers; peer; peer = peer->next) {
        uint32_t lost;
        {
            const shbf_locked locked(&brd->lock);
            lost = peer->delivery.lost;
            peer->delivery.lost = 0;
        }
        again = again || lost > 0;
        if (lost > 0)
            log_loss(brd, peer->pid, lost);
    }
    {
        const shbf_locked locked(&brd->lock);
        for (const receiver *peer = brd->receivers; peer; peer = peer->next)
            again = again || peer->delivery.lost > 0;
        brd->loss_pending = again;
    }
    if (again)
        naro_clock_arm_timer(loop, timer, LOSS_REPORT_S);
}

// Something was lost, or could not be sent.
void on_wake(struct ev_loop *loop, ev_io *watcher, int)
{
    broadcaster *brd = static_cast<broadcaster *>(watcher->data);
    eventfd_t count;
    (void)eventfd_read(brd->wake_fd, &count);
    bool loss;
    int error;
    {
        const shbf_locked locked(&brd->lock);
        loss = brd->loss_pending;
        error = brd->send_error;
        brd->send_error = 0;
    }
    if (loss && !ev_is_active(&brd->loss_report))
        naro_clock_arm_timer(loop, &brd->loss_report, LOSS_REPORT_S);
    if (error)
        (void)complain(brd, "a message could not be sent", error);
}

// ---- Receivers (event loop) -------------------------------------------------------------------------------

// The receiver is gone from the list: closes and frees it.
void free_receiver(broadcaster *brd, receiver *peer)
{
    if (brd->loop)
        ev_io_stop(brd->loop, &peer->watcher);
    if (peer->delivery.lost > 0)
        log_loss(brd, peer->pid, peer->delivery.lost);
    log_debug("[shbf] %s: receiver %d has left\n", brd->path, static_cast<int>(peer->pid));
    close(peer->delivery.fd);
    shbf_receipt_unmap(peer->delivery.receipt);
    delete peer;
}

void remove_receiver(broadcaster *brd, receiver *peer)
{
    {
        const shbf_locked locked(&brd->lock);
        receiver **link = &brd->receivers;
        while (*link != peer)
            link = &(*link)->next;
        *link = peer->next;
        brd->receiver_count--;
    }
    free_receiver(brd, peer);
}

int error_of(receiver *peer)
{
    const shbf_locked locked(&peer->owner->lock);
    return peer->delivery.error;
}

void on_upstream(struct ev_loop *, ev_io *watcher, int)
{
    receiver *peer = static_cast<receiver *>(watcher->data);
    broadcaster *brd = peer->owner;
    for (int turn = 0; turn < MESSAGES_A_TURN; turn++) {
        void *buffer;
        int file;
        switch (shbf_wire_receive(peer->delivery.fd, &buffer, &file)) {
        case SHBF_NOTHING:
            return;
        case SHBF_MESSAGE: {
            const bool here = !brd->on_message || call_out(brd, [&] {
                brd->on_message(brd->message_context, buffer, shbf_size(buffer));
            });
            shbf_free(buffer);
            if (!here)
                return;
            break;
        }
        case SHBF_LOST:
            if (!complain(brd, "a receiver's message is lost", errno))
                return;
            break;
        case SHBF_END: {
            const int error = error_of(peer);
            remove_receiver(brd, peer);
            if (error == EPROTO)
                (void)complain(brd, "a receiver gave false receipts", error);
            return;
        }
        case SHBF_GREETED:
            close(file);
            [[fallthrough]];
        case SHBF_GARBAGE:
            remove_receiver(brd, peer);
            (void)complain(brd, "a receiver does not keep to the protocol", EPROTO);
            return;
        }
    }
}

// Greets a process that has connected, and takes it in: 0 or an errno. The descriptor is ours in any case.
int take_in(broadcaster *brd, int fd, pid_t pid)
{
    const shbf_receipt *receipt = nullptr;
    const int file = shbf_receipt_create(&receipt);
    int error = file < 0 ? -file : 0;
    receiver *peer = error ? nullptr : new (std::nothrow) receiver();
    if (!error && !peer)
        error = ENOMEM;
    if (!error) {
        peer->delivery.room = shbf_wire_room(fd);
        error = -shbf_wire_send_greeting(fd, file);
    }
    if (file >= 0)
        close(file); // mapped here, and on its way to the receiver
    if (error) {
        shbf_receipt_unmap(receipt);
        close(fd);
        delete peer;
        // It has left again already: no trouble of ours.
        return error == EPIPE || error == ECONNRESET ? 0 : error;
    }
    peer->owner = brd;
    peer->delivery.fd = fd;
    peer->pid = pid;
    peer->delivery.receipt = receipt;
    ev_io_init(&peer->watcher, on_upstream, fd, EV_READ);
    peer->watcher.data = peer;
    ev_io_start(brd->loop, &peer->watcher);
    log_debug("[shbf] %s: receiver %d has come\n", brd->path, static_cast<int>(pid));
    const shbf_locked locked(&brd->lock);
    peer->next = brd->receivers;
    brd->receivers = peer;
    brd->receiver_count++;
    return 0;
}

void on_connect(struct ev_loop *loop, ev_io *watcher, int)
{
    broadcaster *brd = static_cast<broadcaster *>(watcher->data);
    for (int turn = 0; turn < ACCEPTS_A_TURN; turn++) {
        const int fd = accept4(brd->listen_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno == EAGAIN)
                return;
            // No descriptor or memory is free. The one who waits would wake the loop without end.
            const int error = errno;
            ev_io_stop(loop, watcher);
            naro_clock_arm_timer(loop, &brd->accept_pause, ACCEPT_PAUSE_S);
            (void)complain(brd, "a receiver has to wait", error);
            return;
        }
        pid_t pid = 0;
        uid_t uid = 0;
        int error = 0;
        const char *what = "a receiver cannot be served";
        if (!shbf_peer(fd, &pid, &uid) || !shbf_peer_allowed(uid)) {
            close(fd);
            error = EACCES;
            what = "a receiver of another user is refused";
        } else {
            error = take_in(brd, fd, pid);
        }
        if (error && !complain(brd, what, error))
            return;
    }
}

void on_accept_pause_end(struct ev_loop *loop, ev_timer *timer, int)
{
    ev_io_start(loop, &static_cast<broadcaster *>(timer->data)->listen_watcher);
}

// ---- Start and end (event loop) ---------------------------------------------------------------------------

void close_and_forget(int *fd)
{
    if (*fd >= 0)
        close(*fd);
    *fd = -1;
}

// Leaves the loop and the path. Receivers that are here go on being sent to.
void stop_listening(broadcaster *brd)
{
    if (!brd->loop)
        return;
    ev_io_stop(brd->loop, &brd->listen_watcher);
    ev_io_stop(brd->loop, &brd->wake_watcher);
    ev_timer_stop(brd->loop, &brd->accept_pause);
    ev_timer_stop(brd->loop, &brd->loss_report);
    ev_cleanup_stop(brd->loop, &brd->loop_end);
    for (receiver *peer = brd->receivers; peer; peer = peer->next)
        ev_io_stop(brd->loop, &peer->watcher);
    brd->loop = nullptr;
    shbf_path_release(brd->path, &brd->identity);
    close_and_forget(&brd->listen_fd);
    close_and_forget(&brd->lock_fd);
}

// The loop is about to be destroyed while we are on it: nobody could be let in any more, so the path is free.
void on_loop_end(struct ev_loop *, ev_cleanup *watcher, int)
{
    stop_listening(static_cast<broadcaster *>(watcher->data));
}

// Claims the path and opens what a broadcaster needs: 0 or a negative errno, with nothing left open.
int open_all(broadcaster *brd)
{
    int result = shbf_path_claim(brd->path);
    if (result < 0)
        return result;
    brd->lock_fd = result;
    brd->listen_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    brd->wake_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (brd->listen_fd < 0 || brd->wake_fd < 0)
        result = -errno;
    else
        result = shbf_path_bind(brd->listen_fd, brd->path, &brd->identity);
    if (result == 0 && listen(brd->listen_fd, SOMAXCONN) != 0)
        result = -errno;
    if (result != 0) {
        close_and_forget(&brd->wake_fd);
        close_and_forget(&brd->listen_fd);
        close_and_forget(&brd->lock_fd);
    }
    return result;
}

} // namespace

// ---- Interface --------------------------------------------------------------------------------------------

void *shbfev_brd_create(const char *path)
{
    const int result = shbf_path_check(path);
    broadcaster *brd = result == 0 ? new (std::nothrow) broadcaster() : nullptr;
    char *copy = brd ? strdup(path) : nullptr;
    if (!copy) {
        delete brd;
        errno = result == 0 ? ENOMEM : -result;
        return nullptr;
    }
    brd->path = copy;
    brd->lock_fd = brd->listen_fd = brd->wake_fd = -1;
    pthread_mutex_init(&brd->lock, nullptr);
    shbf_peer_check_list();
    return brd;
}

int shbfev_brd_register(void *handle, int event, int (*callback)(void *context, int error), void *context)
{
    broadcaster *brd = static_cast<broadcaster *>(handle);
    if (!brd || event != SHBFEV_BRD_ERROR)
        return -EINVAL;
    brd->on_error = callback;
    brd->error_context = context;
    return 0;
}

int shbfev_brd_on_message(void *handle, int (*callback)(void *context, const void *buffer, size_t length),
                          void *context)
{
    broadcaster *brd = static_cast<broadcaster *>(handle);
    if (!brd)
        return -EINVAL;
    brd->on_message = callback;
    brd->message_context = context;
    return 0;
}

int shbfev_brd_start(struct ev_loop *loop, void *handle)
{
    broadcaster *brd = static_cast<broadcaster *>(handle);
    if (!brd || !loop)
        return -EINVAL;
    if (brd->started)
        return -EALREADY;
    const int result = open_all(brd);
    if (result != 0)
        return result;
    brd->loop = loop;
    ev_io_init(&brd->listen_watcher, on_connect, brd->listen_fd, EV_READ);
    ev_io_init(&brd->wake_watcher, on_wake, brd->wake_fd, EV_READ);
    ev_init(&brd->accept_pause, on_accept_pause_end);
    ev_init(&brd->loss_report, on_loss_report);
    ev_cleanup_init(&brd->loop_end, on_loop_end);
    brd->listen_watcher.data = brd->wake_watcher.data = brd;
    brd->accept_pause.data = brd->loss_report.data = brd->loop_end.data = brd;
    ev_io_start(loop, &brd->listen_watcher);
    ev_io_start(loop, &brd->wake_watcher);
    ev_cleanup_start(loop, &brd->loop_end);
    brd->started = true;
    return 0;
}

int shbfev_brd_broadcast_message(void *handle, const void *buffer, size_t length)
{
    broadcaster *brd = static_cast<broadcaster *>(handle);
    if (!brd || (!buffer && length > 0))
        return -EINVAL;
    if (length > SHBFEV_MESSAGE_MAX)
        return -EMSGSIZE;
    if (!brd->started)
        return -ENOTCONN;
    const shbf_no_cancel guard;
    shbf_outgoing message = {buffer, length, -1};
    // A large one is copied before the lock, where that holds up nobody.
    if (length > SHBF_BYTES_MAX && shbfev_brd_receivers(brd) > 0)
        (void)shbf_outgoing_file(&message);
    int error = 0;
    bool sent = false;
    {
        const shbf_locked locked(&brd->lock);
        bool lost = false;
        for (receiver *peer = brd->receivers; peer; peer = peer->next) {
            const int result = shbf_delivery_send(&peer->delivery, &message);
            sent = sent || result > 0;
            error = result < 0 ? -result : error;
            lost = lost || peer->delivery.lost > 0;
        }
        const bool wake = (lost && !brd->loss_pending) || (error && !brd->send_error);
        brd->loss_pending = brd->loss_pending || lost;
        brd->send_error = brd->send_error ? brd->send_error : error;
        if (wake)
            (void)eventfd_write(brd->wake_fd, 1);
    }
    if (message.file >= 0)
        close(message.file);
    return sent ? 0 : -error;
}

int shbfev_brd_receivers(void *handle)
{
    broadcaster *brd = static_cast<broadcaster *>(handle);
    if (!brd)
        return 0;
    const shbf_no_cancel guard;
    const shbf_locked locked(&brd->lock);
    return brd->receiver_count;
}

void shbfev_brd_destroy(void *handle)
{
    broadcaster *brd = static_cast<broadcaster *>(handle);
    if (!brd)
        return;
    stop_listening(brd);
    while (brd->receivers) {
        receiver *peer = brd->receivers;
        brd->receivers = peer->next;
        free_receiver(brd, peer);
    }
    close_and_forget(&brd->wake_fd);
    pthread_mutex_destroy(&brd->lock);
    brd->destroyed = true;
    if (brd->calls > 0)
        return; // in a callback of ours, which frees the rest
    free(brd->path);
    delete brd;
}
