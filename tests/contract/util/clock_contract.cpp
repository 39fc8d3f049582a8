// What every implementation of the clock seam owes to its callers: real time by default, another clock when a
// test asks for it.
#include <algorithm>
#include <ev.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>

#include "fake_clock.h"
#include "naro_util.h"

namespace
{

uint64_t now_ms(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void sleep_real_ms(long ms)
{
    const timespec span = {ms / 1000, ms % 1000 * 1000000};
    nanosleep(&span, nullptr);
}

TEST(real_clock, wall_time_is_the_systems)
{
    // Several readings, so that both halves of the second are met.
    for (int i = 0; i < 5; i++) {
        const uint64_t before = now_ms(CLOCK_REALTIME);
        const uint64_t seen = time_realtime_ms();
        const int64_t seen_s = naro_clock_wall_s();
        const uint64_t after = now_ms(CLOCK_REALTIME);
        EXPECT_GE(seen, before);
        EXPECT_LE(seen, after);
        EXPECT_GE(seen_s, static_cast<int64_t>(before / 1000));
        EXPECT_LE(seen_s, static_cast<int64_t>(after / 1000));
        sleep_real_ms(137);
    }
}

TEST(real_clock, monotonic_time_is_the_systems)
{
    const uint64_t before = now_ms(CLOCK_MONOTONIC);
    const uint64_t seen = naro_clock_monotonic_ms();
    const uint64_t after = now_ms(CLOCK_MONOTONIC);
    EXPECT_GE(seen, before);
    EXPECT_LE(seen, after);
}

TEST(real_clock, sleeps_at_least_as_long_as_asked)
{
    for (unsigned ms : {0u, 1u, 30u, 999u, 1001u}) {
        // On a busy machine one sleep may be long; one of five will not be.
        int64_t shortest_ns = INT64_MAX;
        for (int attempt = 0; attempt < 5 && shortest_ns > (ms + 500) * 1000000LL; attempt++) {
            timespec from, to;
            clock_gettime(CLOCK_MONOTONIC, &from);
            naro_clock_sleep_ms(ms);
            clock_gettime(CLOCK_MONOTONIC, &to);
            const int64_t slept_ns = (to.tv_sec - from.tv_sec) * 1000000000LL + (to.tv_nsec - from.tv_nsec);
            EXPECT_GE(slept_ns, ms * 1000000LL);
            shortest_ns = std::min(shortest_ns, slept_ns);
        }
        EXPECT_LE(shortest_ns, (ms + 500) * 1000000LL) << ms;
    }
}

TEST(real_clock, a_signal_does_not_cut_a_sleep_short)
{
    static volatile sig_atomic_t signals;
    signals = 0;
    struct sigaction action = {}, old_action;
    action.sa_handler = [](int) { signals = signals + 1; };
    ASSERT_EQ(sigaction(SIGALRM, &action, &old_action), 0);
    const itimerval every_5_ms = {{0, 5000}, {0, 5000}}, off = {};
    setitimer(ITIMER_REAL, &every_5_ms, nullptr);
    const uint64_t from = now_ms(CLOCK_MONOTONIC);
    naro_clock_sleep_ms(150);
    const uint64_t to = now_ms(CLOCK_MONOTONIC);
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &old_action, nullptr);
    EXPECT_GT(signals, 0);
    EXPECT_GE(to - from, 149u);
    EXPECT_LT(to - from, 5000u);
}

TEST(real_clock, a_sleep_is_a_cancellation_point)
{
    pthread_t thread;
    ASSERT_EQ(pthread_create(
                  &thread, nullptr,
                  [](void *) -> void * {
                      naro_clock_sleep_ms(60000);
                      return nullptr;
                  },
                  nullptr),
              0);
    const uint64_t from = now_ms(CLOCK_MONOTONIC);
    pthread_cancel(thread);
    void *result = nullptr;
    pthread_join(thread, &result);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_LT(now_ms(CLOCK_MONOTONIC) - from, 30000u);
}

// One loop with one timer that notes when it fired.
class Timer : public testing::Test
{
  protected:
    Timer() : loop(ev_loop_new(EVFLAG_AUTO))
    {
        ev_init(&timer, [](struct ev_loop *, ev_timer *rung, int) {
            Timer *self = static_cast<Timer *>(rung->data);
            self->fired++;
            self->fired_at = now_ms(CLOCK_MONOTONIC);
        });
        timer.data = this;
    }
    ~Timer() override
    {
        ev_timer_stop(loop, &timer);
        ev_loop_destroy(loop);
    }
    struct ev_loop *loop;
    ev_timer timer;
    int fired = 0;
    uint64_t fired_at = 0;
};

TEST_F(Timer, fires_once_after_its_time)
{
    const uint64_t from = now_ms(CLOCK_MONOTONIC);
    naro_clock_arm_timer(loop, &timer, 0.1);
    EXPECT_TRUE(ev_is_active(&timer));
    ev_run(loop, 0); // returns when no timer is left, so it does not repeat
    EXPECT_EQ(fired, 1);
    EXPECT_GE(fired_at - from, 99u);
    EXPECT_LT(fired_at - from, 5000u);
    EXPECT_FALSE(ev_is_active(&timer));
}

TEST_F(Timer, counts_from_now_and_not_from_the_loops_last_round)
{
    ev_now_update(loop);
    sleep_real_ms(120); // a callback that took its time
    const uint64_t from = now_ms(CLOCK_MONOTONIC);
    naro_clock_arm_timer(loop, &timer, 0.1);
    ev_run(loop, 0);
    EXPECT_GE(fired_at - from, 99u);
}

TEST_F(Timer, arming_again_replaces_the_earlier_time)
{
    const uint64_t from = now_ms(CLOCK_MONOTONIC);
    naro_clock_arm_timer(loop, &timer, 60);
    naro_clock_arm_timer(loop, &timer, 0.02);
    ev_run(loop, 0);
    EXPECT_EQ(fired, 1);
    EXPECT_LT(now_ms(CLOCK_MONOTONIC) - from, 30000u);
}

TEST_F(Timer, arming_ends_an_earlier_repetition)
{
    ev_timer_set(&timer, 0.01, 0.01);
    ev_timer_start(loop, &timer);
    naro_clock_arm_timer(loop, &timer, 0.02);
    ev_run(loop, 0);
    EXPECT_EQ(fired, 1);
}

// A clock that says its context's name and notes what it was asked.
struct Asked {
    uint64_t wall = 11500, monotonic = 222;
    unsigned slept = 0;
    struct ev_loop *loop = nullptr;
    ev_timer *timer = nullptr;
    double after_s = 0;
};

naro_clock clock_of(Asked *asked)
{
    naro_clock clock = {};
    clock.context = asked;
    clock.wall_ms = [](void *context) { return static_cast<Asked *>(context)->wall; };
    clock.monotonic_ms = [](void *context) { return static_cast<Asked *>(context)->monotonic; };
    clock.sleep_ms = [](void *context, unsigned ms) { static_cast<Asked *>(context)->slept = ms; };
    clock.arm_timer = [](void *context, struct ev_loop *loop, ev_timer *timer, double after_s) {
        Asked *self = static_cast<Asked *>(context);
        self->loop = loop;
        self->timer = timer;
        self->after_s = after_s;
    };
    return clock;
}

class Replaced : public Timer
{
  protected:
    ~Replaced() override { naro_clock_replace(nullptr); }
    Asked asked;
};

TEST_F(Replaced, every_call_goes_to_the_other_clock)
{
    naro_clock clock = clock_of(&asked);
    naro_clock_replace(&clock);
    clock = {}; // it was copied
    EXPECT_EQ(time_realtime_ms(), 11500u);
    EXPECT_EQ(naro_clock_wall_s(), 11);
    asked.wall = 11999;
    EXPECT_EQ(naro_clock_wall_s(), 11);
    EXPECT_EQ(naro_clock_monotonic_ms(), 222u);
    naro_clock_sleep_ms(60000);
    EXPECT_EQ(asked.slept, 60000u);
    naro_clock_arm_timer(loop, &timer, 3.5);
    EXPECT_EQ(asked.loop, loop);
    EXPECT_EQ(asked.timer, &timer);
    EXPECT_EQ(asked.after_s, 3.5);
    EXPECT_FALSE(ev_is_active(&timer));
}

TEST_F(Replaced, a_null_member_keeps_the_real_clock)
{
    const naro_clock nothing = {};
    naro_clock_replace(&nothing);
    const uint64_t wall = now_ms(CLOCK_REALTIME), monotonic = now_ms(CLOCK_MONOTONIC);
    EXPECT_GE(time_realtime_ms(), wall);
    EXPECT_GE(naro_clock_monotonic_ms(), monotonic);
    naro_clock_sleep_ms(20);
    EXPECT_GE(now_ms(CLOCK_MONOTONIC) - monotonic, 20u);
    naro_clock_arm_timer(loop, &timer, 0.01);
    EXPECT_TRUE(ev_is_active(&timer));
}

TEST_F(Replaced, null_puts_the_real_clock_back)
{
    const naro_clock clock = clock_of(&asked);
    naro_clock_replace(&clock);
    naro_clock_replace(nullptr);
    EXPECT_GT(time_realtime_ms(), 11500u);
    naro_clock_sleep_ms(1);
    EXPECT_EQ(asked.slept, 0u);
    naro_clock_arm_timer(loop, &timer, 0.01);
    EXPECT_TRUE(ev_is_active(&timer));
}

} // namespace
