// The LEDs and the white LED's timer: lines on plain files, time and event loop in the test's hands.
#include "ir_white_led.h"

#include <atomic>
#include <errno.h>
#include <ev.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include "fake_clock.h"
#include "isolate.h"
#include "lock_watch.h"
#include "log_capture.h"
#include "sysfs_tree.h"

namespace
{

const std::string root = scratch_root();

using Lines = std::vector<LogCapture::Line>;

class Led : public testing::Test
{
  protected:
    std::string white() { return sysfs.get("gpio/gpio47/value"); }
    void set_white(const char *value) { sysfs.set("gpio/gpio47/value", value); }
    // Calls `look` in front of every call on a file, from here on in place of the tree's own record; what it
    // returns becomes of the call.
    static void look_at_files(std::function<int(const std::string &call, const std::string &path)> look)
    {
        static std::function<int(const std::string &, const std::string &)> looking;
        looking = std::move(look);
        naro_file_set_fault([](void *, const char *call, const char *path) { return looking(call, path); },
                            nullptr);
    }

    LogCapture log;
    FakeClock clock;
    SysfsTree sysfs;
};

// ---- Lines -----------------------------------------------------------------------------------------------

TEST_F(Led, InitMakesBothLinesOutputsWhiteFirst)
{
    EXPECT_EQ(ir_white_led_init(), 0);
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open gpio/export", "write gpio/export 47\\0\\0\\0", "open gpio/gpio47/direction",
                     "open gpio/gpio47/direction", "write gpio/gpio47/direction out\\0", "open gpio/export",
                     "write gpio/export 45\\0\\0\\0", "open gpio/gpio45/direction",
                     "open gpio/gpio45/direction", "write gpio/gpio45/direction out\\0"}));
}

TEST_F(Led, InitLeavesOutputsAlone)
{
    sysfs.set("gpio/gpio47/direction", "out\n");
    sysfs.set("gpio/gpio45/direction", "ou");
    EXPECT_EQ(ir_white_led_init(), 0);
    EXPECT_EQ(sysfs.writes(),
              (Calls{"gpio/export 47\\0\\0\\0", "gpio/export 45\\0\\0\\0", "gpio/gpio45/direction out\\0"}));
}

TEST_F(Led, InitWithoutLinesTriesEverything)
{
    sysfs.remove("");
    EXPECT_EQ(ir_white_led_init(), -1);
    EXPECT_EQ(log.lines(), (Lines(6, {NARO_LOG_ERR, "fail to device!\n"})));
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open gpio/export", "open gpio/gpio47/direction", "open gpio/gpio47/direction",
                     "open gpio/export", "open gpio/gpio45/direction", "open gpio/gpio45/direction"}));
}

TEST_F(Led, InitTellsWhichPartFailed)
{
    for (const char *line : {"45", "47"}) {
        const std::string path = std::string("gpio/gpio") + line + "/direction";
        sysfs.fail("read", path, EIO);
        EXPECT_EQ(ir_white_led_init(), -1) << path;
        sysfs.fail("read", path, 0);
        EXPECT_EQ(ir_white_led_init(), 0) << path;
        sysfs.set(path, "in\n");
        sysfs.fail("write", path, EIO);
        EXPECT_EQ(ir_white_led_init(), -1) << path;
        sysfs.fail("write", path, 0);
    }
    sysfs.fail("write", "gpio/export", EIO);
    EXPECT_EQ(ir_white_led_init(), -1);
}

TEST_F(Led, FiniReleasesBothWhiteFirst)
{
    EXPECT_EQ(ir_white_led_fini(), 0);
    EXPECT_EQ(sysfs.writes(), (Calls{"gpio/unexport 47\\0\\0\\0", "gpio/unexport 45\\0\\0\\0"}));
    sysfs.fail("open", "gpio/unexport", EACCES);
    EXPECT_EQ(ir_white_led_fini(), -1);
    EXPECT_EQ(log.lines(), (Lines(2, {NARO_LOG_ERR, "has no this gpio!\n"})));
}

