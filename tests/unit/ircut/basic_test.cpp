// The basic controller.
#include "world.h"

#include <sys/prctl.h>

namespace
{

class Basic : public testing::Test
{
  protected:
    Journal rounds(int count)
    {
        for (int i = 0; i < count; i++) {
            world.journal();
            world.lines();
            EXPECT_EQ(ircut_basic_round(&basic), 500u);
        }
        return world.journal();
    }
    void night() { basic.task.isp_mode = 1; }
    World world;
    ircut_basic basic = {};
    const Journal TO_NIGHT = {"stamp 1700000000000",  "isp 1", "sleep 200", "sw 0", "pwm 30",
                              "event 0 DayToNight 11"};
    const Journal TO_DAY = {"stamp 1700000000000",  "pwm 0", "sw 1", "isp 0", "sleep 200",
                            "event 0 NightToDay 11"};
};

TEST_F(Basic, TheSixthDarkSampleInARowIsNight)
{
    world.dark();
    EXPECT_EQ(rounds(5), Journal{});
    EXPECT_EQ(rounds(1), TO_NIGHT);
    EXPECT_EQ(world.lines(), (Lines{info("[_infrared_drv]pwm_duty(30)\n")}));
    EXPECT_EQ(basic.task.isp_mode, 1u);
    EXPECT_EQ(basic.task.d2n_count, 0);
    EXPECT_EQ(ir_level, 30);
}

TEST_F(Basic, OneOtherSampleBeginsTheCountAnew)
{
    world.dark();
    rounds(5);
    world.bright();
    rounds(1);
    world.dark();
    EXPECT_EQ(rounds(5), Journal{});
    EXPECT_EQ(rounds(1), TO_NIGHT);
}

TEST_F(Basic, TheFullColourSettingSelectsTheDarkTest)
{
    world.measure(3, 0xFFFFFFFFu, 66666, 0, 0, 0); // dark without colour only
    rounds(1);
    EXPECT_EQ(basic.task.d2n_count, 0);
    fullcolor_mode_config(0);
    rounds(1);
    EXPECT_EQ(basic.task.d2n_count, 1);
}

TEST_F(Basic, AProcessorThatRefusesNight)
{
    world.dark();
    rounds(5);
    world.set_result = -1;
    EXPECT_EQ(rounds(1), (Journal{"stamp 1700000000000", "isp 1"}));
    EXPECT_EQ(basic.task.d2n_count, 6);
    EXPECT_EQ(basic.task.isp_mode, 0u);
    EXPECT_EQ(world.lines(),
              (Lines{err("naro_isp_daynight_mode_set NARO_ISP_RUNNING_MODE_NIGHT fail ret = -1\n")}));
}

TEST_F(Basic, NightIsTakenForGrantedWhereSomethingElseIsRead)
{
    world.dark();
    world.follows = false;
    OutputCapture error_stream(STDERR_FILENO);
    EXPECT_EQ(rounds(6), TO_NIGHT);
    EXPECT_EQ(error_stream.text(), "[mstar_ircut_ctrl] day2night fail\n");
    EXPECT_EQ(basic.task.isp_mode, 1u);
}

TEST_F(Basic, TheSeventhBrightSampleInARowIsDay)
{
    night();
    world.bright();
    EXPECT_EQ(rounds(6), Journal{});
    EXPECT_EQ(rounds(1), TO_DAY);
    EXPECT_EQ(basic.task.isp_mode, 0u);
    EXPECT_EQ(basic.task.n2d_count, 0);
}

TEST_F(Basic, AProcessorThatRefusesDay)
{
    night();
    world.bright();
    rounds(6);
    world.set_result = -1;
    EXPECT_EQ(rounds(1), (Journal{"stamp 1700000000000", "pwm 0", "sw 1", "isp 0"}));
    EXPECT_EQ(basic.task.n2d_count, 7);
    EXPECT_EQ(basic.task.isp_mode, 1u);
}

TEST_F(Basic, DayIsTakenForGrantedWhereSomethingElseIsRead)
{
    night();
    world.isp_mode = 1;
    world.bright();
    world.follows = false;
    EXPECT_EQ(rounds(7), TO_DAY);
    EXPECT_EQ(world.lines().back(), err("[mstar_ircut_ctrl] night2day fail\n"));
}

TEST_F(Basic, TheInfraredLightFollowsTheScene)
{
    night();
    ir_level = 30;
    world.measure(29, 0, 65000, 20000, 0, 0); // dim, and not bright
    EXPECT_EQ(rounds(3), Journal{});
    EXPECT_EQ(rounds(1), (Journal{"pwm 50"}));
    EXPECT_EQ(rounds(3), Journal{});
    EXPECT_EQ(rounds(1), (Journal{"pwm 75"}));
    world.measure(81, 0, 65000, 20000, 0, 0);
    EXPECT_EQ(rounds(3), Journal{});
    EXPECT_EQ(rounds(1), (Journal{"pwm 50"}));
    ir_level = 0;
}

TEST_F(Basic, LogsDayAndNightEveryThirtySeconds)
{
    rounds(59);
    EXPECT_EQ(world.lines(), Lines{});
    rounds(1);
    EXPECT_EQ(world.lines(),
              (Lines{info("___day mode____color=1,ev_attr.ev=20,ev_attr.bv=-1,ev_attr.expr_us=40000,"
                          "ev_attr.again=20000,ev_attr.dgain=1024,total_gain=20480000,gain_sum=0,rgain=0,"
                          "bgain=0")}));
    night();
    g_motor_position_v_p = 8;
    world.measure(50, 0xFFFFFFFFu, 40000, 20000, 1024, -3072);
    rounds(59);
    EXPECT_EQ(world.lines(), Lines{});
    rounds(1);
    EXPECT_EQ(world.lines(),
              (Lines{info("___night mode____ new2 ev=50,bv=-1,ev_attr.expr_us=40000,again=20000,dgain=1024,"
                          "totalGain=20480000,gain_sum=-2,rgain=1,bgain=-3,v_p=8\n")}));
}

TEST_F(Basic, AnyOtherModeOfTheProcessorIsLogged)
{
    basic.task.isp_mode = 2;
    world.dark();
    EXPECT_EQ(rounds(10), Journal{});
    EXPECT_EQ(world.lines(), (Lines{err("[mstar_ircut_ctrl] ircut stat expection\n")}));
}

TEST_F(Basic, KeepsTheModeItself)
{
    world.isp_mode = 1; // somebody else has changed it
    world.dark();
    EXPECT_EQ(rounds(6), TO_NIGHT);
    EXPECT_EQ(world.mode_reads, 1) << "only to read back";
}

TEST_F(Basic, AnAlarmDoesNotMatterToIt)
{
    ircut.alarm_flag = 1;
    world.dark();
    EXPECT_EQ(rounds(6), TO_NIGHT);
}

TEST_F(Basic, ItsThreadReadsTheModeOnceAndEndsWithTheTask)
{
    world.isp_mode = 2;
    ircut.task_running = 1;
    int sleeps = 0;
    world.clock.on_sleep = [&](unsigned ms) {
        EXPECT_EQ(ms, 500u);
        char name[16] = "";
        prctl(PR_GET_NAME, name);
        EXPECT_STREQ(name, "mstar_ircut_ctr") << "as much as the kernel keeps of it";
        if (++sleeps == 3)
            ircut.task_running = 0;
    };
    EXPECT_EQ(mstar_ircut_ctrl(nullptr), nullptr);
    EXPECT_EQ(sleeps, 3);
    EXPECT_EQ(world.mode_reads, 1);
    EXPECT_EQ(world.lines(), (Lines(3, err("[mstar_ircut_ctrl] ircut stat expection\n"))));
}

} // namespace
