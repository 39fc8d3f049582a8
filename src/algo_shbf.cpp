// The event loop and the channels on it.
//
// On the main thread's default loop live
//   - the broadcasters of the md and lsd channels, on which other processes hear of detections;
//   - the receiver of the raw stream, whose frames are copied into the motion queue;
//   - the frame-request periodic, which asks for the next frame and thereby sets the analysis rate;
//   - the wake-up, an async watcher, which ends the loop.
//
// Threads: workers broadcast without any lock. A channel's handle is written once, before they start, and
// never taken back: the broadcasters outlive the loop, because the workers outlive main.
#include "algo_shbf_internal.h"

#include <errno.h>
#include <inttypes.h>
#include <sched.h>
#include <string.h>

#include "algo_shm.h"
#include "naro_util.h"
#include "queues.h"
#include "shbf.h"
#include "shbfev.h"

shbf_server shbf_server_table[EVENT_CHANNEL_SLOTS];

// Everything but `loop_to_wake` and `wakeups_under_way` belongs to the event loop's thread.
static struct {
    bool inited;
    struct ev_loop *loop;      // the default loop, from init to fini
    void *raw_stream;          // receiver; null when it could not be created
    ev_periodic frame_request; // each firing asks for one frame
    ev_async wakeup;           // ends the loop
    int current_fps;           // what update_ev_peroid_timer was given last; 0 at start
    // The gate through which algo_shbf_signal_handler reaches the loop: fini shuts it (null) and then waits
    // until nobody is inside, so that no sender holds a loop that is gone. Lock-free, for signal handlers.
    std::atomic<struct ev_loop *> loop_to_wake;
    std::atomic<int> wakeups_under_way;
} shbf;
static_assert(std::atomic<void *>::is_always_lock_free && std::atomic<int>::is_always_lock_free,
              "used in a signal handler");

// A motion queue element takes any frame that the frame callback lets through.
static_assert(+ANALYSIS_FRAME_BYTES <= +MOTION_QUEUE_ELEM_BYTES, "a frame must fit a queue element");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the raw frame header is copied as it arrives");

static const double FRAME_REQUEST_OFFSET_S = 0.;
static const double FRAME_REQUEST_INTERVAL_S = 0.2;

// ---- Broadcasters ----------------------------------------------------------------------------------------

static const char *channel_path(int index)
{
    switch (index) {
    case EVENT_CHANNEL_MD:
        return EVENT_PATH_MD;
    case EVENT_CHANNEL_MOTOR:
        return EVENT_PATH_MOTOR;
    case EVENT_CHANNEL_LSD:
        return EVENT_PATH_LSD;
    default:
        return nullptr;
    }
}

static int on_broadcaster_error(void *, int error)
{
    log_err("receiver error: %d: %s\n", error, strerror(errno));
    return 0;
}

int shbf_init(int index)
{
    const char *path = channel_path(index);
    if (!path)
        return -1;
    void *broadcaster = shbfev_brd_create(path);
    if (!broadcaster) {
        log_err("[%s] no broadcaster for %s\n", __func__, path);
        return -1;
    }
    shbf_server *server = &shbf_server_table[index];
    server->broadcaster = broadcaster;
    server->zero = 0;
    server->index = index;
    shbfev_brd_register(broadcaster, SHBFEV_BRD_ERROR, on_broadcaster_error, server);
    const int result = shbfev_brd_start(ev_default_loop(EVFLAG_AUTO), broadcaster);
    if (result < 0) {
        log_err("shbf %d start error %d\n", index, result);
        server->broadcaster = nullptr;
        shbfev_brd_destroy(broadcaster);
        return result;
    }
    return 0;
}

int shbf_server_create(void)
{
    // The motor channel is left out: its messages are for the motor's mailbox, not for a channel.
    const int end = EVENT_CHANNEL_MOTOR;
    int index = EVENT_CHANNEL_MD;
    for (; index < end; index++) {
        const int result = shbf_init(index);
        if (result < 0) {
            log_err("shbf_init(%d) fail %d, quit.\n", index, result);
            return -1;
        }
    }
    const int result = shbf_init(EVENT_CHANNEL_LSD);
    if (result < 0) {
        // The number is the counter of the loop above, 1, and not the channel's: deliberately so.
        log_err("shbf_init(%d) lsd shbf fail %d, quit.\n", index, result);
        return -1;
    }
    return 0;
}

