// Mode 5: infrared at night, colour while the white LED is lit.
#include "world.h"

namespace
{

class Smart : public testing::Test
{
  protected:
    Smart() { ircut_mode_config(5); }
    void night()
    {
        world.dark();
        world.rounds(&task, 11);
        ASSERT_EQ(ircut.smart_night, 1);
        ASSERT_EQ(task.isp_mode, 1u);
        world.dusk();
        world.clock.set_wall_ms(1700000000000);
    }
    // A person has lit the white LED.
    void lit()
    {
        world.white = 1;
        world.person_light = 1;
    }
    void gone_out()
    {
        world.white = 0;
        world.person_light = 0;
    }
    World world;
    ircut_task task = {};
    const Journal TO_NIGHT = {"stamp 1700000000000", "isp 1", "sleep 200", "sw 0", "pwm 0", "led 45 1"};
    const Journal TO_DAY = {"stamp 1700000000000", "pwm 0",      "sw 1",    "led 45 0", "isp 0",
                            "sleep 200",           "timer stop", "led 47 0"};
    const Journal TO_COLOR = {"sw 1", "sleep 200", "led 45 0", "isp 0", "sleep 200"};
    const Journal TO_INFRARED = {"sw 0", "sleep 200", "led 45 1", "isp 1", "sleep 200"};
    const LogCapture::Line SAYS_COLOR =
        info("[" TASK " N] ircut_mode:5 smart_auto mode,white light open,need close IR, full color vision");
    const LogCapture::Line SAYS_INFRARED =
        info("[" TASK " N] ircut_mode:5 white light off, need open IR to day-night vision");
};

// ---- Entry -----------------------------------------------------------------------------------------------

TEST_F(Smart, AStartInThisModeRunsNoEntryActions)
{
    EXPECT_EQ(world.rounds(&task, 1), Journal{});
    EXPECT_EQ(world.lines(), Lines{});
}

TEST_F(Smart, EntryForcesDay)
{
    ircut.applied_mode = 3;
    ircut.smart_night = 1;
    world.isp_mode = 1;
    task.d2n_count = task.n2d_count = 9;
    task.white_led_seen = 1;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"isp 0", "sleep 200", "sw 1", "led 45 0", "led 47 0"}));
    EXPECT_EQ(world.lines(),
              (Lines{info("[" TASK ":N]>>> change to  NARO_IRCUT_MODE_AUTO_SMART,force day")}));
    EXPECT_EQ(ircut.smart_night, 0);
    EXPECT_EQ(ircut.applied_mode, 5);
    EXPECT_EQ(task.d2n_count, 0);
    EXPECT_EQ(task.n2d_count, 0);
    EXPECT_EQ(task.white_led_seen, 0);
    EXPECT_EQ(world.rounds(&task, 1), Journal{});
}

TEST_F(Smart, EntryGoesOnWhereTheProcessorRefuses)
{
    ircut.applied_mode = 3;
    world.set_result = -2;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"isp 0", "sw 1", "led 45 0", "led 47 0"}));
    EXPECT_EQ(ircut.applied_mode, 5);
}

// ---- Day and night ---------------------------------------------------------------------------------------

TEST_F(Smart, TheEleventhDarkSampleInARowIsNight)
{
    ir_level = 30;
    world.dark();
    EXPECT_EQ(world.rounds(&task, 10), Journal{});
    EXPECT_EQ(ircut.smart_night, 0);
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
    EXPECT_EQ(world.lines(), (Lines{info("[" TASK " N] ircut_mode:5 day to night,default day-night vision"),
                                    info("[_infrared_drv]pwm_duty(0)\n")}));
    EXPECT_EQ(ircut.smart_night, 1);
    EXPECT_EQ(task.d2n_count, 0);
    ir_level = 0;
}

TEST_F(Smart, OneOtherSampleBeginsTheCountAnew)
{
    world.dark();
    world.rounds(&task, 10);
    world.dusk();
    world.rounds(&task, 1);
    world.dark();
    EXPECT_EQ(world.rounds(&task, 10), Journal{});
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
}

TEST_F(Smart, AProcessorThatRefusesNightKeepsTheDay)
{
    world.dark();
    world.rounds(&task, 10);
    world.set_result = -1;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"stamp 1700000000000", "isp 1"}));
    EXPECT_EQ(world.lines().back(),
              err("naro_isp_daynight_mode_set NARO_ISP_RUNNING_MODE_NIGHT fail ret = -1\n"));
    EXPECT_EQ(ircut.smart_night, 0);
    EXPECT_EQ(task.d2n_count, 11);
    world.set_result = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
}