TEST_F(Led, FiniTellsOfEitherLine)
{
    for (int failing : {1, 2}) {
        int writes = 0;
        look_at_files([&](const std::string &call, const std::string &) {
            return call == "write" && ++writes == failing ? EIO : 0;
        });
        EXPECT_EQ(ir_white_led_fini(), -1) << failing;
        EXPECT_EQ(writes, 2) << "the other is released all the same";
    }
}

TEST_F(Led, LinesAreSwitchedAndRead)
{
    EXPECT_EQ(ir_white_led_crtl(WHITE_LED_GPIO, 1), 0);
    EXPECT_EQ(sysfs.get("gpio/gpio47/value"), "1");
    EXPECT_EQ(sysfs.get("gpio/gpio45/value"), "0\n");
    EXPECT_EQ(ir_white_get_led_status(WHITE_LED_GPIO), 1);
    EXPECT_EQ(ir_white_get_led_status(IR_LED_GPIO), 0);
    EXPECT_EQ(ir_white_led_crtl(IR_LED_GPIO, 1), 0);
    EXPECT_EQ(sysfs.get("gpio/gpio45/value"), "1");
    EXPECT_EQ(ir_white_get_light_status(), 0) << "lit, but not by a person";
    sysfs.remove("");
    EXPECT_EQ(ir_white_led_crtl(IR_LED_GPIO, 1), -1);
    EXPECT_EQ(ir_white_get_led_status(WHITE_LED_GPIO), -1);
}

TEST_F(Led, Brightness)
{
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(ir_white_brightness_crtl(40, "4"), 0);
    EXPECT_EQ(err.text(), "[ir_white_brightness_crtl] pwm duty=40\n");
    EXPECT_EQ(sysfs.calls(),
              (Calls{"open pwm/pwmchip0/pwm4/duty_cycle", "write pwm/pwmchip0/pwm4/duty_cycle 40",
                     "open pwm/pwmchip0/pwm4/enable", "write pwm/pwmchip0/pwm4/enable 1"}));
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_INFO, "[ir_white_brightness_crtl] enable pwm0\n"}}));
}

TEST_F(Led, BrightnessOfAChannelByThreeCharacters)
{
    OutputCapture err(STDERR_FILENO);
    sysfs.set("pwm/pwmchip0/pwm123/duty_cycle", "");
    sysfs.set("pwm/pwmchip0/pwm123/enable", "");
    EXPECT_EQ(ir_white_brightness_crtl(-2147483647 - 1, "12345"), 0);
    EXPECT_EQ(sysfs.get("pwm/pwmchip0/pwm123/duty_cycle"), "-2147483648");
}

TEST_F(Led, BrightnessFails)
{
    OutputCapture err(STDERR_FILENO);
    EXPECT_EQ(ir_white_brightness_crtl(40, nullptr), -1);
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, " pwm is null \n"}}));
    EXPECT_EQ(err.text(), "");
    for (const char *file : {"duty_cycle", "enable"}) {
        const std::string path = std::string("pwm/pwmchip0/pwm6/") + file;
        log.clear();
        sysfs.fail("open", path, ENOENT);
        EXPECT_EQ(ir_white_brightness_crtl(40, "6"), -1);
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "open /sys/class/" + path + " fail\n"}}));
        sysfs.fail("open", path, 0);
        log.clear();
        sysfs.fail("write", path, EIO);
        EXPECT_EQ(ir_white_brightness_crtl(40, "6"), -1);
        EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[ir_white_brightness_crtl] write /sys/class/" + path +
                                                         " fail: Input/output error\n"}}));
        sysfs.fail("write", path, 0);
    }
}

