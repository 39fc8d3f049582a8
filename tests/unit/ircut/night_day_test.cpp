// Modes 0 and 3: automatic day and night with infrared light; and what a round does in every mode.
#include "world.h"

#include <filesystem>
#include <fstream>

#include "isolate.h"

namespace
{

const std::string root = scratch_root();

class NightDay : public testing::Test
{
  protected:
    NightDay()
    {
        ircut_mode_config(3);
        ircut.applied_mode = 3;
    }
    World world;
    ircut_task task = {};
    // As they are on the round that switches; time stands still but for sleeps.
    const Journal TO_NIGHT = {"stamp 1700000000000", "isp 1", "sleep 200", "sw 0", "pwm 0", "led 45 1"};
    const Journal TO_DAY = {"stamp 1700000000000", "pwm 0", "sw 1", "led 45 0", "isp 0", "sleep 200"};
};

const LogCapture::Line PWM_0 = {NARO_LOG_INFO, "[_infrared_drv]pwm_duty(0)\n"};

// ---- Rounds ----------------------------------------------------------------------------------------------

TEST_F(NightDay, ARoundSamplesEverySecondHalf)
{
    EXPECT_EQ(ircut_task_round(&task), 500u);
    EXPECT_EQ(world.mode_reads, 1);
    EXPECT_EQ(world.statistics_reads, 1);
    EXPECT_EQ(task.samples, 1u);
    world.isp_mode = 1;
    ircut_task_round(&task);
    EXPECT_EQ(ircut.isp_mode_snapshot, 1u);
    EXPECT_EQ(task.samples, 2u);
    EXPECT_EQ(world.journal(), Journal{});
}

TEST_F(NightDay, FixedModesDecideNothing)
{
    for (int mode : {1, 2, 7, -1}) {
        ircut_mode_config(mode);
        world.dark();
        EXPECT_EQ(world.rounds(&task, 30), Journal{}) << mode;
        EXPECT_EQ(world.lines(), Lines{});
        EXPECT_EQ(ircut.applied_mode, 3);
    }
    EXPECT_EQ(task.samples, 120u) << "but they sample";
}

TEST_F(NightDay, LightsOffKeepsEveryLightOff)
{
    ircut_mode_config(6);
    ircut.task_running = 1;
    ircut.alarm_flag = 1;
    world.dark();
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(ircut_task_round(&task), 500u);
        EXPECT_EQ(world.journal(), (Journal{"timer stop", "led 47 0", "led 45 0"}));
        EXPECT_EQ(ircut.alarm_flag, 0);
        EXPECT_EQ(ircut.applied_mode, 6);
    }
    EXPECT_EQ(task.samples, 0u);
    EXPECT_EQ(world.mode_reads, 0);
    EXPECT_EQ(world.lines(), Lines{});
}

TEST_F(NightDay, LightsOffLeavesTheLinesOfAStoppedTaskAlone)
{
    ircut_mode_config(6);
    ircut_task_round(&task);
    EXPECT_EQ(world.journal(), (Journal{"timer stop"}));
}

TEST_F(NightDay, LightsOffTakesBackNothingButARequest)
{
    ircut_mode_config(6);
    ircut.alarm_flag = 2;
    ircut_task_round(&task);
    EXPECT_EQ(ircut.alarm_flag, 2);
}

TEST_F(NightDay, AnAlarmFreezesTheTask)
{
    world.dark();
    world.rounds(&task, 7);
    EXPECT_EQ(task.d2n_count, 7);
    ircut.alarm_flag = 1;
    for (int i = 0; i < 20; i++)
        EXPECT_EQ(ircut_task_round(&task), 1000u);
    EXPECT_EQ(task.d2n_count, 7) << "no sample, no count";
    EXPECT_EQ(task.samples, 7u);
    EXPECT_EQ(world.mode_reads, 7);
    ircut.alarm_flag = 0;
    EXPECT_EQ(world.rounds(&task, 3), Journal{});
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
}