TEST_F(Smart, TheDayIsLoggedEveryThirtySeconds)
{
    world.rounds(&task, 60);
    EXPECT_EQ(world.lines(),
              (Lines{info("AUTO_SMART,___day mode____color=1,ev_attr.ev=20,ev_attr.bv=-1,ev_attr.expr_us="
                          "40000,ev_attr.again=20000,ev_attr.dgain=1024,total_gain=20480000,gain_sum=0,"
                          "rgain=0,bgain=0")}));
}

TEST_F(Smart, TheTwentyFirstBrightSampleInARowIsDay)
{
    night();
    world.bright();
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
    task.white_led_seen = 1; // whatever it was
    EXPECT_EQ(world.rounds(&task, 1), TO_DAY);
    EXPECT_EQ(world.lines(),
              (Lines{info("[" TASK " N] ircut_mode:5 night to day"), info("[_infrared_drv]pwm_duty(0)\n")}));
    EXPECT_EQ(ircut.smart_night, 0);
    EXPECT_EQ(task.n2d_count, 0);
    EXPECT_EQ(task.white_led_seen, 0);
    EXPECT_EQ(task.white_led_now, 0);
}

TEST_F(Smart, AProcessorThatRefusesDayKeepsTheNightButPutsTheWhiteLedOut)
{
    night();
    world.bright();
    world.rounds(&task, 20);
    world.set_result = -1;
    const Journal tried = {"stamp 1700000000000", "pwm 0", "sw 1", "led 45 0", "isp 0", "led 47 0"};
    EXPECT_EQ(world.rounds(&task, 1), tried);
    EXPECT_EQ(world.lines().back(),
              err("naro_isp_daynight_mode_set fail NARO_ISP_RUNNING_MODE_DAY ret = -1\n"));
    EXPECT_EQ(ircut.smart_night, 1);
    EXPECT_EQ(task.n2d_count, 21);
    EXPECT_EQ(world.rounds(&task, 1), tried);
    world.set_result = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_DAY);
}

TEST_F(Smart, AnAlarmHoldsBothSwitchesBack)
{
    ircut.alarm_flag = 2;
    world.dark();
    EXPECT_EQ(world.rounds(&task, 15), Journal{});
    ircut.alarm_flag = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
    world.clock.set_wall_ms(1700000000000);
    ircut.alarm_flag = 2;
    world.bright();
    EXPECT_EQ(world.rounds(&task, 25), Journal{});
    ircut.alarm_flag = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_DAY);
}

// ---- White light -----------------------------------------------------------------------------------------

TEST_F(Smart, APersonTurnsTheNightToColourOnceAndBack)
{
    night();
    task.n2d_count = 5;
    lit();
    EXPECT_EQ(world.rounds(&task, 1), TO_COLOR);
    EXPECT_EQ(world.lines()[0].text.substr(0, 27), "[ircut_check_night_to_day:N")
        << "the first night sample is logged";
    EXPECT_EQ(task.white_led_seen, 1);
    EXPECT_EQ(task.isp_mode, 0u);
    EXPECT_EQ(task.n2d_count, 0);
    EXPECT_EQ(ircut.smart_night, 1);
    EXPECT_EQ(world.rounds(&task, 50), Journal{}) << "once";
    gone_out();
    task.d2n_count = 4;
    EXPECT_EQ(world.rounds(&task, 1), TO_INFRARED);
    EXPECT_EQ(world.lines(), (Lines{SAYS_INFRARED}));
    EXPECT_EQ(task.white_led_seen, 0);
    EXPECT_EQ(task.d2n_count, 0);
    EXPECT_EQ(task.isp_mode, 1u);
    EXPECT_EQ(world.rounds(&task, 50), Journal{}) << "once";
    lit();
    EXPECT_EQ(world.rounds(&task, 1), TO_COLOR);
    EXPECT_EQ(world.lines(), (Lines{SAYS_COLOR}));
}