int algo_shbf_server_init(void)
{
    if (shbf_server_create() != 0) {
        log_err("shbf_server_create fail\n");
        return -1;
    }
    log_debug("[%s] the event channels are served\n", __func__);
    return 0;
}

// What the line about a missing broadcaster shows in the place of a channel number. It is deliberately one
// and the same for every channel, and no number that a channel could have.
static const int SHBF_MDE_NUMBER = 1987653120;

int shbf_event_broadcast(int index, const void *buf, int len)
{
    void *broadcaster = nullptr;
    if (index >= 0 && index < EVENT_CHANNEL_SLOTS)
        broadcaster = shbf_server_table[index].broadcaster;
    if (broadcaster)
        return shbfev_brd_broadcast_message(broadcaster, buf, static_cast<size_t>(len));
    if (index == EVENT_CHANNEL_MOTOR)
        return algo_shm_write_wrap(static_cast<const char *>(buf)); // a text, as far as its zero byte
    log_err("[%s]shbf_mde %d is NULL\r\n", __func__, SHBF_MDE_NUMBER);
    return 0;
}

// ---- Raw stream ------------------------------------------------------------------------------------------

// Hands a frame to detection. Detection computes with the fixed size of the analysis picture, so nothing else
// may get past here; surplus bytes behind the picture are harmless.
static void enqueue_frame(const void *buffer)
{
    const size_t arrived = shbf_size(buffer);
    raw_frame_header header;
    if (arrived < sizeof header) {
        log_err("[%s] raw stream message of %zu bytes dropped: its header alone has %zu\n", __func__, arrived,
                sizeof header);
        return;
    }
    memcpy(&header, buffer, sizeof header);
    if (header.size == 0) // the media server had no frame
        return;
    if (header.width != ANALYSIS_WIDTH || header.height != ANALYSIS_HEIGHT ||
        header.size != ANALYSIS_FRAME_BYTES || header.size > arrived - sizeof header) {
        log_err("[%s] raw frame dropped: %" PRIu32 "x%" PRIu32 ", %" PRIu32 " bytes, of which %zu arrived; "
                "wanted is NV12 of %dx%d, %d bytes\n",
                __func__, header.width, header.height, header.size, arrived - sizeof header, ANALYSIS_WIDTH,
                ANALYSIS_HEIGHT, ANALYSIS_FRAME_BYTES);
        return;
    }
    // The queue says itself when it cannot take the frame; either way the next one comes in 0.2 s.
    motion_queue_list_enqueue(static_cast<const uint8_t *>(buffer) + sizeof header, header.size, header.width,
                              header.height, QUEUE_ELEMENT_FRAME, header.timestamp);
}

static int on_raw_frame(void *, void *buffer)
{
    enqueue_frame(buffer);
    shbf_free(buffer);
    return 0;
}

static int on_raw_stream_closed(void *label, void *)
{
    log_info("[shbf_rcv_close] rcv: [%s] closed\n", static_cast<const char *>(label));
    return 0;
}

static void raw_stream_start(void)
{
    static char label[] = "raw_stream";
    shbf.raw_stream = shbfev_rcv_create(shbf.loop, EVENT_PATH_RAW_STREAM);
    if (!shbf.raw_stream) {
        log_err("[%s] no receiver for %s\n", __func__, EVENT_PATH_RAW_STREAM);
        return;
    }
    shbfev_rcv_register(shbf.raw_stream, SHBFEV_RCV_DATA, on_raw_frame, nullptr);
    shbfev_rcv_register(shbf.raw_stream, SHBFEV_RCV_CLOSED, on_raw_stream_closed, label);
    const int result = shbfev_rcv_start(shbf.raw_stream);
    if (result < 0)
        log_err("[%s] receiver of %s: start error %d\n", __func__, EVENT_PATH_RAW_STREAM, result);
}

