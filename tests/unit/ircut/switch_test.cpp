// Mode changes at run time.
#include "world.h"

namespace
{

class Switch : public testing::Test
{
  protected:
    // Started in a mode, with journal and log empty.
    void start(int mode)
    {
        ircut_mode_config(mode);
        ASSERT_EQ(ircut_init(), 0);
        world.journal();
        world.lines();
    }
    // Switches and expects.
    void expect(int mode, const Journal &journal, const Lines &lines)
    {
        EXPECT_EQ(ircut_mode_switch(mode), 0);
        EXPECT_EQ(world.journal(), journal) << mode;
        EXPECT_EQ(world.lines(), lines) << mode;
    }
    World world;
    const Journal DAY = {"stamp 1700000000050", "pwm 0", "sw 1", "isp 0", "event 0 NightToDay 11"};
    const Journal NIGHT = {"stamp 1700000000050",  "isp 1", "sleep 200", "sw 0", "pwm 99",
                           "event 0 DayToNight 11"};
    const LogCapture::Line SAYS_DAY = info("[ircut_mode_switch]switch to ircut mode ady\n");
    const LogCapture::Line SAYS_NIGHT = info("[ircut_mode_switch]switch to ircut mode night\n");
    const LogCapture::Line SAYS_AUTO = info("[ircut_mode_switch]switch to ircut mode auto\n");
    const LogCapture::Line PWM_0 = info("[_infrared_drv]pwm_duty(0)\n");
    const LogCapture::Line PWM_99 = info("[_infrared_drv]pwm_duty(99)\n");
    const LogCapture::Line EXISTS = info("[ircut_mode_switch N] ircut task thread exist \n");
};

LogCapture::Line says(int mode)
{
    return info("[ircut_mode_switch N] switch to ircut mode " + std::to_string(mode) + " \n");
}

TEST_F(Switch, BeforeTheStartDoesNothing)
{
    for (int mode = -1; mode <= 7; mode++) {
        expect(mode, {}, {info("[ircut_mode_switch] ircut not inited\n")});
        EXPECT_EQ(ircut.mode, 5) << "it is not even kept";
    }
}

TEST_F(Switch, ToFixedDayLeavesTheTaskIdle)
{
    for (int mode : {3, 4, 5, 6}) {
        ircut_mode_config(mode == 6 ? 5 : mode);
        ircut_init();
        ircut_mode_switch(mode);
        world.journal();
        world.lines();
        EXPECT_EQ(ircut_mode_switch(1), 0);
        EXPECT_EQ(world.journal().size(), 5u) << "no join";
        EXPECT_EQ(ircut.task_running, 1) << mode;
        EXPECT_EQ(ircut.mode, 1);
        ircut_exit();
    }
}

TEST_F(Switch, ToFixedDay)
{
    start(3);
    expect(1, DAY, {SAYS_DAY, PWM_0});
    expect(1, {}, {SAYS_DAY});
}

TEST_F(Switch, ToFixedNight)
{
    start(3);
    expect(2, NIGHT, {SAYS_NIGHT, PWM_99});
    EXPECT_EQ(ir_level, 99);
    EXPECT_EQ(ircut.mode, 2);
    EXPECT_EQ(ircut.task_running, 1);
    expect(2, {}, {SAYS_NIGHT});
}

TEST_F(Switch, WhatTheProcessorAnswersToAFixedModeIsNotLookedAt)
{
    start(3);
    world.set_result = -1;
    expect(2, NIGHT, {SAYS_NIGHT, PWM_99});
    EXPECT_EQ(ircut.mode, 2);
    world.clock.set_wall_ms(1700000000050);
    expect(1, DAY, {SAYS_DAY, PWM_0});
    EXPECT_EQ(ircut.mode, 1);
}

TEST_F(Switch, FromModeZeroToAFixedModeEndsTheTask)
{
    start(0);
    expect(1, {"join", "stamp 1700000000050", "pwm 0", "sw 1", "isp 0", "event 0 NightToDay 11"},
           {SAYS_DAY, PWM_0});
    EXPECT_EQ(ircut.task_running, 0);
    ircut_exit();
    start(0);
    EXPECT_EQ(ircut_mode_switch(2), 0);
    EXPECT_EQ(world.journal()[0], "join");
    EXPECT_EQ(ircut.task_running, 0);
    EXPECT_EQ(ircut.mode, 2);
}

TEST_F(Switch, ModeZeroWithoutATaskHasNothingToJoin)
{
    start(1);
    ircut_mode_config(0);
    EXPECT_EQ(ircut_mode_switch(2), 0);
    EXPECT_EQ(world.journal()[0].substr(0, 5), "stamp");
}

TEST_F(Switch, ToZeroIsFiveButForZero)
{
    start(0);
    expect(0, {}, {SAYS_AUTO});
    EXPECT_EQ(ircut.mode, 0);
    for (int mode : {3, 4, 5, 6, 1, 2}) {
        ircut_mode_switch(mode);
        world.journal();
        world.lines();
        if (mode == 1 || mode == 2)
            continue;
        expect(0, {}, {SAYS_AUTO});
        EXPECT_EQ(ircut.mode, 5) << "from " << mode;
    }
}

TEST_F(Switch, ToZeroFromAFixedModeStartsTheTask)
{
    for (int mode : {1, 2}) {
        start(mode);
        expect(0, {"thread task"}, {SAYS_AUTO});
        EXPECT_EQ(ircut.mode, 5);
        EXPECT_EQ(ircut.task_running, 1);
        ircut_exit();
    }
}

TEST_F(Switch, ToAnAutomaticModeWhileTheTaskRuns)
{
    start(5);
    for (int mode : {3, 4, 5, 6, 6}) {
        expect(mode, {}, {says(mode), EXISTS});
        EXPECT_EQ(ircut.mode, mode);
    }
}

TEST_F(Switch, ToAnAutomaticModeStartsTheTaskButNoAlarmLight)
{
    for (int mode : {3, 4, 5, 6})
        for (int from : {1, 2}) {
            start(from);
            expect(mode, {"thread task"}, {says(mode)});
            EXPECT_EQ(ircut.mode, mode);
            EXPECT_EQ(ircut.task_running, 1);
            ircut_exit();
        }
}

TEST_F(Switch, ATaskThatCannotBeCreated)
{
    start(1);
    world.create_fails_at = world.created;
    expect(3, {"thread task"}, {says(3), err("[ircut_mode_switch] ircut task create fail\n")});
    EXPECT_EQ(ircut.task_running, 0);
    expect(0, {"thread task"}, {SAYS_AUTO, err("[ircut_mode_switch] ircut task create fail\n")});
    EXPECT_EQ(ircut.task_running, 0);
    EXPECT_EQ(ircut.mode, 5);
    world.create_fails_at = -1;
    expect(3, {"thread task"}, {says(3)});
}

TEST_F(Switch, ToAnyOtherValueDoesNothing)
{
    start(3);
    for (int mode : {-1, 7, 100, 5 - 48}) {
        expect(mode, {}, {});
        EXPECT_EQ(ircut.mode, 3);
    }
}

TEST_F(Switch, FixedModesDoNotTouchTheModeThatTheTaskHasEntered)
{
    start(3);
    ircut_task task = {};
    world.rounds(&task, 1);
    EXPECT_EQ(ircut.applied_mode, 3);
    ircut_mode_switch(1);
    world.rounds(&task, 1);
    EXPECT_EQ(ircut.applied_mode, 3);
    ircut_mode_switch(3);
    EXPECT_EQ(world.rounds(&task, 1), Journal{}) << "no entry actions";
}

TEST_F(Switch, AnAlarmLightThatSleptThroughAStopDoesNotComeBack)
{
    world.clock.on_sleep = [](unsigned ms) {
        if (ms == 500) {
            ADD_FAILURE() << "it goes on";
            ircut.task_running = 0;
        }
    };
    start(0);
    void *first = world.alarm_number;
    ircut_mode_switch(1);
    ircut_mode_switch(3);
    EXPECT_EQ(ircut.task_running, 1);
    EXPECT_EQ(white_led_status_and_alarm_check(first), nullptr);
    ircut_exit();
    start(5);
    EXPECT_NE(world.alarm_number, first);
    EXPECT_EQ(white_led_status_and_alarm_check(first), nullptr);
}

TEST_F(Switch, TheClockSetBackOnlyShowsInTheStamp)
{
    start(3);
    world.clock.set_wall_ms(1600000000000);
    ircut_mode_switch(2);
    EXPECT_EQ(world.journal()[0], "stamp 1600000000000");
}

} // namespace
