// Every sequence of the controller from its first call to its last: what is read, said, waited for and moved,
// in which order, what the state is meanwhile, and which locks are held.
#include <algorithm>

#include "lock_watch.h"
#include "world.h"

namespace
{

class Story : public testing::Test
{
  protected:
    Story() { world.story(); }
    // What the next round does.
    Journal round()
    {
        world.journal();
        EXPECT_EQ(ircut_task_round(&task), 500u);
        return world.journal();
    }
    // Rounds of which nobody wants to know.
    void rounds(int count)
    {
        for (int i = 0; i < count; i++)
            round();
        world.clock.set_wall_ms(1700000000000);
    }
    void in_mode(int mode)
    {
        ircut_mode_config(mode);
        ircut.applied_mode = mode;
    }
    World world;
    ircut_task task = {};
};

// What every round begins with.
Journal sampled(const Journal &then)
{
    Journal all = {"mode?", "ev?", "wb?"};
    all.insert(all.end(), then.begin(), then.end());
    return all;
}

// ---- Start and stop --------------------------------------------------------------------------------------

TEST_F(Story, OfAnAutomaticStart)
{
    ir_level = 75;
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(world.journal(),
              (Journal{"says [ircut_config_init] NARO_ALGO_MSTAR\n", "drv_init", "pwm_init",
                       "says [ircut_init]switch to ircut mode auto\n", "says [ircut_init]force day\n",
                       "says [_infrared_drv]pwm_duty(0)\n", "pwm 0", "sw 1 at level 0", "isp 0", "sleep 50",
                       "mode?", "thread alarm", "detach", "says [ircut_init]create ircut task...\n",
                       "thread task"}));
}

TEST_F(Story, OfAStartAndAStopUnderTheLock)
{
    world.on_note = [&](const std::string &line) {
        EXPECT_EQ(lock_is_held(&ircut.lock),
                  line != "says [ircut_exit]\n" && line != "says ____[ircut_exit]____ finished\n")
            << line;
        EXPECT_FALSE(lock_is_held(&ircut.step_lock)) << line << ": the task may need it to end";
    };
    ircut_init();
    ircut_init();
    ir_level = 50;
    world.journal();
    ircut_exit();
    EXPECT_EQ(world.journal(), (Journal{"says [ircut_exit]\n", "join", "led 45 0", "led 47 0", "drv_exit",
                                        "says [_infrared_drv]pwm_duty(0)\n", "pwm 0 at level 50", "pwm_exit",
                                        "says ____[ircut_exit]____ finished\n"}));
    ircut_exit();
}

TEST_F(Story, OfAStopThatIsOverWhenItIsOver)
{
    ircut_init();
    ir_level = 50;
    world.on_note = [&](const std::string &line) {
        if (line != "pwm_exit")
            return;
        EXPECT_EQ(ir_level, 50);
        EXPECT_TRUE(ircut_is_inited());
    };
    ircut_exit();
    EXPECT_EQ(ir_level, 0);
    EXPECT_FALSE(ircut_is_inited());
}

TEST_F(Story, OfAStartThatFails)
{
    ircut_mode_config(6);
    ir_level = 50;
    EXPECT_EQ(ircut_init(), -1);
    EXPECT_EQ(ir_level, 0) << "what an earlier life left is forgotten";
    ircut_mode_config(5);
    world.create_fails_at = 1;
    world.on_note = [&](const std::string &line) {
        if (line == "complains [ircut_init] ircut task create fail\n") {
            EXPECT_EQ(ircut.task_running, 0);
        }
    };
    EXPECT_EQ(ircut_init(), -1);
}

TEST_F(Story, BeginsWithNothing)
{
    EXPECT_EQ(ircut.isp_mode_snapshot, 0u);
    EXPECT_EQ(ircut.alarm_light, 0u);
    EXPECT_EQ(ircut.alarm_flag, 0);
    EXPECT_EQ(ircut.smart_night, 0);
    EXPECT_EQ(ircut.full_color_night, 0);
    EXPECT_EQ(ircut.task_running, 0);
    EXPECT_FALSE(ircut_is_inited());
    EXPECT_EQ(g_motor_position_v_p, 0);
    EXPECT_EQ(ir_level, 0);
}

// ---- Mode changes ----------------------------------------------------------------------------------------

TEST_F(Story, OfFixedDayAndFixedNight)
{
    ircut_mode_config(3);
    ircut_init();
    ir_level = 75;
    world.clock.set_wall_ms(1700000000000);
    // The event goes out when the mode is there and the task may go on; the mode is there when all is done.
    world.on_note = [&](const std::string &line) {
        const bool event = line.compare(0, 5, "event") == 0;
        EXPECT_TRUE(lock_is_held(&ircut.lock)) << line;
        if (line.compare(0, 4, "says") != 0 || line.find("pwm_duty") != std::string::npos) {
            EXPECT_EQ(lock_is_held(&ircut.step_lock), !event) << line;
        }
        EXPECT_EQ(ircut.mode, event ? 2 : 3) << line;
    };
    world.journal();
    ircut_mode_switch(2);
    EXPECT_EQ(world.journal(),
              (Journal{"says [ircut_mode_switch]switch to ircut mode night\n", "stamp 1700000000000", "isp 1",
                       "sleep 200", "sw 0 at level 75", "says [_infrared_drv]pwm_duty(99)\n", "pwm 99",
                       "event 0 DayToNight 11"}));
    world.clock.set_wall_ms(1700000000000);
    world.on_note = [&](const std::string &line) {
        EXPECT_EQ(ircut.mode, line.compare(0, 5, "event") == 0 ? 1 : 2) << line;
    };
    ircut_mode_switch(1);
    EXPECT_EQ(world.journal(), (Journal{"says [ircut_mode_switch]switch to ircut mode ady\n",
                                        "stamp 1700000000000", "says [_infrared_drv]pwm_duty(0)\n", "pwm 0",
                                        "sw 1 at level 0", "isp 0", "event 0 NightToDay 11"}));
}

TEST_F(Story, ATaskIsJoinedWhereItCanStillTakeItsStep)
{
    ircut_mode_config(0);
    ircut_init();
    world.on_note = [&](const std::string &line) {
        if (line == "join") {
            EXPECT_FALSE(lock_is_held(&ircut.step_lock));
            EXPECT_EQ(ircut.task_running, 0);
        }
    };
    ircut_mode_switch(1);
}

TEST_F(Story, AModeIsKeptUnderTheLock)
{
    static int before, after;
    lock_watch_look = [](const pthread_mutex_t *mutex, bool taken) {
        if (mutex == &ircut.lock)
            (taken ? before : after) = ircut.mode;
    };
    ircut_mode_config(4);
    lock_watch_look = nullptr;
    EXPECT_EQ(before, 5);
    EXPECT_EQ(after, 4);
}

TEST_F(Story, TheFullColourSettingIsKeptAndReadUnderItsLock)
{
    static int before, after;
    lock_watch_look = [](const pthread_mutex_t *mutex, bool taken) {
        if (mutex == &ircut.full_color_lock)
            (taken ? before : after) = ircut.full_color;
    };
    fullcolor_mode_config(0);
    EXPECT_EQ(before, 1);
    EXPECT_EQ(after, 0);
    lock_watch_look = [](const pthread_mutex_t *mutex, bool taken) {
        if (mutex == &ircut.full_color_lock)
            ircut.full_color = taken ? 1 : 0; // another thread's, right before and right after
    };
    EXPECT_EQ(fullcolor_mode_get(), 1);
    lock_watch_look = nullptr;
}

TEST_F(Story, AFixedModeIsThereBeforeTheTaskMayLook)
{
    static int seen;
    ircut_mode_config(3);
    ircut_init();
    lock_watch_look = [](const pthread_mutex_t *mutex, bool taken) {
        if (mutex == &ircut.step_lock && !taken)
            seen = ircut.mode;
    };
    ircut_mode_switch(1);
    lock_watch_look = nullptr;
    EXPECT_EQ(seen, 1);
}

// ---- Rounds ----------------------------------------------------------------------------------------------

TEST_F(Story, AStepIsOfTheModeThatItFinds)
{
    in_mode(3);
    world.dark();
    rounds(10);
    lock_watch_look = [](const pthread_mutex_t *mutex, bool taken) {
        if (mutex == &ircut.step_lock && taken)
            ircut.mode = 1; // somebody was faster
    };
    EXPECT_EQ(round(), sampled({}));
    lock_watch_look = nullptr;
    EXPECT_EQ(task.d2n_count, 10);
}

TEST_F(Story, ASampleIsOfItsOwnRound)
{
    in_mode(3);
    round();
    EXPECT_EQ(task.sample.gain_sum, 0);
    world.measure(7, 8, 9, 10, -2048, -4096);
    world.isp_mode = 1;
    world.on_note = [&](const std::string &line) {
        if (line == "ev?") {
            EXPECT_EQ(ircut.isp_mode_snapshot, 1u);
        }
    };
    round();
    EXPECT_EQ(task.sample.ev, 7u);
    EXPECT_EQ(task.sample.again, 10u);
    EXPECT_EQ(task.sample.gain_sum, -6);
}

TEST_F(Story, SamplesAreCountedForLongerThanAnyCameraLives)
{
    in_mode(3);
    task.samples = 0xFFFFFFFFu;
    EXPECT_EQ(round(), sampled({})) << "nothing is logged";
    EXPECT_EQ(task.samples, 0x100000000u);
    world.isp_mode = 1;
    Journal logged;
    for (int i = 0; i <= 300; i++)
        for (const std::string &line : round())
            if (line.find("___night mode____") != std::string::npos)
                logged.push_back(std::to_string(i));
    EXPECT_EQ(logged, (Journal{"0", "60", "120", "180", "240", "300"}));
}

TEST_F(Story, OfLightsOff)
{
    ircut_mode_config(6);
    ircut.task_running = 1;
    EXPECT_EQ(round(), (Journal{"timer stop", "led 47 0", "led 45 0"}));
}

TEST_F(Story, ATaskEndsWithNothing)
{
    in_mode(3);
    ircut.task_running = 1;
    int sleeps = 0;
    world.clock.on_sleep = [&](unsigned ms) {
        EXPECT_EQ(ms, 500u);
        if (++sleeps == 3)
            ircut.task_running = 0;
    };
    EXPECT_EQ(mstar_ircut_ctrl_smart(nullptr), nullptr);
    EXPECT_EQ(sleeps, 3);
    EXPECT_EQ(mstar_ircut_ctrl_smart(nullptr), nullptr) << "at once";
    EXPECT_EQ(sleeps, 3);
}

// Only at the start do the drivers' answers count: later on, whatever can still be moved is moved.
TEST_F(Story, WhatTheDriversAnswerIsNotLookedAt)
{
    const auto life = [&] {
        Journal all;
        const auto take = [&] {
            for (const std::string &line : world.journal())
                all.push_back(line);
        };
        world.clock.set_wall_ms(1700000000000);
        for (int mode : {3, 4, 5}) {
            ircut.applied_mode = 6;
            ircut_mode_config(mode);
            EXPECT_EQ(ircut_init(), 0);
            for (void (World::*picture)() : {&World::dark, &World::bright}) {
                (world.*picture)();
                for (int i = 0; i < 22; i++) {
                    ircut_task_round(&task);
                    take();
                }
            }
            for (int other : {2, 1, 6, 3})
                EXPECT_EQ(ircut_mode_switch(other), 0);
            EXPECT_EQ(ircut_exit(), 0);
            take();
        }
        return all;
    };
    const Journal wanted = life();
    EXPECT_GT(wanted.size(), 400u);
    world.drive_result = -1;
    task = {};
    const Journal got = life();
    // Of the night, every sixtieth sample is logged: not the same ones the second time.
    const auto without_samples = [](Journal all) {
        all.erase(std::remove_if(all.begin(), all.end(),
                                 [](const std::string &line) {
                                     return line.find("___night mode____") != std::string::npos ||
                                            line.find("___day mode____") != std::string::npos;
                                 }),
                  all.end());
        return all;
    };
    EXPECT_EQ(without_samples(got), without_samples(wanted));
}

// ---- Modes 0 and 3 ---------------------------------------------------------------------------------------

TEST_F(Story, OfTheNightDayEntry)
{
    ircut_mode_config(3);
    world.on_note = [&](const std::string &line) {
        if (line == "led 47 0") {
            EXPECT_EQ(ircut.applied_mode, 5) << "not entered before all is done";
        }
    };
    EXPECT_EQ(round(),
              sampled({"says [" TASK ":N]>>>change to  NARO_IRCUT_MODE_AUTO_NIGHT_DAY, force day ", "isp 0",
                       "sleep 200", "mode?", "sw 1 at level 0", "led 45 0", "lit?", "led 47 0"}));
}

TEST_F(Story, AnEntryBeginsBothCountsAnew)
{
    for (int mode : {3, 4, 5}) {
        ircut_mode_config(mode);
        ircut.applied_mode = 0;
        world.isp_mode = 0;
        task.d2n_count = 7;
        world.dark();
        round();
        EXPECT_EQ(task.d2n_count, 1) << mode;
        // Where the processor stays in its night, the night's count begins in the same round.
        ircut.applied_mode = 0;
        world.isp_mode = 1;
        world.set_result = -1;
        task.n2d_count = 7;
        world.bright();
        round();
        EXPECT_EQ(task.n2d_count, mode == 3 ? 1 : 0) << mode;
        world.set_result = 0;
    }
}

TEST_F(Story, OfTheWayToNight)
{
    OutputCapture err(STDERR_FILENO);
    in_mode(3);
    world.dark();
    rounds(10);
    ir_level = 75;
    EXPECT_EQ(round(), sampled({"says [" TASK " N] ircut_mode:3 day to night", "stamp 1700000000000", "isp 1",
                                "sleep 200", "sw 0 at level 75", "says [_infrared_drv]pwm_duty(0)\n", "pwm 0",
                                "led 45 1", "mode?"}));
    EXPECT_EQ(err.text(), "") << "nothing is wrong";
}

TEST_F(Story, OfTheWayToDay)
{
    in_mode(3);
    world.isp_mode = 1;
    world.bright();
    rounds(10);
    ir_level = 75;
    EXPECT_EQ(round(), sampled({"says [" TASK " N] ircut_mode:3 night to day", "stamp 1700000000000",
                                "says [_infrared_drv]pwm_duty(0)\n", "pwm 0", "sw 1 at level 0", "led 45 0",
                                "isp 0", "sleep 200", "mode?"}));
}

TEST_F(Story, OfAStepUnderItsLock)
{
    in_mode(3);
    world.dark();
    world.on_note = [&](const std::string &line) {
        const bool sampling = line == "ev?" || line == "wb?" || (line == "mode?" && world.isp_mode == 0);
        EXPECT_EQ(lock_is_held(&ircut.step_lock), !sampling) << line;
        EXPECT_FALSE(lock_is_held(&ircut.lock)) << line << ": who joins the task has it";
    };
    rounds(11);
    EXPECT_EQ(world.isp_mode, 1u);
}

// ---- Mode 4 ----------------------------------------------------------------------------------------------

TEST_F(Story, OfFullColour)
{
    ircut_mode_config(4);
    ircut.full_color_night = 1;
    world.person_light = 1;
    world.on_note = [&](const std::string &line) {
        if (line == "isp 0") {
            EXPECT_EQ(ircut.applied_mode, 5) << "not entered before all is done";
            EXPECT_EQ(ircut.full_color_night, 1);
        }
    };
    EXPECT_EQ(round(), sampled({"says [" TASK ":N]>>> change to  NARO_IRCUT_MODE_AUTO_FULL_COLOR,force day",
                                "lit?", "timer stop", "led 47 0", "sw 1 at level 0", "led 45 0", "isp 0",
                                "sleep 200", "mode?"}));
    world.on_note = nullptr;
    world.dark();
    rounds(10);
    world.on_note = [&](const std::string &line) {
        if (line == "led 47 1") {
            EXPECT_EQ(ircut.full_color_night, 0);
            EXPECT_EQ(task.d2n_count, 0);
        }
        if (line == "says  full_color_type night") {
            EXPECT_EQ(ircut.full_color_night, 1);
        }
    };
    EXPECT_EQ(round(), sampled({"says [" TASK " N] ircut_mode:4 day to night", "led 47 1",
                                "says  full_color_type night"}));
    world.on_note = nullptr;
    world.bright();
    rounds(20);
    world.on_note = [&](const std::string &line) {
        if (line == "led 47 0") {
            EXPECT_EQ(ircut.full_color_night, 1);
            EXPECT_EQ(task.n2d_count, 0);
        }
        if (line == "says  full_color_type day") {
            EXPECT_EQ(ircut.full_color_night, 0);
        }
    };
    EXPECT_EQ(round(), sampled({"says [" TASK " N] ircut_mode:4 night to day", "led 47 0",
                                "says  full_color_type day"}));
}

// ---- Mode 5 ----------------------------------------------------------------------------------------------

TEST_F(Story, OfTheSmartEntry)
{
    ircut_mode_config(5);
    ircut.applied_mode = 3;
    ircut.smart_night = 1;
    world.on_note = [&](const std::string &line) {
        if (line == "led 47 0") {
            EXPECT_EQ(ircut.applied_mode, 3) << "not entered before all is done";
            EXPECT_EQ(ircut.smart_night, 1);
        }
    };
    EXPECT_EQ(round(),
              sampled({"says [" TASK ":N]>>> change to  NARO_IRCUT_MODE_AUTO_SMART,force day", "isp 0",
                       "sleep 200", "mode?", "sw 1 at level 0", "led 45 0", "led 47 0", "led 47?"}));
}

TEST_F(Story, OfASmartNight)
{
    OutputCapture err(STDERR_FILENO);
    in_mode(5);
    world.dark();
    rounds(10);
    ir_level = 75;
    EXPECT_EQ(round(),
              sampled({"led 47?", "says [" TASK " N] ircut_mode:5 day to night,default day-night vision",
                       "stamp 1700000000000", "isp 1", "sleep 200", "sw 0 at level 75",
                       "says [_infrared_drv]pwm_duty(0)\n", "pwm 0", "led 45 1", "mode?"}));
    world.dusk();
    rounds(1);
    world.white = 1;
    EXPECT_EQ(round(),
              sampled({"led 47?",
                       "says [" TASK
                       " N] ircut_mode:5 smart_auto mode,white light open,need close IR, full color vision",
                       "sw 1 at level 0", "sleep 200", "led 45 0", "isp 0", "sleep 200", "mode?"}));
    world.white = 0;
    EXPECT_EQ(round(),
              sampled({"led 47?",
                       "says [" TASK " N] ircut_mode:5 white light off, need open IR to day-night vision",
                       "sw 0 at level 0", "sleep 200", "led 45 1", "isp 1", "sleep 200", "mode?", "lit?"}));
    world.bright();
    rounds(20);
    ir_level = 75;
    world.on_note = [&](const std::string &line) {
        if (line == "timer stop") {
            EXPECT_EQ(ircut.smart_night, 0);
        }
        if (line == "isp 0") {
            EXPECT_EQ(ircut.smart_night, 1);
        }
    };
    EXPECT_EQ(round(),
              sampled({"led 47?", "says [" TASK " N] ircut_mode:5 night to day", "stamp 1700000000000",
                       "says [_infrared_drv]pwm_duty(0)\n", "pwm 0", "sw 1 at level 0", "led 45 0", "isp 0",
                       "sleep 200", "mode?", "timer stop", "led 47 0"}));
    EXPECT_EQ(err.text(), "");
}

// ---- The alarm light -------------------------------------------------------------------------------------

TEST_F(Story, OfAnAlarm)
{
    in_mode(3);
    const int words[3] = {0, 1, 2};
    world.on_note = [&](const std::string &) { EXPECT_EQ(ircut.alarm_flag, 0); };
    set_white_led_alarm_info(1, words);
    EXPECT_EQ(world.journal(), (Journal{"says [set_white_led_alarm_info N] alarm_flag:1 "}));
    world.on_note = [&](const std::string &line) {
        EXPECT_EQ(ircut.alarm_flag, 1) << line << ": out before the task is let go";
    };
    alarm_counts counts = {0, 0};
    const Journal looks = {"led 47?", "lit?"};
    for (const Journal &then : {Journal{"led 47 1"}, {}, {}, {"led 47 0"}, {"led 47 1", "led 47 0"}}) {
        Journal all = looks;
        all.insert(all.end(), then.begin(), then.end());
        EXPECT_EQ(ircut_alarm_round(&counts), 500u);
        EXPECT_EQ(world.journal(), all);
    }
    EXPECT_EQ(ircut.alarm_flag, 0);
}

TEST_F(Story, OfAnAlarmThatIsDropped)
{
    const int words[3] = {0, 0, 2};
    alarm_counts counts = {0, 0};
    in_mode(5);
    ircut.smart_night = 1;
    world.person_light = 1;
    set_white_led_alarm_info(1, words);
    world.journal();
    world.on_note = [&](const std::string &line) { EXPECT_EQ(ircut.alarm_flag, 1) << line; };
    EXPECT_EQ(ircut_alarm_round(&counts), 0u);
    EXPECT_EQ(world.journal(),
              (Journal{"led 47?", "lit?", "says [" ALARM " N] current smart mode and night stop alarm\n"}));
    EXPECT_EQ(ircut.alarm_flag, 0);
}

// While nobody serves it, in a mode that decides, the task holds still until somebody takes the request back,
// or mode 6 drops it.
TEST_F(Story, OfAnAlarmThatNobodyServes)
{
    const int words[3] = {0, 0, 1};
    alarm_counts counts = {0, 0};
    in_mode(0);
    world.dark();
    rounds(10);
    for (bool taken_back : {true, false}) {
        set_white_led_alarm_info(1, words);
        for (int i = 0; i < 100; i++) {
            EXPECT_EQ(ircut_task_round(&task), 1000u);
            EXPECT_EQ(ircut_alarm_round(&counts), 500u);
        }
        EXPECT_EQ(ircut.alarm_flag, 1);
        EXPECT_EQ(task.d2n_count, 10);
        if (taken_back) {
            set_white_led_alarm_info(0, words);
        } else {
            ircut_mode_config(6);
            round();
            ircut_mode_config(0);
            ircut.applied_mode = 0;
        }
        EXPECT_EQ(ircut.alarm_flag, 0);
    }
    rounds(1);
    EXPECT_EQ(world.isp_mode, 1u) << "the eleventh sample";
}

// ---- The basic controller --------------------------------------------------------------------------------

TEST_F(Story, OfTheBasicController)
{
    OutputCapture err(STDERR_FILENO);
    ircut_basic basic = {};
    const auto basic_rounds = [&](int count) {
        for (int i = 0; i < count; i++) {
            world.journal();
            EXPECT_EQ(ircut_basic_round(&basic), 500u);
        }
        return world.journal();
    };
    world.on_note = [&](const std::string &line) {
        if (line.compare(0, 5, "event") == 0) {
            EXPECT_EQ(basic.task.d2n_count, 0) << line;
            EXPECT_EQ(basic.task.n2d_count, 0) << line;
        }
    };
    world.dark();
    basic_rounds(5);
    ir_level = 75;
    EXPECT_EQ(basic_rounds(1),
              (Journal{"ev?", "wb?", "stamp 1700000000000", "isp 1", "sleep 200", "sw 0 at level 75",
                       "says [_infrared_drv]pwm_duty(30)\n", "pwm 30", "mode?", "event 0 DayToNight 11"}));
    world.bright();
    basic_rounds(6);
    world.clock.set_wall_ms(1700000000000);
    const Journal last = basic_rounds(1);
    EXPECT_EQ(Journal(last.begin(), last.begin() + 3), (Journal{"ev?", "wb?", "stamp 1700000000000"}));
    EXPECT_EQ(Journal(last.end() - 7, last.end()),
              (Journal{"says [_infrared_drv]pwm_duty(0)\n", "pwm 0", "sw 1 at level 0", "isp 0", "sleep 200",
                       "mode?", "event 0 NightToDay 11"}));
    EXPECT_EQ(err.text(), "");
}

// ---- The wall clock --------------------------------------------------------------------------------------

// Of all that the controller does, only the time that it publishes is the wall clock's: a step of an hour
// shows there and nowhere else.
TEST_F(Story, StepsOfTheClockOnlyShowInTheStamp)
{
    for (int64_t step_ms : {-3600000, 3600000}) {
        const auto step = [&] { world.clock.set_wall_ms(1700000000000 + static_cast<uint64_t>(step_ms)); };
        const std::string stamp = "stamp " + std::to_string(1700000000000 + step_ms);
        in_mode(3);
        world.isp_mode = 0;
        task = {};
        world.dark();
        rounds(6);
        step();
        for (int i = 0; i < 4; i++)
            EXPECT_EQ(round(), sampled({})) << "the count goes on";
        EXPECT_EQ(round()[4], stamp);
        EXPECT_EQ(world.isp_mode, 1u);
        world.bright();
        rounds(10);
        step();
        const Journal to_day = round();
        EXPECT_EQ(std::count(to_day.begin(), to_day.end(), stamp), 1);
        EXPECT_EQ(world.isp_mode, 0u);

        ircut_mode_config(3);
        world.clock.set_wall_ms(1700000000000);
        EXPECT_EQ(ircut_init(), 0);
        step();
        world.journal();
        ircut_mode_switch(2);
        EXPECT_EQ(world.journal()[1], stamp);
        step();
        ircut_mode_switch(1);
        EXPECT_EQ(world.journal()[1], stamp);
        ircut_exit();
    }
}

// The three seconds of patience at the start are sleeps, not times of day.
TEST_F(Story, AStartIsAsPatientWhereTheClockSteps)
{
    for (int64_t step_ms : {-3600000, 3600000}) {
        world.get_result = -1;
        const size_t slept_before = world.clock.sleeps().size();
        bool stepped = false;
        world.clock.on_sleep = [&](unsigned) {
            if (!stepped)
                world.clock.set_wall_ms(world.clock.wall_ms() + static_cast<uint64_t>(step_ms));
            stepped = true;
        };
        EXPECT_EQ(ircut_init(), 0);
        EXPECT_EQ(world.clock.sleeps().size() - slept_before, 60u);
        ircut_exit();
    }
}

} // namespace