// ---- The loop --------------------------------------------------------------------------------------------

static void on_frame_request(struct ev_loop *, ev_periodic *, int)
{
    // Without a broadcaster on the other side this fails, five times a second, until the transport has found
    // one.
    if (shbf.raw_stream)
        shbfev_rcv_send_message(shbf.raw_stream, RAW_FRAME_REQUEST, RAW_FRAME_REQUEST_LENGTH);
}

static void on_wakeup(struct ev_loop *loop, ev_async *, int)
{
    ev_break(loop, EVBREAK_ALL);
    log_info("ev loop break all\n");
}

int algo_shbf_init(void)
{
    if (shbf.inited) {
        log_info("[%s]algo_shbf already inited\n", __func__);
        return 0;
    }
    shbf.loop = ev_default_loop(EVFLAG_AUTO);
    if (!shbf.loop) {
        log_err("[%s] no event loop: libev finds no way to wait for events\n", __func__);
        return -1;
    }
    shbf.inited = true;
    shbf.current_fps = 0;

    shbf_rcv_global_init();
    const int result = algo_shbf_server_init();
    raw_stream_start();

    ev_periodic_init(&shbf.frame_request, on_frame_request, FRAME_REQUEST_OFFSET_S, FRAME_REQUEST_INTERVAL_S,
                     nullptr);
    ev_periodic_start(shbf.loop, &shbf.frame_request);

    ev_async_init(&shbf.wakeup, on_wakeup);
    ev_async_start(shbf.loop, &shbf.wakeup);
    shbf.loop_to_wake = shbf.loop;
    return result;
}

int algo_shbf_run(void)
{
    ev_run(shbf.loop, 0);
    log_info("shbf stop running ...\n");
    return 0;
}

int algo_shbf_fini(void)
{
    if (!shbf.inited) {
        log_info("[%s]algo_shbf already exit\n", __func__);
        return 0;
    }
    shbf.inited = false;
    shbf.loop_to_wake = nullptr;
    while (shbf.wakeups_under_way != 0)
        sched_yield();

    shbfev_rcv_destroy(shbf.raw_stream);
    shbf.raw_stream = nullptr;
    ev_loop_destroy(shbf.loop); // the watchers go with it
    shbf.loop = nullptr;
    shbf_rcv_global_exit();
    log_info("shbf exit\n");
    return 0;
}

void algo_shbf_stop(void)
{
    ev_periodic_stop(shbf.loop, &shbf.frame_request);
}

void algo_shbf_restart(void)
{
    ev_periodic_start(shbf.loop, &shbf.frame_request);
}

void algo_shbf_signal_handler(void)
{
    if (!shbf.loop_to_wake)
        return; // before the gate, so that fini need not wait for those who only come to find it shut
    shbf.wakeups_under_way++;
    if (struct ev_loop *loop = shbf.loop_to_wake)
        ev_async_send(loop, &shbf.wakeup); // safe in signal handlers, and keeps errno
    shbf.wakeups_under_way--;
}

static const struct {
    int fps;
    double interval_s;
} frame_request_rates[] = {
    {10, 0.1}, {5, 0.125}, {4, 0.25}, {3, 0.3}, {2, 0.5},
};

void update_ev_peroid_timer(int fps)
{
    if (fps == shbf.current_fps)
        return;
    log_err("update_ev_peroid_timer interval %d fps to %d fps\n", shbf.current_fps, fps);
    shbf.current_fps = fps; // also one that is refused below, so that repeating it says nothing
    for (const auto &rate : frame_request_rates) {
        if (rate.fps == fps) {
            // No stop and start around it: libev allows these fields to change at any time and reads them
            // when the periodic fires.
            ev_periodic_set(&shbf.frame_request, FRAME_REQUEST_OFFSET_S, rate.interval_s, nullptr);
            return;
        }
    }
    log_err("param error ,should be greater than zero\n");
}

struct ev_periodic *algo_shbf_frame_request_watcher(void)
{
    return &shbf.frame_request;
}
