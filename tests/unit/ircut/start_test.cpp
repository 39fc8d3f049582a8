// Start and stop of the controller.
#include <filesystem>
#include <fstream>
#include <string>

#include "isolate.h"
#include "world.h"

namespace
{

const std::string root = scratch_root();

class Start : public testing::Test
{
  protected:
    World world;
};

const LogCapture::Line FILLED = {NARO_LOG_INFO, "[ircut_config_init] NARO_ALGO_MSTAR\n"};

TEST_F(Start, InAnAutomaticMode)
{
    for (int mode : {0, 3, 4, 5}) {
        ircut_mode_config(mode);
        ir_level = 50;
        EXPECT_EQ(ircut_init(), 0);
        EXPECT_EQ(world.journal(), (Journal{"drv_init", "pwm_init", "pwm 0", "sw 1", "isp 0", "sleep 50",
                                            "thread alarm", "detach", "thread task"}))
            << mode;
        EXPECT_EQ(world.lines(), (Lines{FILLED, info("[ircut_init]switch to ircut mode auto\n"),
                                        info("[ircut_init]force day\n"), info("[_infrared_drv]pwm_duty(0)\n"),
                                        info("[ircut_init]create ircut task...\n")}))
            << mode;
        EXPECT_TRUE(ircut_is_inited());
        EXPECT_EQ(ircut.task_running, 1);
        EXPECT_EQ(ircut.mode, mode);
        ircut_exit();
        world.journal();
        world.lines();
    }
}

TEST_F(Start, IsInModeFiveUntilSomebodySaysOtherwise)
{
    EXPECT_EQ(ircut.mode, 5);
    EXPECT_EQ(ircut.applied_mode, 5);
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(ircut.mode, 5);
}

TEST_F(Start, InFixedDay)
{
    ircut_mode_config(1);
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(world.journal(),
              (Journal{"drv_init", "pwm_init", "stamp 1700000000000", "pwm 0", "sw 1", "isp 0"}));
    EXPECT_EQ(world.lines(), (Lines{FILLED, info("[ircut_init]switch to ircut mode ady\n"),
                                    info("[_infrared_drv]pwm_duty(0)\n")}));
    EXPECT_TRUE(ircut_is_inited());
    EXPECT_EQ(ircut.task_running, 0);
    EXPECT_EQ(ircut.mode, 1);
}

TEST_F(Start, InFixedNight)
{
    ircut_mode_config(2);
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(world.journal(), (Journal{"drv_init", "pwm_init", "stamp 1700000000000", "isp 1", "sleep 200",
                                        "sw 0", "pwm 99"}));
    EXPECT_EQ(world.lines(), (Lines{FILLED, info("[ircut_init]switch to ircut mode night\n"),
                                    info("[_infrared_drv]pwm_duty(99)\n")}));
    EXPECT_TRUE(ircut_is_inited());
    EXPECT_EQ(ir_level, 99);
    EXPECT_EQ(ircut.mode, 2);
}

TEST_F(Start, InAModeThatCanOnlyBeSwitchedTo)
{
    for (int mode : {6, 7, -1}) {
        ircut_mode_config(mode);
        EXPECT_EQ(ircut_init(), -1);
        EXPECT_EQ(world.journal(), (Journal{"drv_init", "pwm_init", "drv_exit", "pwm_exit"})) << mode;
        EXPECT_EQ(world.lines(), (Lines{FILLED, err("[ircut_init]not support ircut mode\n")}));
        EXPECT_FALSE(ircut_is_inited());
    }
}

TEST_F(Start, TwiceFillsTheTableAndNothingElse)
{
    ircut_init();
    world.journal();
    world.lines();
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(world.journal(), Journal{});
    EXPECT_EQ(world.lines(), (Lines{FILLED, info("[ircut_init] already inited\n")}));
}

TEST_F(Start, WithoutACoil)
{
    world.drv_init_result = -3;
    EXPECT_EQ(ircut_init(), -3);
    EXPECT_EQ(world.journal(), (Journal{"drv_init", "drv_exit"}));
    EXPECT_FALSE(ircut_is_inited());
    world.drv_init_result = 1;
    EXPECT_EQ(ircut_init(), 0) << "only a negative result is a failure";
}

TEST_F(Start, WithoutPwm)
{
    world.pwm_init_result = -4;
    EXPECT_EQ(ircut_init(), -4);
    EXPECT_EQ(world.journal(), (Journal{"drv_init", "pwm_init", "pwm_exit"})) << "the coil stays";
    EXPECT_FALSE(ircut_is_inited());
    world.pwm_init_result = 1;
    EXPECT_EQ(ircut_init(), 0);
}

TEST_F(Start, WithoutATask)
{
    world.create_fails_at = 1;
    EXPECT_EQ(ircut_init(), -1);
    EXPECT_EQ(world.journal(), (Journal{"drv_init", "pwm_init", "pwm 0", "sw 1", "isp 0", "sleep 50",
                                        "thread alarm", "detach", "thread task", "drv_exit", "pwm_exit"}));
    EXPECT_EQ(world.lines().back(), err("[ircut_init] ircut task create fail\n"));
    EXPECT_FALSE(ircut_is_inited());
    EXPECT_EQ(ircut.task_running, 0);
}

TEST_F(Start, WithoutAnAlarmLight)
{
    world.create_fails_at = 0;
    world.real_threads = false;
    EXPECT_EQ(ircut_init(), -1) << "no thread at all";
    EXPECT_EQ(world.lines()[4], err("[ircut_init] the alarm light has no thread\n"));
}

TEST_F(Start, WaitsForTheProcessorToSayDay)
{
    world.isp_mode = 1;
    world.follows = false;
    int sleeps = 0;
    world.clock.on_sleep = [&](unsigned ms) {
        EXPECT_EQ(ms, 50u);
        if (++sleeps == 7)
            world.isp_mode = 0;
    };
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(sleeps, 7);
    EXPECT_EQ(world.log.texts(NARO_LOG_ERR), std::vector<std::string>{});
}

TEST_F(Start, AtTheLastMomentItIsDay)
{
    world.isp_mode = 1;
    world.follows = false;
    int sleeps = 0;
    world.clock.on_sleep = [&](unsigned) {
        if (++sleeps == 60)
            world.isp_mode = 0;
    };
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(sleeps, 60);
    EXPECT_EQ(world.log.texts(NARO_LOG_ERR), std::vector<std::string>{});
}

TEST_F(Start, GoesOnWithoutDayAfterThreeSeconds)
{
    world.get_result = -1;
    EXPECT_EQ(ircut_init(), 0);
    EXPECT_EQ(world.clock.sleeps(), std::vector<unsigned>(60, 50));
    EXPECT_TRUE(world.log.has(NARO_LOG_ERR, "[ircut_init]set NARO_ISP_RUNNING_MODE_DAY failed\n"));
    EXPECT_TRUE(ircut_is_inited());
    // Another start has its three seconds again.
    ircut_exit();
    ircut_init();
    EXPECT_EQ(world.clock.sleeps().size(), 120u);
}

TEST_F(Start, WhatTheProcessorAnswersIsNotLookedAt)
{
    world.set_result = -1;
    for (int mode : {5, 1, 2}) {
        ircut_mode_config(mode);
        EXPECT_EQ(ircut_init(), 0) << mode;
        EXPECT_TRUE(ircut_is_inited());
        ircut_exit();
    }
    EXPECT_EQ(world.log.texts(NARO_LOG_ERR), std::vector<std::string>{}) << "its calls log by themselves";
}

TEST_F(Start, TheOtherSensorIsNotForgotten)
{
    std::filesystem::create_directories(root + "/tmp");
    std::ofstream(root + "/tmp/SSC3338").close();
    ircut_init();
    ircut_exit();
    std::filesystem::remove(root + "/tmp/SSC3338");
    ircut_init();
    EXPECT_EQ(ircut.sensor_ssc3338, 1) << "nobody changes a camera's sensor while it runs";
}

TEST_F(Start, LooksForTheOtherSensor)
{
    ircut_init();
    EXPECT_EQ(ircut.sensor_ssc3338, 0);
    ircut_exit();
    world.lines();
    std::filesystem::create_directories(root + "/tmp");
    std::ofstream(root + "/tmp/SSC3338").close();
    ircut_init();
    EXPECT_EQ(ircut.sensor_ssc3338, 1);
    EXPECT_EQ(world.lines()[0], info("[ircut_init N] use ssc3338 sensor \n"));
}

TEST_F(Start, ANightOfAnEarlierLifeIsOver)
{
    ircut.smart_night = 1;
    ircut.full_color_night = 1;
    ircut_init();
    EXPECT_EQ(ircut.smart_night, 0);
    EXPECT_EQ(ircut.full_color_night, 0);
}

TEST_F(Start, StopPutsEveryLightOut)
{
    ircut_init();
    ir_level = 75;
    world.journal();
    world.lines();
    EXPECT_EQ(ircut_exit(), 0);
    EXPECT_EQ(world.journal(),
              (Journal{"join", "led 45 0", "led 47 0", "drv_exit", "pwm 0 at level 75", "pwm_exit"}));
    EXPECT_EQ(ir_level, 0);
    EXPECT_EQ(world.lines(), (Lines{info("[ircut_exit]\n"), info("[_infrared_drv]pwm_duty(0)\n"),
                                    info("____[ircut_exit]____ finished\n")}));
    EXPECT_FALSE(ircut_is_inited());
    EXPECT_EQ(ircut.task_running, 0);
}

TEST_F(Start, StopWithoutATask)
{
    ircut_mode_config(1);
    ircut_init();
    world.journal();
    ircut_exit();
    EXPECT_EQ(world.journal(), (Journal{"led 45 0", "led 47 0", "drv_exit", "pwm 0", "pwm_exit"}));
}

TEST_F(Start, StopOfWhatIsNotStarted)
{
    EXPECT_EQ(ircut_exit(), 0);
    EXPECT_EQ(world.journal(), Journal{});
    EXPECT_EQ(world.lines(), (Lines{info("[ircut_exit]\n"), info("[ircut_exit] already exit\n"),
                                    info("____[ircut_exit]____ finished\n")}));
    ircut_init();
    ircut_exit();
    world.journal();
    ircut_exit();
    EXPECT_EQ(world.journal(), Journal{});
}

TEST_F(Start, ModeConfigOnlyKeepsTheMode)
{
    for (int mode : {0, 6, 17, -1}) {
        EXPECT_EQ(ircut_mode_config(mode), 0);
        EXPECT_EQ(ircut.mode, mode);
    }
    EXPECT_EQ(world.journal(), Journal{});
    EXPECT_EQ(world.lines(), Lines{});
}

TEST_F(Start, FullColourSetting)
{
    EXPECT_EQ(fullcolor_mode_get(), 1);
    EXPECT_EQ(fullcolor_mode_config(0), 0);
    EXPECT_EQ(fullcolor_mode_get(), 0);
    EXPECT_EQ(fullcolor_mode_config(1), 0);
    EXPECT_EQ(fullcolor_mode_get(), 1);
}

} // namespace
