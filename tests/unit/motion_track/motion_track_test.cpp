// The tracker: which rectangles become which requests, when, and how its thread lives and ends.
#include "motion_track.h"

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <semaphore.h>
#include <string.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include <gmock/gmock.h>

#include "event_channels.h"
#include "fake_clock.h"
#include "lock_watch.h"
#include "log_capture.h"
#include "motion_angle.h"
#include "motion_event_record.h"

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<LogCapture::Line>;
using Texts = std::vector<std::string>;

extern "C" {
int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
int __real_pthread_cancel(pthread_t);
int __real_pthread_join(pthread_t, void **);
int __real_sem_init(sem_t *, int, unsigned);
int __real_sem_post(sem_t *);
int __real_sem_wait(sem_t *);
}

namespace
{

bool cancellable()
{
    int state, ignored;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    pthread_setcancelstate(state, &ignored);
    return state == PTHREAD_CANCEL_ENABLE;
}

// What surrounds the tracker.
struct World {
    std::mutex mutex; // protects all but what is called through
    std::condition_variable changed;
    Texts life;            // of the thread: "create", "cancel", "join", and "copy MODE" of the records
    int create_result = 0; // what pthread_create refuses with
    int cancel_result = 0, join_result = 0; // answered after the call was made
    int waits = 0;                          // how often the tracker began to wait
    int interrupts = 0;                     // so many waits are interrupted
    bool cancellable_in_wait = true, cancellable_elsewhere = false;
    std::string name; // of the thread that waits
    int copy = 0;     // of the mode, in the records
    Texts requests;
    bool whole_buffers = true;        // 64 bytes on the motor channel, zero behind the text
    std::function<void()> on_post;    // on the thread that posts, right before it does
    std::function<void()> on_request; // on the tracker's thread, no lock held
};
World *world;
Texts semaphores; // made in this process: "SHARED VALUE"

class MotionTrack : public testing::Test
{
  protected:
    MotionTrack() { world = &w; }
    ~MotionTrack() override
    {
        motion_track_mode_config(0);
        motion_track_destroy_task();
        world = nullptr;
    }
    void on()
    {
        const int before = waits();
        EXPECT_EQ(motion_track_mode_config(1), 0);
        ASSERT_TRUE(wait_for_waits(before + 1));
    }
    int waits()
    {
        std::lock_guard<std::mutex> guard(w.mutex);
        return w.waits;
    }
    bool wait_for_waits(int count)
    {
        std::unique_lock<std::mutex> guard(w.mutex);
        return w.changed.wait_for(guard, std::chrono::seconds(10), [&] { return w.waits >= count; });
    }
    // A rectangle, and the round that looks at it.
    void see(int x, int y, int width, int height)
    {
        const int before = waits();
        EXPECT_EQ(motion_track_coordinate_config(x, y, width, height), 0);
        ASSERT_TRUE(wait_for_waits(before + 1));
    }
    void see_at(int x, int y) { see(x - 10, y - 8, 20, 16); }

    World w;
    FakeClock clock{FakeClock::Sleep::advances, 1000000};
    LogCapture log;
};

const char *const start_line = "start motion_task thread\n";
const char *const stop_line = "stop motion_task thread\n";
const char *const exit_line = "motion_track_task thread exit\n";
const char *const busy_line = "motor is alerady running\n";

} // namespace

int motion_record_track_mode_get(void)
{
    std::lock_guard<std::mutex> guard(world->mutex);
    return world->copy;
}

void motion_record_track_mode_set(int mode)
{
    std::lock_guard<std::mutex> guard(world->mutex);
    world->copy = mode;
    world->life.push_back("copy " + std::to_string(mode));
}

int shbf_event_broadcast(int index, const void *buf, int len)
{
    {
        std::lock_guard<std::mutex> guard(world->mutex);
        const std::string bytes(static_cast<const char *>(buf), static_cast<size_t>(len));
        const std::string text = bytes.c_str();
        world->requests.push_back(text);
        world->whole_buffers = world->whole_buffers && index == 1 && len == 64 &&
                               bytes == text + std::string(64 - text.size(), '\0');
        world->cancellable_elsewhere = world->cancellable_elsewhere || cancellable();
    }
    if (world->on_request)
        world->on_request();
    pthread_testcancel(); // as any wait on the way of a request would
    return -1;            // nobody hears it: the tracker must not mind
}

