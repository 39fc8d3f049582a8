// Time in the hands of a test: wall clock, monotonic clock, sleeps and timers of everything that goes through
// the clock seam of naro_util.h. Needs the real utility library (PLATFORM util).
//
//   FakeClock clock;             // before the module starts its threads; the real clock is back at the end
//   clock.set_wall_ms(1700000000000);
//   clock.advance_ms(500);       // both clocks move; timers that fall due fire here, on this thread
//
// What a sleep does:
//   FakeClock clock;             // Sleep::advances: a sleep returns at once, and the time has moved
//   clock.on_sleep = [&](unsigned ms) { ... };          // first, on the sleeping thread, no lock held: the
//                                                       // place to change the world between two rounds
//   EXPECT_EQ(clock.sleeps(), (std::vector<unsigned>{100, 100}));
//
//   FakeClock clock(FakeClock::Sleep::blocks);          // the sleeper waits until the test moves the time
//   start_thread();
//   ASSERT_TRUE(clock.wait_for_sleepers(1));            // the thread has done its round and sleeps
//   clock.advance_ms(500);                              // let it do the next one,
//   ASSERT_TRUE(clock.wait_for_sleepers(1));            // which is done when it sleeps again
//
// A blocked sleep is a cancellation point, as the real one is. A sleep of 0 never blocks. All sleepers must
// have been woken or cancelled, and their threads joined, before the FakeClock goes.
//
// Timers: a timer that the module armed is an active libev timer that never fires by itself; advance_ms stops
// and invokes it when its time has come, unless the module has stopped it meanwhile. Re-arming replaces the
// earlier time; a callback may arm again, also within the same advance. So timers need the calling thread to
// be the one that plays the event loop. Everything else may be called from any thread.
#ifndef NARO_TESTS_FAKE_CLOCK_H
#define NARO_TESTS_FAKE_CLOCK_H

#include <algorithm>
#include <errno.h>
#include <ev.h>
#include <functional>
#include <math.h>
#include <pthread.h>
#include <set>
#include <stdint.h>
#include <time.h>
#include <vector>

#include "naro_util.h"

class FakeClock
{
  public:
    enum class Sleep { advances, blocks };

    explicit FakeClock(Sleep sleep_mode = Sleep::advances, uint64_t start_wall_ms = 1700000000000,
                       uint64_t start_monotonic_ms = 1000000)
        : mode(sleep_mode), wall(start_wall_ms), monotonic(start_monotonic_ms)
    {
        naro_clock seam = {};
        seam.context = this;
        seam.wall_ms = [](void *self) { return static_cast<FakeClock *>(self)->wall_ms(); };
        seam.monotonic_ms = [](void *self) { return static_cast<FakeClock *>(self)->monotonic_ms(); };
        seam.sleep_ms = [](void *self, unsigned ms) { static_cast<FakeClock *>(self)->sleep(ms); };
        seam.arm_timer = [](void *self, struct ev_loop *loop, struct ev_timer *timer, double after_s) {
            static_cast<FakeClock *>(self)->arm(loop, timer, after_s);
        };
        naro_clock_replace(&seam);
    }
    ~FakeClock()
    {
        naro_clock_replace(nullptr);
        pthread_cond_destroy(&changed);
        pthread_mutex_destroy(&mutex);
    }
    FakeClock(const FakeClock &) = delete;
    FakeClock &operator=(const FakeClock &) = delete;

    uint64_t wall_ms() const
    {
        Lock lock(mutex);
        return wall;
    }
    uint64_t monotonic_ms() const
    {
        Lock lock(mutex);
        return monotonic;
    }
    // Steps the wall clock alone, forward or back, as a user or NTP does; sleeps and timers do not notice.
    void set_wall_ms(uint64_t ms)
    {
        Lock lock(mutex);
        wall = ms;
    }
    // Moves both clocks. Timers fire at their own time within the span, in the order of their times.
    void advance_ms(uint64_t ms)
    {
        pthread_mutex_lock(&mutex);
        const uint64_t end = monotonic + ms;
        for (;;) {
            auto next = std::min_element(timers.begin(), timers.end(),
                                         [](const Timer &a, const Timer &b) { return a.due < b.due; });
            if (next == timers.end() || next->due > end)
                break;
            const Timer fired = *next;
            timers.erase(next);
            move_to(std::max(monotonic, fired.due));
            pthread_mutex_unlock(&mutex);
            if (ev_is_active(fired.timer)) {
                ev_timer_stop(fired.loop, fired.timer);
                ev_invoke(fired.loop, fired.timer, EV_TIMER);
            }
            pthread_mutex_lock(&mutex);
        }
        move_to(std::max(monotonic, end));
        pthread_mutex_unlock(&mutex);
    }

