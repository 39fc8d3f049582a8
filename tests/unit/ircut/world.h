// Everything around the day/night controller in the hands of a test: the processor, the coil, the lights, the
// settings, the channels, time and threads. They write down in one journal what they are asked, answer as the
// test says, and fail on demand.
//
//   World world;                                          // one at a time, before any thread
//   world.dark();                                         // what the processor measures from here on
//   ircut_task task = {};
//   ircut_task_round(&task);
//   EXPECT_EQ(world.journal(), (Journal{"stamp 1700000000000", "isp 1", "sleep 200", ...}));
//
// The journal: "isp N" (a running mode is set), "sw N" (filter), "pwm N" (infrared duty; "at level L" where
// the level is another), "led GPIO N", "timer stop", "stamp MS", "event CHANNEL TEXT LENGTH", "sleep MS",
// "drv_init", "drv_exit", "pwm_init", "pwm_exit", "thread NAME", "join", "detach"; what only reads is not in
// it, nor are log lines, but for those who ask for the whole `story`. Threads are not really created unless
// `real_threads` says so. Log lines are in `log`, with source lines ("[name 12]", "[name:12]") as N.
#ifndef NARO_TESTS_IRCUT_WORLD_H
#define NARO_TESTS_IRCUT_WORLD_H

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <vector>

#include "fake_clock.h"
#include "infrared.h"
#include "ircut.h"
#include "ircut_config.h"
#include "ircut_internal.h"
#include "log_capture.h"

using Journal = std::vector<std::string>;
using Lines = std::vector<LogCapture::Line>;

class World
{
  public:
    explicit World(FakeClock::Sleep sleep_mode = FakeClock::Sleep::advances);
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    // What the processor measures: pictures that decide by themselves, and one that decides nothing.
    void dark() { measure(0, 0, 95000, 16000, 0, 0); } // in modes 0, 3, 4 and 5, and for the basic controller
    void bright() { measure(85, 0, 20000, 1000, -4000 * 1024, -4000 * 1024); } // likewise
    void dusk() { measure(20, 0xFFFFFFFFu, 40000, 20000, 0, 0); }
    void measure(uint32_t ev, uint32_t bv, uint32_t expr_us, uint32_t again, int red, int blue);

    // The journal since the last time.
    Journal journal();
    // The log lines since the last time.
    Lines lines();
    void note(const std::string &line);
    // From here on the journal has everything in its order: also "mode?", "ev?" and "wb?" for what is read
    // from the processor, "led 47?" and "lit?" for the white LED's line and its timer, log lines as "says
    // TEXT" or "complains TEXT", and the level with each "sw". `log` stays empty.
    void story();
    // Called with each line of the journal before it is written down, by whoever does what it tells.
    std::function<void(const std::string &)> on_note;
    // Rounds of the task; the journal of the last of them, what came before is forgotten.
    Journal rounds(ircut_task *task, int count);

    LogCapture log;
    FakeClock clock;

    // The processor. What is set is what is read back, unless `follows` says no.
    std::atomic<uint32_t> isp_mode{0};
    std::atomic<int> set_result{0}, get_result{0}, ev_result{0}, wb_result{0};
    std::atomic<bool> follows{true};
    std::atomic<int> mode_reads{0}, statistics_reads{0};

    // Lights: the white LED's line (-1: cannot be read), and whether it is lit for a person.
    std::atomic<int> white{0}, person_light{0};
    std::atomic<int> white_reads{0};

    int drv_init_result = 0, pwm_init_result = 0;
    std::atomic<int> drive_result{0}; // what everything that moves or lights something answers
    bool real_threads = false;
    int create_fails_at = -1; // how many threads can be created before one cannot
    int created = 0;
    void *alarm_number = nullptr; // what the alarm-light thread created last was given

    std::vector<pthread_t> detached; // threads that the module detached, which the world did not
    // Joins them: they must be about to end.
    void join_detached();

    naro_isp_ev_attr ev = {};
    naro_isp_wb_attr wb = {};
    std::mutex mutex;        // protects everything but the atomics
    bool everything = false; // see story()

  private:
    Journal written;
};
extern World *world;

// The task's and the alarm-light thread's names in log lines.
#define TASK "mstar_ircut_ctrl_smart"
#define ALARM "white_led_status_and_alarm_check"

inline LogCapture::Line info(const std::string &text)
{
    return {NARO_LOG_INFO, text};
}
inline LogCapture::Line err(const std::string &text)
{
    return {NARO_LOG_ERR, text};
}
inline std::ostream &operator<<(std::ostream &out, const LogCapture::Line &line)
{
    return out << line.level << " '" << line.text << "'";
}

#endif