extern "C" {
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                          void *argument)
{
    if (!world)
        return __real_pthread_create(thread, attributes, entry, argument);
    {
        std::lock_guard<std::mutex> guard(world->mutex);
        world->life.push_back("create");
        if (world->create_result != 0)
            return world->create_result;
    }
    return __real_pthread_create(thread, attributes, entry, argument);
}

int __wrap_pthread_cancel(pthread_t thread)
{
    const int result = __real_pthread_cancel(thread);
    std::lock_guard<std::mutex> guard(world->mutex);
    world->life.push_back("cancel");
    world->changed.notify_all();
    return result != 0 ? result : world->cancel_result;
}

int __wrap_pthread_join(pthread_t thread, void **end)
{
    const int result = __real_pthread_join(thread, end);
    if (!world)
        return result;
    std::lock_guard<std::mutex> guard(world->mutex);
    world->life.push_back("join");
    return result != 0 ? result : world->join_result;
}

int __wrap_sem_init(sem_t *semaphore, int shared, unsigned value)
{
    semaphores.push_back(std::to_string(shared) + " " + std::to_string(value));
    return __real_sem_init(semaphore, shared, value);
}

int __wrap_sem_post(sem_t *semaphore)
{
    if (world && world->on_post)
        world->on_post();
    return __real_sem_post(semaphore);
}

int __wrap_sem_wait(sem_t *semaphore)
{
    {
        std::lock_guard<std::mutex> guard(world->mutex);
        char name[16] = "";
        prctl(PR_GET_NAME, name);
        world->name = name;
        world->waits++;
        world->cancellable_in_wait = world->cancellable_in_wait && cancellable();
        world->changed.notify_all();
        if (world->interrupts > 0) {
            world->interrupts--;
            errno = EINTR;
            return -1;
        }
    }
    return __real_sem_wait(semaphore);
}
}