TEST_F(Led, NoDescriptorIsLeftOpen)
{
    OutputCapture err(STDERR_FILENO);
    const size_t before = open_descriptors();
    ir_white_brightness_crtl(40, "6");
    for (const char *file : {"duty_cycle", "enable"}) {
        sysfs.fail("write", std::string("pwm/pwmchip0/pwm6/") + file, EIO);
        ir_white_brightness_crtl(40, "6");
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Led, DescriptorZeroIsAsGoodAsAnyOther)
{
    OutputCapture err(STDERR_FILENO);
    close(0);
    EXPECT_EQ(ir_white_brightness_crtl(40, "6"), 0);
}

TEST_F(Led, BlinkDoesNothing)
{
    white_led_blink();
    EXPECT_EQ(sysfs.calls(), Calls{});
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

// ---- The rule --------------------------------------------------------------------------------------------

TEST(Rule, WhatAPersonDoes)
{
    const int64_t T = 1700000000;
    const struct {
        const char *what;
        int64_t now, last_off;
        int light_on, enable;
        white_led_verdict verdict;
    } table[] = {
        {"the first person", T, 0, 0, 3, WHITE_LED_LIGHT},
        {"cooling down", T + 30, T, 0, 3, WHITE_LED_NOTHING},
        {"cooled down", T + 31, T, 0, 3, WHITE_LED_LIGHT},
        {"lit, too early", T + 30, T, 1, 3, WHITE_LED_NOTHING},
        {"lit", T + 31, T, 1, 3, WHITE_LED_EXTEND},
        {"lit, the last moment", T + 1799, T, 1, 3, WHITE_LED_EXTEND},
        {"lit for too long", T + 1800, T, 1, 3, WHITE_LED_NOTHING},
        {"long dark", T + 1800, T, 0, 3, WHITE_LED_LIGHT},
        {"not enabled", T, 0, 0, 2, WHITE_LED_NOTHING},
        {"not enabled", T, 0, 0, 4, WHITE_LED_NOTHING},
        {"not enabled, lit", T + 31, T, 1, 0, WHITE_LED_NOTHING},
        {"the clock went back by an hour", T - 3600, T, 0, 3, WHITE_LED_NOTHING},
        {"the clock went back by an hour, lit", T - 3600, T, 1, 3, WHITE_LED_NOTHING},
        {"the very second", T, T, 0, 3, WHITE_LED_NOTHING},
        {"the clock went forward by an hour", T + 3605, T, 0, 3, WHITE_LED_LIGHT},
        {"the clock went forward by an hour, lit", T + 3605, T, 1, 3, WHITE_LED_NOTHING},
        {"a clock that was never set", 0, 0, 0, 3, WHITE_LED_NOTHING},
        {"a clock that was never set, half a minute later", 31, 0, 0, 3, WHITE_LED_LIGHT},
        {"beyond 2038", 2147483700, 2147483600, 0, 3, WHITE_LED_LIGHT},
    };
    for (const auto &row : table)
        EXPECT_EQ(white_led_on_person(row.now, row.last_off, row.light_on, row.enable), row.verdict)
            << row.what;
}

// ---- The timer -------------------------------------------------------------------------------------------

class Timer : public Led
{
  protected:
    Timer()
    {
        loop = ev_default_loop(EVFLAG_AUTO);
        ir_white_led_init();
        sysfs.clear();
        log.clear();
    }
    ~Timer() override
    {
        if (loop)
            ev_loop_destroy(loop);
    }
    // What the loop has to do now.
    void run_loop() { ev_run(loop, EVRUN_NOWAIT); }
    void seconds(unsigned s)
    {
        run_loop();
        clock.advance_ms(s * 1000);
    }
    // Lit by a person, and out again; cooled down.
    void first_light_has_gone()
    {
        led_task_set_white_led_on();
        seconds(30);
        ASSERT_EQ(white(), "0");
        seconds(31);
    }
    struct ev_loop *loop;
};

TEST_F(Timer, TheFirstPersonLightsTheLedAtOnceForHalfAMinute)
{
    EXPECT_EQ(led_task_set_white_led_on(), 0);
    EXPECT_EQ(white(), "1");
    EXPECT_EQ(ir_white_get_light_status(), 1);
    seconds(29);
    clock.advance_ms(999);
    EXPECT_EQ(white(), "1");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "0");
    EXPECT_EQ(ir_white_get_light_status(), 0);
    EXPECT_EQ(clock.armed_timers(), 0u);
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(Timer, CoolDown)
{
    led_task_set_white_led_on();
    seconds(30);
    seconds(20);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "0");
    seconds(10);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "0") << "30 s after it went out";
    seconds(1);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1") << "31 s after it went out";
}