TEST_F(NightDay, AnAlarmThatComesDuringASampleHoldsTheSwitchBack)
{
    world.dark();
    world.rounds(&task, 10);
    ircut.alarm_flag = 1;
    ircut_step_night_day(&task, 3);
    EXPECT_EQ(task.d2n_count, 11);
    ircut_step_night_day(&task, 3);
    EXPECT_EQ(task.d2n_count, 12) << "it counts on";
    EXPECT_EQ(world.journal(), Journal{});
    ircut.alarm_flag = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
}

TEST_F(NightDay, AnyFlagHoldsASwitchBackButOnlyOneFreezes)
{
    ircut.alarm_flag = 2;
    world.dark();
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
    EXPECT_EQ(task.d2n_count, 20);
}

// ---- Entry -----------------------------------------------------------------------------------------------

TEST_F(NightDay, EntryForcesDay)
{
    for (int mode : {0, 3}) {
        ircut_mode_config(mode);
        ircut.applied_mode = 5;
        world.isp_mode = 1;
        task.d2n_count = task.n2d_count = 8;
        EXPECT_EQ(world.rounds(&task, 1), (Journal{"isp 0", "sleep 200", "sw 1", "led 45 0", "led 47 0"}))
            << mode;
        EXPECT_EQ(world.lines(),
                  (Lines{info("[" TASK ":N]>>>change to  NARO_IRCUT_MODE_AUTO_NIGHT_DAY, force day ")}));
        EXPECT_EQ(ircut.applied_mode, mode);
        EXPECT_EQ(task.d2n_count, 0);
        EXPECT_EQ(task.n2d_count, 0);
        EXPECT_EQ(world.rounds(&task, 1), Journal{}) << "once";
    }
}

TEST_F(NightDay, EntryTakesTheWhiteLightFromItsTimer)
{
    ircut.applied_mode = 5;
    world.person_light = 1;
    EXPECT_EQ(world.rounds(&task, 1),
              (Journal{"isp 0", "sleep 200", "sw 1", "led 45 0", "timer stop", "led 47 0"}));
}

TEST_F(NightDay, EntryIsFollowedByTheStepOfTheSameSample)
{
    ircut.applied_mode = 5;
    world.dark();
    world.rounds(&task, 1);
    EXPECT_EQ(task.d2n_count, 1);
}

TEST_F(NightDay, EntryGoesOnWhereTheProcessorRefuses)
{
    ircut.applied_mode = 5;
    world.isp_mode = 1;
    world.set_result = -1;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"isp 0", "sw 1", "led 45 0", "led 47 0"}));
    EXPECT_EQ(world.lines()[1], err("naro_isp_daynight_mode_set fail NARO_ISP_RUNNING_MODE_DAY ret = -1\n"));
    EXPECT_EQ(ircut.applied_mode, 3);
    EXPECT_EQ(task.isp_mode, 1u) << "still night";
}

TEST_F(NightDay, EntryTakesDayForGrantedWhereItReadsSomethingElse)
{
    ircut.applied_mode = 5;
    world.isp_mode = 1;
    world.follows = false;
    world.rounds(&task, 1);
    EXPECT_EQ(world.lines()[1], err("[" TASK "] night2day fail\n"));
    EXPECT_EQ(task.isp_mode, 0u);
}

// ---- Day to night ----------------------------------------------------------------------------------------

TEST_F(NightDay, TheEleventhDarkSampleInARowIsNight)
{
    for (int mode : {0, 3}) {
        ircut_mode_config(mode);
        ircut.applied_mode = mode;
        world.isp_mode = 0;
        world.clock.set_wall_ms(1700000000000);
        ir_level = 75;
        world.dark();
        EXPECT_EQ(world.rounds(&task, 10), Journal{});
        EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT) << mode;
        EXPECT_EQ(world.lines(),
                  (Lines{info("[" TASK " N] ircut_mode:" + std::to_string(mode) + " day to night"), PWM_0}));
        EXPECT_EQ(task.d2n_count, 0);
        EXPECT_EQ(task.isp_mode, 1u);
        EXPECT_EQ(ir_level, 0);
    }
}