namespace
{

LogCapture::Line info(const std::string &text)
{
    return {NARO_LOG_INFO, text};
}
LogCapture::Line error(const std::string &text)
{
    return {NARO_LOG_ERR, text};
}

// ---- On and off -------------------------------------------------------------------------------------------

TEST_F(MotionTrack, OnAndOff)
{
    EXPECT_EQ(motion_track_mode_get(), 0);
    on();
    EXPECT_EQ(motion_track_mode_get(), 1);
    EXPECT_EQ(w.name, "motion_track_ta"); // of "motion_track_task", what the kernel keeps
    EXPECT_THAT(log.lines(), ElementsAre(info(start_line)));
    EXPECT_EQ(motion_track_mode_config(0), 0);
    EXPECT_EQ(motion_track_mode_get(), 0);
    EXPECT_THAT(w.life, ElementsAre("create", "copy 1", "cancel", "join", "copy 0"));
    EXPECT_THAT(log.lines(), ElementsAre(info(start_line), info(stop_line)));
    EXPECT_TRUE(w.cancellable_in_wait);
    on();
    see_at(300, 96);
    motion_track_mode_config(0);
    motion_track_coordinate_config(300, 96, 2, 2);
    EXPECT_THAT(semaphores,
                ElementsAre("0 0")); // one for all, since detection may be about to post at any moment
}

TEST_F(MotionTrack, OffWhenItIsOff)
{
    EXPECT_EQ(motion_track_mode_config(0), 0);
    EXPECT_EQ(motion_track_mode_config(2), 0);
    EXPECT_EQ(motion_track_mode_get(), 2);
    EXPECT_THAT(w.life, ElementsAre("copy 0", "copy 2"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(MotionTrack, AnyOtherModeIsOff)
{
    for (const int mode : {0, 2, -1, INT_MAX}) {
        on();
        w.life.clear();
        log.clear();
        motion_track_mode_config(mode);
        EXPECT_EQ(motion_track_mode_get(), mode);
        EXPECT_THAT(w.life, ElementsAre("cancel", "join", "copy " + std::to_string(mode)));
        EXPECT_THAT(log.lines(), ElementsAre(info(stop_line)));
    }
}

TEST_F(MotionTrack, TheThreadIsGoneWhenItIsSaidToBe)
{
    for (int i = 0; i < 20; i++) {
        on();
        see_at(300, 96);
        motion_track_mode_config(0);
        const int before = waits();
        motion_track_coordinate_config(300, 96, 2, 2);
        EXPECT_EQ(waits(), before);
    }
}

TEST_F(MotionTrack, OnWhenItIsOnStartsAnotherThreadInItsPlace)
{
    on();
    see_at(300, 96);
    w.life.clear();
    log.clear();
    on();
    // The first is ended before: no thread is left behind that nobody could end.
    EXPECT_THAT(w.life, ElementsAre("cancel", "join", "create", "copy 1"));
    EXPECT_THAT(log.lines(), ElementsAre(info(start_line)));
    clock.advance_ms(151);
    see_at(20, 96);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]", "[-39,0,1]"));
    w.life.clear();
    motion_track_mode_config(0);
    EXPECT_THAT(w.life, ElementsAre("cancel", "join", "copy 0"));
}

TEST_F(MotionTrack, AThreadThatCannotBeCreated)
{
    w.create_result = EAGAIN;
    EXPECT_EQ(motion_track_mode_config(1), 0);
    EXPECT_EQ(motion_track_mode_get(), 1);
    EXPECT_THAT(log.lines(),
                ElementsAre(error("create motion_track_task_thread fail ret = 11\n"), info(start_line)));
    EXPECT_EQ(motion_track_create_task(), 11);
    log.clear();
    EXPECT_EQ(motion_track_mode_config(0), 0);
    EXPECT_THAT(w.life, ElementsAre("create", "copy 1", "create", "copy 0")); // nobody is cancelled or joined
    EXPECT_THAT(log.lines(), ElementsAre(info(stop_line)));
    w.create_result = 0;
    on();
    see_at(300, 96);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]"));
}

TEST_F(MotionTrack, FailuresOfTheEndAreLogged)
{
    on();
    w.cancel_result = w.join_result = ESRCH;
    log.clear();
    motion_track_mode_config(0);
    EXPECT_THAT(log.lines(),
                ElementsAre(error("pthread_cancel motion_track_task_thread\r\n"),
                            error("pthread_join motion_track_task_thread\r\n"), info(stop_line)));
    w.cancel_result = w.join_result = 0;
}

TEST_F(MotionTrack, DestroyEndsTheThreadOnce)
{
    w.life.clear();
    motion_track_destroy_task();
    EXPECT_THAT(w.life, IsEmpty());
    on();
    motion_track_destroy_task();
    motion_track_destroy_task();
    EXPECT_THAT(w.life, ElementsAre("create", "copy 1", "cancel", "join"));
    EXPECT_EQ(motion_track_create_task(), 0);
    ASSERT_TRUE(wait_for_waits(2));
    see_at(300, 96);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]"));
}

TEST_F(MotionTrack, WithoutTheModeTheThreadEndsByItself)
{
    EXPECT_EQ(motion_track_create_task(), 0);
    EXPECT_TRUE(log.wait_for(exit_line));
    EXPECT_THAT(log.lines(), ElementsAre(info(exit_line)));
    EXPECT_EQ(waits(), 0);
    motion_track_destroy_task();
    EXPECT_THAT(w.life, ElementsAre("create", "cancel", "join"));
}

TEST_F(MotionTrack, ARequestUnderWayIsFinishedBeforeTheEnd)
{
    w.on_request = [this] {
        std::unique_lock<std::mutex> guard(w.mutex);
        w.changed.wait_for(guard, std::chrono::seconds(10), [this] { return w.life.back() == "cancel"; });
    };
    on();
    motion_track_coordinate_config(290, 88, 20, 16);
    {
        std::unique_lock<std::mutex> guard(w.mutex);
        // Inside the broadcast; here the thread has been asked to end only later, by the line below.
        ASSERT_TRUE(w.changed.wait_for(guard, std::chrono::seconds(10), [this] { return w.waits == 1; }));
    }
    ASSERT_TRUE(log.wait_for("rotate_buf = [40,0]===\n"));
    while (true) {
        std::lock_guard<std::mutex> guard(w.mutex);
        if (!w.requests.empty())
            break;
    }
    motion_track_mode_config(0);
    // It went on to the top of its loop, found the mode off, and left.
    EXPECT_TRUE(log.has(NARO_LOG_INFO, exit_line));
    EXPECT_EQ(log.texts().back(), stop_line);
    EXPECT_FALSE(w.cancellable_elsewhere);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]"));
}

