// A message from a broadcaster to its receivers, all on one event loop; beside bare socket pairs on which the
// same bytes are sent and received.
#include "benches.h"

#include <ev.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "event_channels.h"
#include "harness.h"
#include "shbf.h"
#include "shbfev.h"

namespace
{

int arrived(void *counter, void *buffer)
{
    ++*static_cast<size_t *>(counter);
    shbf_free(buffer);
    return 0;
}

// A bare receiver on the event loop.
struct bare_receiver {
    ev_io watcher;
    std::vector<uint8_t> *buffer;
    size_t *received;
};

void bare_arrived(struct ev_loop *, ev_io *watcher, int)
{
    const bare_receiver *self = static_cast<bare_receiver *>(watcher->data);
    if (recv(watcher->fd, self->buffer->data(), self->buffer->size(), 0) !=
        static_cast<ssize_t>(self->buffer->size()))
        abort();
    ++*self->received;
}

void compare_broadcast(struct ev_loop *loop, size_t bytes, int receivers)
{
    void *brd = shbfev_brd_create(EVENT_PATH_MD);
    if (!brd || shbfev_brd_start(loop, brd) < 0)
        abort();
    size_t received = 0;
    std::vector<void *> all;
    for (int i = 0; i < receivers; i++) {
        all.push_back(shbfev_rcv_create(loop, EVENT_PATH_MD));
        if (!all.back() || shbfev_rcv_register(all.back(), SHBFEV_RCV_DATA, arrived, &received) < 0 ||
            shbfev_rcv_start(all.back()) < 0)
            abort();
    }
    const auto connected = [&] {
        int count = 0;
        for (void *rcv : all)
            count += shbfev_rcv_connected(rcv);
        return count == receivers && shbfev_brd_receivers(brd) == receivers;
    };
    while (!connected())
        ev_run(loop, EVRUN_ONCE);

    std::vector<int> senders, takers;
    for (int i = 0; i < receivers; i++) {
        int fd[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fd) != 0)
            abort();
        senders.push_back(fd[0]);
        takers.push_back(fd[1]);
    }
    const std::vector<uint8_t> message(bytes, 7);
    std::vector<uint8_t> buffer(bytes);
    const auto whole = static_cast<ssize_t>(bytes);
    std::vector<bare_receiver> bare(takers.size());
    for (size_t i = 0; i < bare.size(); i++) {
        bare[i].buffer = &buffer;
        bare[i].received = &received;
        ev_io_init(&bare[i].watcher, bare_arrived, takers[i], EV_READ);
        bare[i].watcher.data = &bare[i];
    }
    const auto send_bare = [&] {
        for (int fd : senders)
            if (send(fd, message.data(), bytes, MSG_NOSIGNAL) != whole)
                abort();
    };
    const auto run_until_all_have_it = [&](size_t before) {
        while (received < before + static_cast<size_t>(receivers))
            ev_run(loop, EVRUN_ONCE);
    };
    const std::string title = "Broadcast of " + std::to_string(bytes) + " bytes to " +
                              std::to_string(receivers) + (receivers == 1 ? " receiver" : " receivers");
    compare(title.c_str(), {{"broadcast, event loop, callback, free",
                             [&](size_t times) {
                                 for (; times > 0; times--) {
                                     const size_t before = received;
                                     if (shbfev_brd_broadcast_message(brd, message.data(), bytes) < 0)
                                         abort();
                                     run_until_all_have_it(before);
                                 }
                             }},
                            {"bare sockets behind an event loop",
                             [&](size_t times) {
                                 for (auto &one : bare)
                                     ev_io_start(loop, &one.watcher);
                                 for (; times > 0; times--) {
                                     const size_t before = received;
                                     send_bare();
                                     run_until_all_have_it(before);
                                 }
                                 for (auto &one : bare)
                                     ev_io_stop(loop, &one.watcher);
                             }},
                            {"limit: send and recv, no event loop", [&](size_t times) {
                                 for (; times > 0; times--) {
                                     send_bare();
                                     for (int fd : takers)
                                         if (recv(fd, buffer.data(), bytes, 0) != whole)
                                             abort();
                                 }
                             }}});
    for (int fd : senders)
        close(fd);
    for (int fd : takers)
        close(fd);
    for (void *rcv : all)
        shbfev_rcv_destroy(rcv);
    shbfev_brd_destroy(brd);
}

} // namespace

void bench_broadcast(void)
{
    struct ev_loop *loop = ev_default_loop(0);
    if (!loop || shbf_rcv_global_init() < 0)
        abort();
    compare_broadcast(loop, EVENT_MOTION_LENGTH, 1);
    compare_broadcast(loop, EVENT_MOTION_LENGTH, 8);
    compare_broadcast(loop, sizeof(raw_frame_header) + ANALYSIS_FRAME_BYTES, 1);
    compare_broadcast(loop, sizeof(raw_frame_header) + ANALYSIS_FRAME_BYTES, 8);
    shbf_rcv_global_exit();
    ev_loop_destroy(loop);
}