TEST_F(NightDay, OneOtherSampleBeginsTheCountAnew)
{
    world.dark();
    world.rounds(&task, 10);
    world.dusk();
    EXPECT_EQ(world.rounds(&task, 1), Journal{});
    world.dark();
    EXPECT_EQ(world.rounds(&task, 10), Journal{});
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
}

TEST_F(NightDay, AProcessorThatRefusesNightIsAskedAtEveryDarkSample)
{
    world.dark();
    world.rounds(&task, 10);
    world.set_result = -7;
    EXPECT_EQ(world.rounds(&task, 1), (Journal{"stamp 1700000000000", "isp 1"}));
    EXPECT_EQ(world.lines(),
              (Lines{info("[" TASK " N] ircut_mode:3 day to night"),
                     err("naro_isp_daynight_mode_set NARO_ISP_RUNNING_MODE_NIGHT fail ret = -7\n")}));
    EXPECT_EQ(task.d2n_count, 11) << "the count stays";
    world.set_result = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
}

TEST_F(NightDay, NightIsTakenForGrantedWhereSomethingElseIsRead)
{
    world.dark();
    world.rounds(&task, 10);
    world.follows = false;
    OutputCapture error_stream(STDERR_FILENO);
    EXPECT_EQ(world.rounds(&task, 1), TO_NIGHT);
    EXPECT_EQ(error_stream.text(), "[" TASK "] day2night fail\n");
    EXPECT_EQ(task.isp_mode, 1u);
    EXPECT_EQ(task.d2n_count, 0);
}

TEST_F(NightDay, TheDayIsLoggedEveryThirtySeconds)
{
    world.measure(20, static_cast<uint32_t>(-5), 40000, 3000000000u, -3 * 1024, 5 * 1024);
    world.ev.word[4] = 4096;
    world.rounds(&task, 59);
    EXPECT_EQ(world.lines(), Lines{});
    world.rounds(&task, 1);
    EXPECT_EQ(world.lines(),
              (Lines{info("AUTO_NIGHT_DAY,___day mode____color=1,ev_attr.ev=20,ev_attr.bv=-5,ev_attr.expr_us="
                          "40000,ev_attr.again=-1294967296,ev_attr.dgain=4096,total_gain=12288000000000,"
                          "gain_sum=2,rgain=-3,bgain=5")}));
    fullcolor_mode_config(0);
    world.rounds(&task, 59);
    EXPECT_EQ(world.lines(), Lines{});
    world.rounds(&task, 1);
    EXPECT_EQ(world.lines()[0].text.substr(0, 38), "AUTO_NIGHT_DAY,___day mode____color=0,");
}

TEST_F(NightDay, AReadingThatFailsLeavesTheLastValues)
{
    world.dark();
    world.rounds(&task, 5);
    world.bright();
    world.ev_result = world.wb_result = -1;
    world.rounds(&task, 5);
    EXPECT_EQ(task.d2n_count, 10);
    world.ev_result = 0;
    world.rounds(&task, 1);
    EXPECT_EQ(task.d2n_count, 0);
    EXPECT_EQ(task.sample.ev, 85u);
    EXPECT_EQ(task.sample.gain_sum, 0) << "the gains are those of the dark";
}

TEST_F(NightDay, AModeThatCannotBeReadIsTheOneFromBefore)
{
    world.isp_mode = 1;
    world.rounds(&task, 1);
    world.isp_mode = 0;
    world.get_result = -1;
    world.dark();
    EXPECT_EQ(world.rounds(&task, 20), Journal{}) << "it is night all along";
    EXPECT_EQ(ircut.isp_mode_snapshot, 1u);
}

// ---- Night to day ----------------------------------------------------------------------------------------

TEST_F(NightDay, TheEleventhBrightSampleInARowIsDay)
{
    for (int mode : {0, 3}) {
        ircut_mode_config(mode);
        ircut.applied_mode = mode;
        world.isp_mode = 1;
        world.clock.set_wall_ms(1700000000000);
        ir_level = 50;
        world.bright();
        EXPECT_EQ(world.rounds(&task, 10), Journal{});
        EXPECT_EQ(world.rounds(&task, 1), TO_DAY) << mode;
        EXPECT_EQ(world.lines(),
                  (Lines{info("[" TASK " N] ircut_mode:" + std::to_string(mode) + " night to day"), PWM_0}));
        EXPECT_EQ(task.n2d_count, 0);
        EXPECT_EQ(task.isp_mode, 0u);
    }
}