TEST_F(Timer, TheFirstLightIsNotExtended)
{
    led_task_set_white_led_on();
    seconds(29);
    led_task_set_white_led_on();
    seconds(1);
    EXPECT_EQ(white(), "0") << "being lit counts as going out that once";
}

TEST_F(Timer, LaterLightsAreExtendedFromTheLatestPerson)
{
    first_light_has_gone();
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1");
    sysfs.clear();
    for (int i = 0; i < 10; i++) {
        seconds(29);
        led_task_set_white_led_on();
    }
    EXPECT_EQ(sysfs.calls(), Calls{}) << "it is lit once";
    seconds(29);
    EXPECT_EQ(white(), "1");
    seconds(1);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, NoLightIsExtendedAfterHalfAnHour)
{
    first_light_has_gone(); // out for 31 s now
    led_task_set_white_led_on();
    unsigned lit_s = 0;
    while (white() == "1" && lit_s < 4000) {
        led_task_set_white_led_on();
        seconds(1);
        lit_s++;
    }
    // The last extension 1799 s after it went out last, that is 1768 s after it was lit.
    EXPECT_EQ(lit_s, 1768u + 30u);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "0");
    seconds(31);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1") << "a new half hour";
}

TEST_F(Timer, NotEnabledNothingIsLit)
{
    for (int enable : {0, 2, 4}) {
        g_white_led_switch = enable;
        EXPECT_EQ(led_task_set_white_led_on(), 0);
        EXPECT_EQ(white(), "0\n");
        EXPECT_EQ(ir_white_get_light_status(), 0);
    }
    g_white_led_switch = 3;
}

TEST_F(Timer, StopLeavesTheLineAndStartsTheCoolDown)
{
    led_task_set_white_led_on();
    seconds(10);
    EXPECT_EQ(led_task_set_timer_stop(), 0);
    EXPECT_EQ(ir_white_get_light_status(), 0);
    EXPECT_EQ(white(), "1") << "its line belongs to the caller";
    seconds(30);
    EXPECT_EQ(white(), "1") << "no timer any more";
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 0) << "30 s";
    seconds(1);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 1) << "31 s";
}

TEST_F(Timer, StopOfALightThatTheTimerHasNotLit)
{
    led_task_set_white_led_on();
    seconds(30);
    seconds(15);
    EXPECT_EQ(led_task_set_timer_stop(), 0);
    seconds(16);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1") << "the cool-down did not begin anew";
}

TEST_F(Timer, SetTimerArmsAndArmsAgain)
{
    EXPECT_EQ(led_task_set_timer(0), 0);
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 1u);
    set_white("1");
    seconds(20);
    EXPECT_EQ(led_task_set_timer(1), 0);
    seconds(29);
    EXPECT_EQ(white(), "1");
    seconds(1);
    EXPECT_EQ(white(), "0");
    EXPECT_EQ(led_task_set_timer(2), 0);
    EXPECT_EQ(led_task_set_timer(-1), 0);
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 0u);
}

TEST_F(Timer, WishesOfOtherThreadsKeepTheirOrder)
{
    // Before the loop comes to any of them.
    led_task_set_white_led_on();
    led_task_set_timer_stop();
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 0u) << "on, stop";
    led_task_set_timer(0);
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 1u);
    seconds(31);

    led_task_set_white_led_on();
    led_task_set_timer_stop();
    led_task_set_timer(1);
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 1u) << "on, stop, again";
}