TEST_F(Smart, ALitLedKeepsTheCountTowardsDayAtZero)
{
    night();
    world.bright();
    world.rounds(&task, 20);
    EXPECT_EQ(task.n2d_count, 20);
    lit();
    world.rounds(&task, 1);
    EXPECT_EQ(world.rounds(&task, 50), Journal{});
    EXPECT_EQ(task.n2d_count, 0);
    gone_out();
    EXPECT_EQ(world.rounds(&task, 1), TO_INFRARED);
    EXPECT_EQ(task.n2d_count, 1) << "it counts from there";
}

TEST_F(Smart, ByDayTheWhiteLedChangesNothing)
{
    world.white = 1;
    EXPECT_EQ(world.rounds(&task, 5), Journal{});
    EXPECT_EQ(task.white_led_seen, 0);
}

TEST_F(Smart, NightAndColourMayBeginWithTheSameSample)
{
    lit();
    world.dark();
    world.rounds(&task, 10);
    Journal both = TO_NIGHT;
    both.insert(both.end(), TO_COLOR.begin(), TO_COLOR.end());
    task.n2d_count = 5;
    EXPECT_EQ(world.rounds(&task, 1), both);
    EXPECT_EQ(task.n2d_count, 0);
}

TEST_F(Smart, AProcessorThatRefusesColourIsNotAskedAgain)
{
    night();
    lit();
    task.n2d_count = 5;
    world.set_result = -1;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"sw 1", "sleep 200", "led 45 0", "isp 0"}));
    EXPECT_EQ(world.lines().back(),
              err("naro_isp_daynight_mode_set fail NARO_ISP_RUNNING_MODE_DAY ret = -1\n"));
    EXPECT_EQ(task.white_led_seen, 1);
    world.set_result = 0;
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
}

TEST_F(Smart, ColourIsTakenForGrantedWhereSomethingElseIsRead)
{
    night();
    lit();
    world.follows = false;
    EXPECT_EQ(world.rounds(&task, 1), TO_COLOR);
    EXPECT_EQ(world.lines().back(), err("[" TASK "] night2day fail\n"));
    EXPECT_EQ(task.isp_mode, 0u);
}

TEST_F(Smart, TheWayBackHasTheMessagesOfTheOtherDirection)
{
    night();
    lit();
    world.rounds(&task, 1);
    gone_out();
    world.follows = false;
    EXPECT_EQ(world.rounds(&task, 1), TO_INFRARED);
    EXPECT_EQ(world.lines(), (Lines{SAYS_INFRARED, err("[" TASK "] night2day fail\n")}));
    EXPECT_EQ(task.isp_mode, 1u) << "taken for granted";
}

TEST_F(Smart, AProcessorThatRefusesTheWayBack)
{
    night();
    lit();
    world.rounds(&task, 1);
    gone_out();
    world.set_result = -1;
    task.d2n_count = 4;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"sw 0", "sleep 200", "led 45 1", "isp 1"}));
    EXPECT_EQ(
        world.lines(),
        (Lines{SAYS_INFRARED, err("naro_isp_daynight_mode_set fail NARO_ISP_RUNNING_MODE_DAY ret = -1\n")}));
    EXPECT_EQ(task.white_led_seen, 0);
    EXPECT_EQ(task.d2n_count, 0);
    world.set_result = 0;
    EXPECT_EQ(world.rounds(&task, 20), Journal{}) << "it is not tried again";
}

TEST_F(Smart, LitAgainOnTheWayBackTheWhiteLedGoesOut)
{
    for (int set_result : {0, -1}) {
        night();
        lit();
        world.rounds(&task, 1);
        world.white = 0; // the line went out, and a person was faster than the task
        world.person_light = 1;
        world.set_result = set_result;
        Journal expected = {"sw 0", "sleep 200", "led 45 1", "isp 1"};
        if (set_result == 0)
            expected.push_back("sleep 200");
        expected.insert(expected.end(), {"timer stop", "led 47 0"});
        EXPECT_EQ(world.rounds(&task, 1), expected);
        world.set_result = 0;
        ircut.smart_night = 0;
        world.isp_mode = 0;
        world.rounds(&task, 1);
    }
}

TEST_F(Smart, ALineThatCannotBeReadIsAsItWas)
{
    night();
    world.white = -1;
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
    lit();
    EXPECT_EQ(world.rounds(&task, 1), TO_COLOR);
    world.white = -1;
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
    EXPECT_EQ(task.white_led_now, 1);
    gone_out();
    EXPECT_EQ(world.rounds(&task, 1), TO_INFRARED);
}

} // namespace