// ---- Rounds -----------------------------------------------------------------------------------------------

TEST_F(MotionTrack, AnInterruptedWaitIsNoRound)
{
    on();
    w.interrupts = 3; // after the round
    EXPECT_EQ(motion_track_coordinate_config(290, 88, 20, 16), 0);
    ASSERT_TRUE(wait_for_waits(5));
    EXPECT_EQ(log.count("rotate_buf = [40,0]===\n"), 1u);
    see_at(300, 96);
    EXPECT_EQ(log.count("rotate_buf = [40,0]===\n"), 2u);
}

TEST_F(MotionTrack, WhatIsSaidInARound)
{
    on();
    log.clear();
    see_at(300, 96);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            info("[motion_track_calcu_rotate_angle] distance = -1, h = 40, v = 0\n"),
            info("rotate_buf = [40,0]===\n"),
            info("[motion_track] [40,0,0] at 1000000 ms, the last was [0,0,0] at 0 s; 0 of 0 rounds\n")));
    log.clear();
    see_at(160, 96);
    EXPECT_THAT(log.lines(),
                ElementsAre(info("[motion_track_calcu_rotate_angle] distance = -1, h = 0, v = 0\n"),
                            info("rotate_buf = [0,0]===\n")));
    log.clear();
    clock.advance_ms(2345);
    see_at(160, 180);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            info("[motion_track_calcu_rotate_angle] distance = -1, h = 0, v = 20\n"),
            info("rotate_buf = [0,20]===\n"),
            info("[motion_track] [0,20,1] at 1002345 ms, the last was [40,0,0] at 1000 s; 1 of 2 rounds\n")));
    log.clear();
    clock.advance_ms(1655);
    see_at(20, 180);
    EXPECT_EQ(log.texts().back(),
              "[motion_track] [-39,0,2] at 1004000 ms, the last was [0,20,1] at 1002 s; 2 of 3 rounds\n");
}

TEST_F(MotionTrack, RequestsAreTextsInWholeBuffers)
{
    on();
    const struct {
        int x, y;
        const char *request;
    } cases[] = {{300, 96, "[40,0,0]"},
                 {160, 180, "[0,20,1]"},
                 {20, 180, "[-39,0,2]"},
                 {160, 12, "[0,-19,3]"},
                 {310, 188, "[42,0,4]"}};
    Texts expected;
    for (const auto &c : cases) {
        clock.advance_ms(1000);
        see_at(c.x, c.y);
        expected.push_back(c.request);
    }
    EXPECT_EQ(w.requests, expected);
    EXPECT_TRUE(w.whole_buffers);
    EXPECT_TRUE(w.cancellable_in_wait);
    EXPECT_FALSE(w.cancellable_elsewhere);
}

TEST_F(MotionTrack, TheDeadZone)
{
    on();
    const struct {
        int x, y;
        bool asks;
    } cases[] = {
        {160, 96, false},  {188, 96, false}, {189, 96, true}, // 9.47 and 9.79 degrees
        {129, 96, false},  {128, 96, true},                   // -10.47 and -10.79
        {160, 133, false}, {160, 134, true},                  // 9.30 and 9.55
        {160, 55, false},  {160, 54, true},                   // -10.29 and -10.53
        {188, 133, false},
    };
    for (const auto &c : cases) {
        w.requests.clear();
        clock.advance_ms(1000);
        see_at(c.x, c.y);
        EXPECT_EQ(w.requests.size(), c.asks ? 1u : 0u) << c.x << ", " << c.y;
    }
    EXPECT_FALSE(log.has(busy_line));
}

