// Motion tracking.
//
// Threads: detection posts rectangles, the settings' thread turns tracking on and off, "motion_track_task"
// looks and asks. The task is ended by cancellation, which it accepts only while it waits for a rectangle:
// no request, and no lock that is taken on its way, is ever cut in two.
//
// The semaphore is made once and lives as long as the process, because detection posts at any moment, also
// while tracking is off. What was posted meanwhile is thrown away at the next start.
#include "motion_track.h"

#include <errno.h>
#include <inttypes.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <iterator>

#include "algo_shbf.h"
#include "motion_angle.h"
#include "motion_event_record.h"
#include "naro_util.h"

namespace
{

enum {
    DEAD_ZONE_DEGREES = 10, // less than that is not worth a move
    SPACING_MS = 151,       // between two requests
    REQUEST_BYTES = 64,
    SAME_PLACE_PIXELS = 4, // for the filter of duplicates
    SAME_TIME = 500,
};

// x2 and y2 are exclusive.
struct rectangle {
    int x1, y1, x2, y2;
};
const uint64_t NO_RECTANGLE = 0; // 0, 0, 0, 0: none since tracking was turned on

uint64_t packed_16(int64_t v)
{
    return static_cast<uint16_t>(std::clamp<int64_t>(v, INT16_MIN, INT16_MAX));
}

rectangle unpacked(uint64_t v)
{
    const auto word = [v](int place) { return static_cast<int>(static_cast<int16_t>(v >> 16 * place)); };
    return {word(0), word(1), word(2), word(3)};
}

// Words that several threads read or write: each stands for itself, relaxed, but for the semaphore, which
// orders a rectangle before the look at it.
struct {
    std::atomic<uint64_t> motion_rect_config; // a packed rectangle
    std::atomic<int> mode;
    std::atomic<int> original_point_dis;
    std::atomic<uint64_t> last_point_dis_time; // ms
    sem_t posted;                              // once for each rectangle; see semaphore()
} shared = {{NO_RECTANGLE}, {0}, {-1}, {0}, {}};
pthread_once_t semaphore_made = PTHREAD_ONCE_INIT;

// Whoever turns tracking on or off has it from begin to end, the join included: the task never takes it. It
// guards the thread's being there.
pthread_mutex_t mode_lock = PTHREAD_MUTEX_INITIALIZER;
bool thread_started;
pthread_t thread;

// The task's own. It outlives the task: numbers and times go on when tracking is turned on again.
struct {
    int last_rotate_angle[3];  // the last request since the start: h, v, number
    uint64_t last_rotate_ms;   // when that was, by the wall clock
    int64_t last_time;         // the same in seconds
    uint32_t sequence;         // the next request's number
    uint32_t requests, rounds; // so far
} task;

void make_semaphore()
{
    sem_init(&shared.posted, 0, 0);
}

sem_t *semaphore()
{
    pthread_once(&semaphore_made, make_semaphore);
    return &shared.posted;
}

rectangle last_rectangle()
{
    return unpacked(shared.motion_rect_config.load(std::memory_order_relaxed));
}

// The only place where the thread accepts its cancellation.
void wait_for_rectangle()
{
    sem_t *wake_up = semaphore();
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
    while (sem_wait(wake_up) != 0 && errno == EINTR)
        ;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

void request(int h, int v, uint64_t now_ms)
{
    const int number = static_cast<int>(task.sequence++);
    char text[REQUEST_BYTES] = "";
    snprintf(text, sizeof text, "[%d,%d,%d]", h, v, number);
    int *last = task.last_rotate_angle;
    log_info("[%s] %s at %" PRIu64 " ms, the last was [%d,%d,%d] at %" PRId64 " s; %" PRIu32 " of %" PRIu32
             " rounds\n",
             "motion_track", text, now_ms, last[0], last[1], last[2], task.last_time, task.requests,
             task.rounds);
    shbf_event_broadcast(EVENT_CHANNEL_MOTOR, text, sizeof text);
    task.requests++;
    last[0] = h;
    last[1] = v;
    last[2] = number;
    task.last_rotate_ms = now_ms;
    task.last_time = naro_clock_wall_s();
}

void round_run()
{
    // A rectangle that detection posted while tracking was being turned on may have been forgotten after
    // all.
    if (shared.motion_rect_config.load(std::memory_order_relaxed) == NO_RECTANGLE)
        return;
    int h, v;
    motion_track_calcu_rotate_angle(&h, &v);
    log_info("rotate_buf = [%d,%d]===\n", h, v);
    if (abs(h) < DEAD_ZONE_DEGREES && abs(v) < DEAD_ZONE_DEGREES)
        return;
    const uint64_t now_ms = time_realtime_ms();
    // Deliberately unsigned: after a clock that was set back the next request goes out at once.
    if (now_ms - task.last_rotate_ms < SPACING_MS)
        log_info("motor is alerady running\n");
    else
        request(h, v, now_ms);
}

void *motion_track_task_thread(void *)
{
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    prctl(PR_SET_NAME, "motion_track_task");
    while (shared.mode.load(std::memory_order_relaxed) != 0) {
        wait_for_rectangle();
        round_run();
        task.rounds++;
    }
    log_info("motion_track_task thread exit\n");
    return nullptr;
}

} // namespace

// ---- On and off -------------------------------------------------------------------------------------------

int motion_track_create_task(void)
{
    motion_track_destroy_task(); // two would share one semaphore, and the first could never be joined
    while (sem_trywait(semaphore()) == 0)
        ;
    shared.motion_rect_config.store(NO_RECTANGLE, std::memory_order_relaxed);
    std::fill(std::begin(task.last_rotate_angle), std::end(task.last_rotate_angle), 0);
    const int error = pthread_create(&thread, nullptr, motion_track_task_thread, nullptr);
    thread_started = error == 0;
    if (error != 0)
        log_err("create motion_track_task_thread fail ret = %d\n", error);
    return error;
}

void motion_track_destroy_task(void)
{
    if (!thread_started)
        return;
    thread_started = false;
    if (pthread_cancel(thread) != 0)
        log_err("pthread_cancel motion_track_task_thread\r\n");
    if (pthread_join(thread, nullptr) != 0)
        log_err("pthread_join motion_track_task_thread\r\n");
}

int motion_track_mode_config(int mode)
{
    pthread_mutex_lock(&mode_lock);
    shared.mode.store(mode, std::memory_order_relaxed);
    if (mode == 1) {
        motion_track_create_task();
        log_info("start motion_task thread\n");
    } else if (motion_record_track_mode_get() == 1) {
        motion_track_destroy_task();
        log_info("stop motion_task thread\n");
    }
    motion_record_track_mode_set(mode);
    pthread_mutex_unlock(&mode_lock);
    return 0;
}

int motion_track_mode_get(void)
{
    return shared.mode.load(std::memory_order_relaxed);
}

// ---- Rectangles and angles --------------------------------------------------------------------------------

int motion_track_coordinate_config(int x, int y, int w, int h)
{
    const uint64_t packed = packed_16(x) | packed_16(y) << 16 | packed_16(static_cast<int64_t>(x) + w) << 32 |
                            packed_16(static_cast<int64_t>(y) + h) << 48;
    shared.motion_rect_config.store(packed, std::memory_order_relaxed);
    sem_post(semaphore());
    return 0;
}

int motion_track_calcu_rotate_angle(int *h_out, int *v_out)
{
    const rectangle r = last_rectangle();
    if (cal_h_v_degree(h_out, v_out, r.x1, r.y1, r.x2, r.y2) != 0)
        return -1;
    if (*h_out != 0)
        *v_out = 0;
    log_info("[%s] distance = %d, h = %d, v = %d\n", __func__,
             shared.original_point_dis.load(std::memory_order_relaxed), *h_out, *v_out);
    return 0;
}

int motion_track_filter_duplicate_coordinate(int x, int, int, int)
{
    const int64_t away = static_cast<int64_t>(x) - last_rectangle().x1;
    if (away > SAME_PLACE_PIXELS || away < -SAME_PLACE_PIXELS)
        return 1;
    const int64_t d = naro_clock_wall_s() -
                      static_cast<int64_t>(shared.last_point_dis_time.load(std::memory_order_relaxed));
    if (d < 0 || d > SAME_TIME)
        return 1;
    log_info("it seems is a duplicate frame ,so discard\n");
    return 0;
}

int motion_track_dis_between_ori_point(int distance)
{
    const uint64_t now_ms = time_realtime_ms();
    shared.original_point_dis.store(distance, std::memory_order_relaxed);
    shared.last_point_dis_time.store(now_ms, std::memory_order_relaxed);
    log_info("last_point_dis_time = %" PRIu64 ",time = %" PRIu64 "\n", now_ms, now_ms);
    return 0;
}

int motion_track_rotate_opposite(int value)
{
    return value;
}
