// The clock seam: real time, unless a test has put another clock in its place.
#include "naro_util.h"

#include <errno.h>
#include <ev.h>
#include <time.h>

namespace
{

uint64_t now_ms(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

uint64_t real_wall_ms(void *)
{
    return now_ms(CLOCK_REALTIME);
}

uint64_t real_monotonic_ms(void *)
{
    return now_ms(CLOCK_MONOTONIC);
}

void real_sleep_ms(void *, unsigned ms)
{
    // To a point in time, so that signals on the way do not make the sleep longer.
    timespec end;
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += ms / 1000;
    end.tv_nsec += static_cast<long>(ms % 1000) * 1000000;
    if (end.tv_nsec >= 1000000000) {
        end.tv_nsec -= 1000000000;
        end.tv_sec++;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

void real_arm_timer(void *, struct ev_loop *loop, struct ev_timer *timer, double after_s)
{
    // libev counts from the time at which it woke up last, which may be long ago when a callback took its
    // time or the loop has not run yet; without the update the timer would fire early by that much.
    ev_now_update(loop);
    ev_timer_stop(loop, timer);
    ev_timer_set(timer, after_s, 0.);
    ev_timer_start(loop, timer);
}

const naro_clock real_clock = {nullptr, real_wall_ms, real_monotonic_ms, real_sleep_ms, real_arm_timer};

// Written before threads start, only read afterwards. A null member stands for the real clock's.
naro_clock replacement = {};

} // namespace

void naro_clock_replace(const struct naro_clock *clock)
{
    replacement = clock ? *clock : naro_clock{};
}

uint64_t time_realtime_ms(void)
{
    return (replacement.wall_ms ? replacement.wall_ms : real_clock.wall_ms)(replacement.context);
}

int64_t naro_clock_wall_s(void)
{
    return static_cast<int64_t>(time_realtime_ms() / 1000);
}

uint64_t naro_clock_monotonic_ms(void)
{
    return (replacement.monotonic_ms ? replacement.monotonic_ms
                                     : real_clock.monotonic_ms)(replacement.context);
}

void naro_clock_sleep_ms(unsigned ms)
{
    (replacement.sleep_ms ? replacement.sleep_ms : real_clock.sleep_ms)(replacement.context, ms);
}

void naro_clock_arm_timer(struct ev_loop *loop, struct ev_timer *timer, double after_s)
{
    (replacement.arm_timer ? replacement.arm_timer : real_clock.arm_timer)(replacement.context, loop, timer,
                                                                           after_s);
}