    // Every sleep so far in milliseconds, in order.
    std::vector<unsigned> sleeps() const
    {
        Lock lock(mutex);
        return slept;
    }
    // Waits (in real time, at most 10 s) until at least `count` threads are inside a sleep that has still
    // time to go; false when that does not come. Sleep::blocks only.
    bool wait_for_sleepers(size_t count)
    {
        timespec limit;
        clock_gettime(CLOCK_REALTIME, &limit);
        limit.tv_sec += 10;
        Lock lock(mutex);
        while (sleepers_locked() < count)
            if (pthread_cond_timedwait(&changed, &mutex, &limit) == ETIMEDOUT)
                return sleepers_locked() >= count;
        return true;
    }
    // How many timers are armed and not stopped. On the thread that plays the event loop.
    size_t armed_timers() const
    {
        Lock lock(mutex);
        return static_cast<size_t>(std::count_if(
            timers.begin(), timers.end(), [](const Timer &timer) { return ev_is_active(timer.timer); }));
    }

    // See the top. Set it before threads start.
    std::function<void(unsigned ms)> on_sleep;

  private:
    struct Timer {
        struct ev_loop *loop;
        struct ev_timer *timer;
        uint64_t due;
    };
    struct Lock {
        explicit Lock(pthread_mutex_t &locked) : mutex(locked) { pthread_mutex_lock(&mutex); }
        ~Lock() { pthread_mutex_unlock(&mutex); }
        Lock(const Lock &) = delete;
        Lock &operator=(const Lock &) = delete;
        pthread_mutex_t &mutex;
    };
    struct Sleeper {
        FakeClock *clock;
        std::multiset<uint64_t>::iterator deadline;
    };

    void move_to(uint64_t to_monotonic)
    {
        wall += to_monotonic - monotonic;
        monotonic = to_monotonic;
        pthread_cond_broadcast(&changed);
    }
    size_t sleepers_locked() const
    {
        return static_cast<size_t>(std::distance(deadlines.upper_bound(monotonic), deadlines.end()));
    }
    void sleep(unsigned ms)
    {
        if (on_sleep)
            on_sleep(ms);
        if (mode == Sleep::advances) {
            pthread_testcancel();
            {
                Lock lock(mutex);
                slept.push_back(ms);
            }
            advance_ms(ms);
            return;
        }
        pthread_mutex_lock(&mutex);
        slept.push_back(ms);
        Sleeper self = {this, deadlines.insert(monotonic + ms)};
        const uint64_t deadline = *self.deadline;
        pthread_cond_broadcast(&changed);
        // Not a lock guard of the standard library: its waits may not be unwound by a cancellation.
        pthread_cleanup_push(wake, &self);
        while (monotonic < deadline)
            pthread_cond_wait(&changed, &mutex);
        pthread_cleanup_pop(1);
    }
    static void wake(void *sleeper)
    {
        Sleeper *self = static_cast<Sleeper *>(sleeper);
        FakeClock *clock = self->clock;
        clock->deadlines.erase(self->deadline);
        pthread_mutex_unlock(&clock->mutex);
    }
    void arm(struct ev_loop *loop, struct ev_timer *timer, double after_s)
    {
        const double far_away_s = 1e9;
        ev_timer_stop(loop, timer);
        ev_timer_set(timer, far_away_s, 0.);
        ev_timer_start(loop, timer);
        Lock lock(mutex);
        timers.erase(std::remove_if(timers.begin(), timers.end(),
                                    [&](const Timer &other) { return other.timer == timer; }),
                     timers.end());
        const double after_ms = std::max(0., ceil(after_s * 1000 - 1e-6));
        timers.push_back({loop, timer, monotonic + static_cast<uint64_t>(after_ms)});
    }

    const Sleep mode;
    mutable pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects everything below
    pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
    uint64_t wall;
    uint64_t monotonic;
    std::vector<unsigned> slept;
    std::multiset<uint64_t> deadlines; // of the sleeps under way
    std::vector<Timer> timers;
};

#endif
