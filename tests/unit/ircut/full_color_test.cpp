// Mode 4: at night the white LED lights the scene, and the picture stays in colour.
#include "world.h"

namespace
{

class FullColor : public testing::Test
{
  protected:
    FullColor()
    {
        ircut_mode_config(4);
        ircut.applied_mode = 4;
    }
    void night()
    {
        world.dark();
        world.rounds(&task, 11);
        ASSERT_EQ(ircut.full_color_night, 1);
    }
    World world;
    ircut_task task = {};
};

TEST_F(FullColor, EntryForcesDay)
{
    ircut.applied_mode = 5;
    ircut.full_color_night = 1;
    task.d2n_count = task.n2d_count = 9;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"sw 1", "led 45 0", "isp 0", "sleep 200"}));
    EXPECT_EQ(world.lines(),
              (Lines{info("[" TASK ":N]>>> change to  NARO_IRCUT_MODE_AUTO_FULL_COLOR,force day")}));
    EXPECT_EQ(ircut.full_color_night, 0);
    EXPECT_EQ(ircut.applied_mode, 4);
    EXPECT_EQ(task.d2n_count, 0);
    EXPECT_EQ(task.n2d_count, 0);
    EXPECT_EQ(world.rounds(&task, 1), Journal{});
}

TEST_F(FullColor, EntryTakesTheWhiteLightFromItsTimer)
{
    ircut.applied_mode = 5;
    world.person_light = 1;
    EXPECT_EQ(world.rounds(&task, 1),
              (Journal{"timer stop", "led 47 0", "sw 1", "led 45 0", "isp 0", "sleep 200"}));
}

TEST_F(FullColor, EntryGoesOnWhereTheProcessorRefuses)
{
    ircut.applied_mode = 5;
    world.set_result = -1;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"sw 1", "led 45 0", "isp 0"}));
    EXPECT_EQ(ircut.applied_mode, 4);
}

TEST_F(FullColor, TheEleventhDarkSampleLightsTheWhiteLedAndNothingElse)
{
    world.dark();
    EXPECT_EQ(world.rounds(&task, 10), Journal{});
    EXPECT_EQ(ircut.full_color_night, 0);
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"led 47 1"})) << "no stamp, no filter";
    EXPECT_EQ(world.lines(),
              (Lines{info("[" TASK " N] ircut_mode:4 day to night"), info(" full_color_type night")}));
    EXPECT_EQ(ircut.full_color_night, 1);
    EXPECT_EQ(task.d2n_count, 0);
}

TEST_F(FullColor, OneOtherSampleBeginsTheCountAnew)
{
    world.dark();
    world.rounds(&task, 10);
    world.dusk();
    world.rounds(&task, 1);
    world.dark();
    EXPECT_EQ(world.rounds(&task, 10), Journal{});
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"led 47 1"}));
}

TEST_F(FullColor, ItsOwnDarkTest)
{
    world.measure(10, 0, 66666, 0, -9999 * 1024, 0); // dark in this mode only
    world.rounds(&task, 5);
    EXPECT_EQ(task.d2n_count, 5);
}

TEST_F(FullColor, TheTwentyFirstBrightSamplePutsItOut)
{
    night();
    world.bright();
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"led 47 0"}));
    EXPECT_EQ(world.lines(),
              (Lines{info("[" TASK " N] ircut_mode:4 night to day"), info(" full_color_type day")}));
    EXPECT_EQ(ircut.full_color_night, 0);
    EXPECT_EQ(task.n2d_count, 0);
}

TEST_F(FullColor, OneOtherNightSampleBeginsTheCountAnew)
{
    night();
    world.bright();
    world.rounds(&task, 20);
    world.dusk();
    world.rounds(&task, 1);
    world.bright();
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"led 47 0"}));
}

TEST_F(FullColor, AnAlarmHoldsBothSwitchesBack)
{
    ircut.alarm_flag = 2;
    world.dark();
    EXPECT_EQ(world.rounds(&task, 15), Journal{});
    ircut.alarm_flag = 0;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"led 47 1"}));
    ircut.alarm_flag = 2;
    world.bright();
    EXPECT_EQ(world.rounds(&task, 25), Journal{});
    ircut.alarm_flag = 0;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"led 47 0"}));
}

TEST_F(FullColor, TheDayIsLoggedEveryThirtySecondsAndTheNightByItsTest)
{
    world.rounds(&task, 60);
    EXPECT_EQ(
        world.lines(),
        (Lines{info("AUTO_FULL_COLOR,___day mode____color=1,ev_attr.ev=20,ev_attr.bv=-1,ev_attr.expr_us="
                    "40000,ev_attr.again=20000,ev_attr.dgain=1024,total_gain=20480000,gain_sum=0,"
                    "rgain=0,bgain=0")}));
    night();
    world.rounds(&task, 1);
    EXPECT_EQ(world.lines()[0].text.substr(0, 51), "[ircut_check_night_to_day:N] ___night mode____ new2");
    EXPECT_EQ(world.lines(), Lines{});
}

TEST_F(FullColor, TheProcessorsModeDoesNotMatter)
{
    world.isp_mode = 1;
    world.dark();
    EXPECT_EQ(world.rounds(&task, 11), (Journal{"led 47 1"}));
}

TEST_F(FullColor, ToSmartTheWhiteLedGoesOutFirst)
{
    night();
    ircut_mode_config(5);
    world.dusk();
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"isp 0", "sleep 200", "sw 1", "led 45 0", "led 47 0"}));
    EXPECT_EQ(world.white, 0);
}

} // namespace