TEST_F(NightDay, OneOtherNightSampleBeginsTheCountAnew)
{
    world.isp_mode = 1;
    world.bright();
    world.rounds(&task, 10);
    world.dusk();
    world.rounds(&task, 1);
    world.bright();
    EXPECT_EQ(world.rounds(&task, 10), Journal{});
    EXPECT_EQ(world.rounds(&task, 1), TO_DAY);
}

TEST_F(NightDay, AnAlarmHoldsTheDayBack)
{
    world.isp_mode = 1;
    ircut.alarm_flag = 2;
    world.bright();
    EXPECT_EQ(world.rounds(&task, 15), Journal{});
    ircut.alarm_flag = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_DAY);
}

TEST_F(NightDay, AProcessorThatRefusesDayIsAskedAtEveryBrightSample)
{
    world.isp_mode = 1;
    world.bright();
    world.rounds(&task, 10);
    world.set_result = -1;
    const Journal tried = {"stamp 1700000000000", "pwm 0", "sw 1", "led 45 0", "isp 0"};
    EXPECT_EQ(world.rounds(&task, 1), tried);
    EXPECT_EQ(task.n2d_count, 11);
    EXPECT_EQ(world.rounds(&task, 1), tried);
    world.set_result = 0;
    EXPECT_EQ(world.rounds(&task, 1), TO_DAY);
}

TEST_F(NightDay, TheCountsOfDayAndNightAreApart)
{
    world.dark();
    world.rounds(&task, 6);
    world.isp_mode = 1;
    world.bright();
    world.rounds(&task, 4);
    EXPECT_EQ(task.d2n_count, 6);
    EXPECT_EQ(task.n2d_count, 4);
}

TEST_F(NightDay, AnyOtherModeOfTheProcessorIsLogged)
{
    world.isp_mode = 2;
    world.dark();
    EXPECT_EQ(world.rounds(&task, 20), Journal{});
    EXPECT_EQ(world.lines(), (Lines{err("[" TASK "] ircut stat expection\n")}));
}

// ---- The night's test ------------------------------------------------------------------------------------

TEST_F(NightDay, TheNightIsLoggedOnTheFirstAndThenEverySixtiethCall)
{
    g_motor_position_v_p = -12;
    const naro_isp_ev_attr ev = {{85, 0xFFFFFFFFu, 3, 1000, 2048, 0, 0}};
    const naro_isp_wb_attr wb = {{-1024, -2048, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(ircut_check_night_to_day(&ev, &wb, 5, 0), 1);
    EXPECT_EQ(world.lines(),
              (Lines{info("[ircut_check_night_to_day:N] ___night mode____ new2 ev=85,bv=-1,ev_attr.expr_us=3,"
                          "again=1000,dgain=2048,totalGain=2048000,gain_sum=-3,rgain=-1,bgain=-2,v_p=-12 "
                          "ircut_mode:5\n")}));
    for (int i = 0; i < 59; i++)
        EXPECT_EQ(ircut_check_night_to_day(&ev, &wb, 5, 1), 0);
    EXPECT_EQ(world.lines(), Lines{});
    ircut_check_night_to_day(&ev, &wb, 4, 0);
    EXPECT_EQ(world.lines().size(), 1u);
}

TEST_F(NightDay, TheOtherSensorMayExposeForLonger)
{
    const naro_isp_ev_attr ev = {{50, 0, 45001, 1849, 1024, 0, 0}};
    const naro_isp_wb_attr wb = {{-7001 * 1024, 0, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(ircut_check_night_to_day(&ev, &wb, 4, 0), 0);
    std::filesystem::create_directories(root + "/tmp");
    std::ofstream(root + "/tmp/SSC3338").close();
    ircut_init();
    EXPECT_EQ(ircut_check_night_to_day(&ev, &wb, 4, 0), 1);
}

} // namespace