TEST_F(Timer, TheHalfMinuteCountsFromTheWishNotFromWhenTheLoopComesToIt)
{
    led_task_set_white_led_on();
    clock.advance_ms(12000); // the loop is busy
    run_loop();
    clock.advance_ms(17999);
    EXPECT_EQ(white(), "1");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, ALoopThatComesTooLatePutsTheLightOutAtOnce)
{
    led_task_set_white_led_on();
    clock.advance_ms(40000);
    EXPECT_EQ(white(), "1");
    run_loop();
    clock.advance_ms(0);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, AnExtensionMadeJustBeforeTheFiringCounts)
{
    first_light_has_gone();
    led_task_set_white_led_on();
    seconds(29);
    clock.advance_ms(999);
    led_task_set_white_led_on(); // the loop has not seen this when the timer fires
    clock.advance_ms(1);
    EXPECT_EQ(white(), "1");
    EXPECT_EQ(ir_white_get_light_status(), 1);
    clock.advance_ms(29998);
    EXPECT_EQ(white(), "1");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, AStopMadeJustBeforeTheFiringCounts)
{
    led_task_set_white_led_on();
    seconds(29);
    clock.advance_ms(999);
    led_task_set_timer_stop();
    set_white("taken over");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "taken over");
    run_loop();
    clock.advance_ms(60000);
    EXPECT_EQ(white(), "taken over");
}

TEST_F(Timer, TheTimerDoesNotMoveWithTheWallClock)
{
    first_light_has_gone();
    const uint64_t now = clock.wall_ms();
    led_task_set_white_led_on();
    run_loop();
    clock.set_wall_ms(now - 3600000);
    led_task_set_white_led_on();
    clock.advance_ms(29999);
    EXPECT_EQ(white(), "1");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "0") << "30 s all the same, and set back the clock allows no extension";
    clock.advance_ms(31000);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1") << "it went out by the new time, so the cool-down is that of the new time";
}

TEST_F(Timer, SetBackWhileDarkTheClockKeepsTheLightOff)
{
    first_light_has_gone();
    clock.set_wall_ms(clock.wall_ms() - 3600000);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 0);
    clock.advance_ms(3600000);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 1);
}

TEST_F(Timer, SetForwardWhileDarkTheClockEndsTheCoolDown)
{
    led_task_set_white_led_on();
    seconds(30);
    seconds(5);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 0);
    clock.set_wall_ms(clock.wall_ms() + 3600000);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 1);
    seconds(30);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, SetForwardWhileLitTheClockAllowsNoExtension)
{
    first_light_has_gone();
    led_task_set_white_led_on();
    seconds(10);
    clock.set_wall_ms(clock.wall_ms() + 3600000);
    led_task_set_white_led_on(); // by the clock it went out an hour ago
    clock.advance_ms(19999);
    EXPECT_EQ(white(), "1");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "0") << "30 s all the same";
    clock.advance_ms(31000);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1") << "it went out by the new time";
}

TEST_F(Timer, SetBackAfterAStopTheClockKeepsTheLightOff)
{
    led_task_set_white_led_on();
    led_task_set_timer_stop();
    clock.set_wall_ms(clock.wall_ms() - 3600000);
    clock.advance_ms(3600000 + 30000);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 0);
    clock.advance_ms(1000);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 1);
}

TEST_F(Timer, BeingLitTheFirstTimeCountsAsGoingOut)
{
    // Seen only where the clock steps: otherwise the light is out before it could be extended.
    led_task_set_white_led_on();
    seconds(10);
    clock.set_wall_ms(clock.wall_ms() + 60000);
    led_task_set_white_led_on();
    seconds(29);
    EXPECT_EQ(white(), "1") << "extended: 70 s after it was lit";
    seconds(1);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, AClockThatWasNeverSetLightsAfterHalfAMinute)
{
    clock.set_wall_ms(30999);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 0);
    clock.set_wall_ms(31000);
    led_task_set_white_led_on();
    EXPECT_EQ(ir_white_get_light_status(), 1);
}

TEST_F(Timer, TimeGoesOnAfter2038)
{
    clock.set_wall_ms(2200000000000);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1");
    seconds(30);
    EXPECT_EQ(white(), "0");
    seconds(30);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "0");
    seconds(1);
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1");
}