TEST_F(MotionTrack, APanDoesNotTilt)
{
    on();
    see_at(164, 180); // 1 degree beside the middle, and far below it
    EXPECT_THAT(w.requests, IsEmpty());
    see_at(161, 180);
    EXPECT_THAT(w.requests, ElementsAre("[0,20,0]"));
}

TEST_F(MotionTrack, RequestsKeepTheirDistanceInTime)
{
    on();
    see_at(300, 96);
    clock.advance_ms(100);
    see_at(300, 96);
    EXPECT_EQ(log.count(busy_line), 1u);
    EXPECT_TRUE(log.has(NARO_LOG_INFO, busy_line));
    clock.advance_ms(50); // 150 since the request; what was not sent does not count
    see_at(300, 96);
    EXPECT_EQ(log.count(busy_line), 2u);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]"));
    clock.advance_ms(1);
    see_at(300, 96);
    EXPECT_EQ(log.count(busy_line), 2u);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]", "[40,0,1]"));
    see_at(300, 96);
    EXPECT_EQ(log.count(busy_line), 3u);
}

TEST_F(MotionTrack, AClockThatWasSetBackHoldsUpNothing)
{
    on();
    see_at(300, 96);
    clock.set_wall_ms(999999);
    see_at(300, 96);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]", "[40,0,1]"));
    EXPECT_FALSE(log.has(busy_line));
}

TEST_F(MotionTrack, NumbersAndSpacingOutliveTheThread)
{
    on();
    see_at(300, 96);
    motion_track_mode_config(0);
    on();
    clock.advance_ms(150);
    see_at(300, 96);
    EXPECT_EQ(log.count(busy_line), 1u);
    clock.advance_ms(1);
    log.clear();
    see_at(20, 96);
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]", "[-39,0,1]"));
    // The last angles are forgotten at a start; the rest goes on.
    EXPECT_EQ(log.texts().back(),
              "[motion_track] [-39,0,1] at 1000151 ms, the last was [0,0,0] at 1000 s; 1 of 2 rounds\n");
}

TEST_F(MotionTrack, WhatIsPostedWhileTrackingIsOffIsForgotten)
{
    for (int i = 0; i < 100; i++) // also before the first start
        EXPECT_EQ(motion_track_coordinate_config(300, 96, 10, 10), 0);
    on();
    see_at(160, 96);
    EXPECT_EQ(waits(), 2); // one round
    EXPECT_THAT(w.requests, IsEmpty());
    motion_track_mode_config(0);
    for (int i = 0; i < 100; i++)
        motion_track_coordinate_config(300, 96, 10, 10);
    on();
    see_at(160, 96);
    EXPECT_EQ(waits(), 4);
    EXPECT_THAT(w.requests, IsEmpty());
    // And so is the rectangle itself.
    motion_track_mode_config(0);
    motion_track_coordinate_config(300, 96, 10, 10);
    on();
    int h, v;
    motion_track_calcu_rotate_angle(&h, &v);
    EXPECT_EQ(h, -43); // 0, 0, 0, 0
    EXPECT_EQ(v, 0);
}