TEST_F(Timer, ACameraMayRunForMonths)
{
    clock.advance_ms(0xFFFFFFFFu - 10000 -
                     clock.monotonic_ms()); // just before 32 bits of milliseconds are over
    led_task_set_white_led_on();
    run_loop();
    clock.advance_ms(29999);
    EXPECT_EQ(white(), "1");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "0");
    clock.advance_ms(31000);
    led_task_set_white_led_on(); // and after
    run_loop();
    clock.advance_ms(29999);
    EXPECT_EQ(white(), "1");
    clock.advance_ms(1);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, AWakeUpThatComesAfterItsWishWasCarriedOutChangesNothing)
{
    led_task_set_white_led_on();
    run_loop();
    clock.advance_ms(29999);
    led_task_set_timer(1); // carried out by the firing, the wake-up still to come
    clock.advance_ms(1);
    EXPECT_EQ(clock.armed_timers(), 1u);
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 1u);
    clock.advance_ms(29999);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, ItsFiringStopsATimerThatIsStillRunning)
{
    struct ev_timer timer;
    ev_timer_init(&timer, timer_action, 1000., 5.);
    ev_timer_start(loop, &timer);
    timer_action(loop, &timer, EV_TIMER);
    EXPECT_FALSE(ev_is_active(&timer));
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, TheLineIsSwitchedFirstAndUnderTheLock)
{
    // Whoever asks without the lock hears of a light only when there is one, and until it is out.
    std::vector<int> status;
    look_at_files([&](const std::string &call, const std::string &path) {
        if (call == "fopen" && path == "/sys/class/gpio/gpio47/value") {
            EXPECT_EQ(locks_held(), 1u);
            status.push_back(ir_white_get_light_status());
        }
        return 0;
    });
    led_task_set_white_led_on();
    run_loop();
    clock.advance_ms(30000);
    EXPECT_EQ(status, (std::vector<int>{0, 1}));
    EXPECT_EQ(ir_white_get_light_status(), 0);
}

TEST_F(Timer, TheTimeIsReadUnderTheLock)
{
    static uint64_t now_ms = 1700000000000;
    naro_clock seam = {};
    seam.wall_ms = [](void *) {
        EXPECT_EQ(locks_held(), 1u) << "a later person must not come with an earlier time";
        return now_ms;
    };
    seam.monotonic_ms = [](void *) {
        EXPECT_EQ(locks_held(), 1u);
        return uint64_t{1000};
    };
    naro_clock_replace(&seam);
    led_task_set_white_led_on();
    run_loop();
    led_task_set_timer(1);
    led_task_set_timer_stop();
    EXPECT_EQ(locks_held(), 0u);
}

TEST_F(Timer, AnotherInitChangesNothing)
{
    led_task_set_white_led_on();
    run_loop();
    ir_white_led_init();
    EXPECT_EQ(clock.armed_timers(), 1u);
    seconds(30);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, AfterTheLoopIsGoneNothingIsWoken)
{
    ev_loop_destroy(loop);
    loop = nullptr;
    led_task_set_white_led_on();
    EXPECT_EQ(white(), "1");
    led_task_set_timer(1);
    led_task_set_timer_stop();
    EXPECT_EQ(ir_white_get_light_status(), 0);
}

TEST_F(Timer, ANewLoopCarriesOutWhatWasWishedBefore)
{
    ev_loop_destroy(loop);
    led_task_set_white_led_on();
    loop = ev_default_loop(EVFLAG_AUTO);
    ir_white_led_init();
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 1u);
    seconds(30);
    EXPECT_EQ(white(), "0");
}

TEST_F(Timer, ManyThreadsAndTheLoop)
{
    std::atomic<bool> done{false};
    std::thread person([&] {
        for (int i = 0; i < 300; i++)
            led_task_set_white_led_on();
        done = true;
    });
    std::thread controller([&] {
        while (!done) {
            if (ir_white_get_light_status() != 0)
                led_task_set_timer_stop();
            ir_white_led_crtl(WHITE_LED_GPIO, 0);
        }
    });
    while (!done) {
        run_loop();
        clock.advance_ms(9000);
    }
    person.join();
    controller.join();
    led_task_set_timer_stop();
    run_loop();
    EXPECT_EQ(clock.armed_timers(), 0u);
}

} // namespace