TEST_F(MotionTrack, WithoutARectangleThereIsNothingToFollow)
{
    on();
    log.clear();
    see(0, 0, 0, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_THAT(w.requests, IsEmpty());
    see(0, 0, 0, 1);
    EXPECT_THAT(w.requests, ElementsAre("[-43,0,0]"));
    EXPECT_TRUE(log.texts().back().find("; 0 of 1 rounds\n") !=
                std::string::npos); // it was a round all the same
}

TEST_F(MotionTrack, TheNewestRectangleCounts)
{
    w.on_request = [this] {
        if (w.requests.size() == 1) {
            motion_track_coordinate_config(10, 88, 20, 16);
            motion_track_coordinate_config(150, 172, 20, 16);
            clock.advance_ms(151);
        }
    };
    on();
    motion_track_coordinate_config(290, 88, 20, 16);
    ASSERT_TRUE(wait_for_waits(4));
    // Two more rounds, both of which look at the last one.
    EXPECT_THAT(w.requests, ElementsAre("[40,0,0]", "[0,20,1]"));
    EXPECT_EQ(log.count("rotate_buf = [0,20]===\n"), 2u);
    EXPECT_EQ(log.count(busy_line), 1u);
}

// ---- Rectangles and angles --------------------------------------------------------------------------------

TEST_F(MotionTrack, TheRectangleIsKeptWithExclusiveEnds)
{
    // 187.5 and 188.5: on either side of 9.5 degrees would be 188.09.
    const struct {
        int x, y, w, h;
    } cases[] = {{290, 10, 21, 100}, {0, 0, 320, 192},      {0, 0, 1, 1},
                 {319, 191, 1, 1},   {-300, -200, 10, 400}, {8, 16, 303, 17},
                 {1, 2, 3, 4},       {300, 7, 20, 11},      {-1, -1, 0, 0}};
    for (const auto &c : cases) {
        int h = -999, v = -999, expected_h, expected_v;
        motion_track_coordinate_config(c.x, c.y, c.w, c.h);
        EXPECT_EQ(motion_track_calcu_rotate_angle(&h, &v), 0);
        cal_h_v_degree(&expected_h, &expected_v, c.x, c.y, c.x + c.w, c.y + c.h);
        EXPECT_EQ(h, expected_h);
        EXPECT_EQ(v, expected_h != 0 ? 0 : expected_v);
    }
}

TEST_F(MotionTrack, TheRectangleIsThereBeforeItIsPosted)
{
    int h = -999, v;
    w.on_post = [&] { motion_track_calcu_rotate_angle(&h, &v); };
    motion_track_coordinate_config(290, 88, 20, 16);
    EXPECT_EQ(h, 40);
}

TEST_F(MotionTrack, PlacesBeyond16BitsAreCutToThem)
{
    const struct {
        int x, w;
        int x1, x2; // as they are kept
    } cases[] = {{INT_MAX, INT_MAX, 32767, 32767}, {INT_MIN, INT_MIN, -32768, -32768},
                 {32767, 1, 32767, 32767},         {-32768, -1, -32768, -32768},
                 {-32768, 65535, -32768, 32767},   {-32769, 33000, -32768, 231}};
    for (const auto &c : cases) {
        int h = -999, v = -999, expected_h, expected_v;
        motion_track_coordinate_config(c.x, 0, c.w, 192);
        motion_track_calcu_rotate_angle(&h, &v);
        cal_h_v_degree(&expected_h, &expected_v, c.x1, 0, c.x2, 192);
        EXPECT_EQ(h, expected_h) << c.x;
        motion_track_coordinate_config(159, c.x, 2, c.w);
        motion_track_calcu_rotate_angle(&h, &v);
        cal_h_v_degree(&expected_h, &expected_v, 160, c.x1, 160, c.x2);
        EXPECT_EQ(h, 0);
        EXPECT_EQ(v, expected_v) << c.x;
    }
}

TEST_F(MotionTrack, NoPlaceForTheAngles)
{
    int kept = 7;
    EXPECT_EQ(motion_track_calcu_rotate_angle(nullptr, &kept), -1);
    EXPECT_EQ(motion_track_calcu_rotate_angle(&kept, nullptr), -1);
    EXPECT_EQ(kept, 7);
    const LogCapture::Line line = error("[cal_h_v_degree] no place for the angles\n");
    EXPECT_THAT(log.lines(), ElementsAre(line, line));
}

TEST_F(MotionTrack, TheDistanceIsNotedAndShown)
{
    EXPECT_EQ(motion_track_dis_between_ori_point(17), 0);
    EXPECT_THAT(log.lines(), ElementsAre(info("last_point_dis_time = 1000000,time = 1000000\n")));
    clock.set_wall_ms(18446744073709551615u);
    log.clear();
    EXPECT_EQ(motion_track_dis_between_ori_point(-3), 0);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(info("last_point_dis_time = 18446744073709551615,time = 18446744073709551615\n")));
    log.clear();
    int h, v;
    motion_track_coordinate_config(150, 88, 20, 16);
    motion_track_calcu_rotate_angle(&h, &v);
    EXPECT_THAT(log.lines(),
                ElementsAre(info("[motion_track_calcu_rotate_angle] distance = -3, h = 0, v = 0\n")));
}

TEST_F(MotionTrack, ADuplicateIsNearInPlaceAndInItsStrangeTime)
{
    const LogCapture::Line line = info("it seems is a duplicate frame ,so discard\n");
    motion_track_coordinate_config(100, 50, 10, 10);
    clock.set_wall_ms(1000);
    motion_track_dis_between_ori_point(1); // at 1000 ms, which is compared with seconds
    const struct {
        int x;
        uint64_t wall_ms;
        int is_new;
    } cases[] = {
        {100, 1000999, 0}, {100, 999999, 1},      {100, 1000000, 0},     {100, 1500999, 0},
        {100, 1501000, 1}, {104, 1200000, 0},     {96, 1200000, 0},      {105, 1200000, 1},
        {95, 1200000, 1},  {INT_MAX, 1200000, 1}, {INT_MIN, 1200000, 1},
    };
    for (const auto &c : cases) {
        log.clear();
        clock.set_wall_ms(c.wall_ms);
        EXPECT_EQ(motion_track_filter_duplicate_coordinate(c.x, 7, 8, 9), c.is_new)
            << c.x << " " << c.wall_ms;
        EXPECT_EQ(log.lines(), c.is_new ? Lines{} : Lines{line});
    }
}

TEST_F(MotionTrack, WithoutAPointItsTimeIsZero)
{
    motion_track_coordinate_config(100, 50, 10, 10);
    clock.set_wall_ms(500999);
    EXPECT_EQ(motion_track_filter_duplicate_coordinate(100, 7, 8, 9), 0);
    clock.set_wall_ms(501000);
    EXPECT_EQ(motion_track_filter_duplicate_coordinate(100, 7, 8, 9), 1);
}

TEST_F(MotionTrack, OppositeIsTheSame)
{
    for (const int value : {0, 1, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(motion_track_rotate_opposite(value), value);
}

// ---- Threads ----------------------------------------------------------------------------------------------

TEST_F(MotionTrack, ARectangleIsNeverSeenHalfChanged)
{
    naro_log_set_sink([](void *, naro_log_level, const char *) {}, nullptr);
    motion_track_coordinate_config(290, 88, 20, 16);
    std::atomic<bool> end{false};
    std::thread detection([&] {
        while (!end) {
            motion_track_coordinate_config(150, 172, 20, 16); // 0, 20
            motion_track_coordinate_config(290, 88, 20, 16);  // 40, 0
        }
    });
    int mixed = 0;
    for (int i = 0; i < 20000; i++) {
        int h, v;
        motion_track_calcu_rotate_angle(&h, &v);
        mixed += !((h == 40 && v == 0) || (h == 0 && v == 20));
    }
    end = true;
    detection.join();
    EXPECT_EQ(mixed, 0);
}

TEST_F(MotionTrack, OnAndOffWhileDetectionPosts)
{
    naro_log_set_sink([](void *, naro_log_level, const char *) {}, nullptr);
    std::atomic<bool> end{false};
    std::thread detection([&] {
        while (!end) {
            motion_track_coordinate_config(290, 88, 20, 16);
            motion_track_dis_between_ori_point(motion_track_mode_get());
            motion_track_filter_duplicate_coordinate(290, 88, 20, 16);
            clock.advance_ms(40);
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> people;
    for (int n = 0; n < 2; n++)
        people.emplace_back([n] {
            for (int i = 0; i < 100; i++)
                motion_track_mode_config((i + n) % 3 != 0);
        });
    for (std::thread &person : people)
        person.join();
    motion_track_mode_config(0);
    end = true;
    detection.join();
    EXPECT_EQ(motion_track_mode_get(), 0);
    const int ended = static_cast<int>(std::count(w.life.begin(), w.life.end(), "join"));
    EXPECT_EQ(std::count(w.life.begin(), w.life.end(), "create"), ended);
    EXPECT_FALSE(w.cancellable_elsewhere);
    EXPECT_TRUE(w.cancellable_in_wait);
}

} // namespace
