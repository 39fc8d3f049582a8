// The alarm light, and what others ask of the modes.
#include "world.h"

namespace
{

class AlarmLight : public testing::Test
{
  protected:
    AlarmLight()
    {
        ircut_mode_config(3);
        ircut.applied_mode = 3;
    }
    void ask(int light, int duration_s)
    {
        const int words[3] = {99, light, duration_s};
        ASSERT_EQ(set_white_led_alarm_info(1, words), 0);
        world.lines();
    }
    // The LED after each tick ('1' lit) until the request is taken back.
    std::string ticks(size_t limit = 50)
    {
        std::string result;
        while (ircut.alarm_flag == 1 && result.size() < limit) {
            EXPECT_EQ(ircut_alarm_round(&counts), 500u);
            result += world.white == 1 ? '1' : '0';
        }
        return result;
    }
    World world;
    alarm_counts counts = {0, 0};
};

// ---- Asking ----------------------------------------------------------------------------------------------

TEST_F(AlarmLight, IsAskedForAndTakenBack)
{
    const int words[3] = {7, 1, -2};
    EXPECT_EQ(set_white_led_alarm_info(1, words), 0);
    EXPECT_EQ(world.lines(), (Lines{info("[set_white_led_alarm_info N] alarm_flag:1 ")}));
    EXPECT_EQ(ircut.alarm_flag, 1);
    EXPECT_EQ(ircut.alarm_light, 0x1FFFFFFFEu);
    const int odd[3] = {7, 257, 1};
    EXPECT_EQ(set_white_led_alarm_info(1, odd), 0);
    EXPECT_EQ(ircut.alarm_light, 0x10100000001u) << "no known light, though its last byte is one";
    EXPECT_EQ(set_white_led_alarm_info(0, words), 0);
    EXPECT_EQ(ircut.alarm_flag, 0);
    EXPECT_EQ(world.journal(), Journal{});
}

TEST_F(AlarmLight, WithoutInformationNothingChanges)
{
    EXPECT_EQ(set_white_led_alarm_info(1, nullptr), -1);
    EXPECT_EQ(world.lines(), (Lines{err("set_white_led_alarm_info param err ")}));
    EXPECT_EQ(ircut.alarm_flag, 0);
}

TEST_F(AlarmLight, NightModeAsTheTaskHasEnteredIt)
{
    int night = -1, mode = -1, alarm = -1;
    ircut.smart_night = 1;
    ircut.applied_mode = 5;
    ircut.alarm_flag = 2;
    EXPECT_EQ(get_current_night_mode(&night, &mode, &alarm), 0);
    EXPECT_EQ(night, 1);
    EXPECT_EQ(mode, 5) << "not the mode 3 that is asked for";
    EXPECT_EQ(alarm, 2);
    ircut_task task = {};
    world.rounds(&task, 1);
    get_current_night_mode(&night, &mode, &alarm);
    EXPECT_EQ(mode, 3);
}

TEST_F(AlarmLight, NightModeIntoNothing)
{
    int night = -1, mode = -1, alarm = -1;
    EXPECT_EQ(get_current_night_mode(nullptr, &mode, &alarm), -1);
    EXPECT_EQ(get_current_night_mode(&night, nullptr, &alarm), -1);
    EXPECT_EQ(get_current_night_mode(&night, &mode, nullptr), -1);
    EXPECT_EQ(world.lines(), (Lines(3, err("get_current_night_mode param err "))));
    EXPECT_EQ(night, -1);
    EXPECT_EQ(mode, -1);
    EXPECT_EQ(alarm, -1);
}

// ---- Serving ---------------------------------------------------------------------------------------------

TEST_F(AlarmLight, WithoutARequestNothingIsRead)
{
    for (int flag : {0, 2, -1}) {
        ircut.alarm_flag = flag;
        EXPECT_EQ(ircut_alarm_round(&counts), 500u);
    }
    EXPECT_EQ(world.white_reads, 0);
    EXPECT_EQ(world.journal(), Journal{});
}

TEST_F(AlarmLight, SteadyForItsDuration)
{
    for (int mode : {3, 4, 5}) {
        ircut_mode_config(mode);
        ask(0, 2);
        EXPECT_EQ(ticks(), "11110") << mode;
        EXPECT_EQ(world.journal(), (Journal{"led 47 1", "led 47 0"})) << "lit once";
        EXPECT_EQ(counts.alarm, 0u);
        EXPECT_EQ(counts.blink, 0u);
    }
}

TEST_F(AlarmLight, OfNoDurationEndsInItsFirstTick)
{
    ask(0, 0);
    EXPECT_EQ(ticks(), "0");
    EXPECT_EQ(world.journal(), (Journal{"led 47 1", "led 47 0"}));
}

TEST_F(AlarmLight, Flashing)
{
    ask(1, 5);
    EXPECT_EQ(ticks(), "11101101100");
}

TEST_F(AlarmLight, IsServedByAThreadThatEndsWithTheTask)
{
    ircut.task_running = 1;
    ircut.alarm_thread = 7;
    ask(1, 5);
    std::string seen;
    world.clock.on_sleep = [&](unsigned ms) {
        EXPECT_EQ(ms, 500u);
        seen += world.white == 1 ? '1' : '0';
        if (seen.size() == 13)
            ircut.task_running = 0;
    };
    EXPECT_EQ(white_led_status_and_alarm_check(reinterpret_cast<void *>(uintptr_t{7})), nullptr);
    EXPECT_EQ(seen, "1110110110000") << "5 s, and two looks at nothing";
    // Asked for where it is dropped, the thread looks again without having slept.
    ircut.task_running = 1;
    ircut_mode_config(4);
    ircut.full_color_night = 1;
    ask(0, 5);
    seen = "............";
    EXPECT_EQ(white_led_status_and_alarm_check(reinterpret_cast<void *>(uintptr_t{7})), nullptr);
    EXPECT_EQ(seen.size(), 13u) << "it has slept once";
    EXPECT_EQ(ircut.alarm_flag, 0);
}

TEST_F(AlarmLight, OfAnUnknownKindIsDark)
{
    ask(2, 1);
    EXPECT_EQ(ticks(), "000");
    EXPECT_EQ(world.journal(), (Journal{"led 47 0"})) << "put out at its end";
}

TEST_F(AlarmLight, IsPutOutBeforeTheTaskIsLetGo)
{
    ask(0, 0);
    ircut_alarm_round(&counts);
    EXPECT_EQ(world.journal().back(), "led 47 0");
    EXPECT_EQ(ircut.alarm_flag, 0);
}

TEST_F(AlarmLight, WaitsInTheOtherModes)
{
    for (int mode : {0, 1, 2, 6}) {
        ircut_mode_config(mode);
        ask(0, 1);
        EXPECT_EQ(ticks(20), std::string(20, '0')) << mode;
        EXPECT_EQ(ircut.alarm_flag, 1);
        EXPECT_EQ(counts.alarm, 0u);
    }
    EXPECT_EQ(world.journal(), Journal{});
    EXPECT_EQ(world.white_reads, 80);
    ircut_mode_config(3);
    EXPECT_EQ(ticks(), "110") << "served when the mode allows it";
}

TEST_F(AlarmLight, IsDroppedWhereTheNightIsLitWhite)
{
    ircut_mode_config(4);
    ircut.full_color_night = 1;
    ask(0, 5);
    counts = {2, 3};
    EXPECT_EQ(ircut_alarm_round(&counts), 0u) << "without a wait";
    EXPECT_EQ(ircut.alarm_flag, 0);
    EXPECT_EQ(world.lines(), (Lines{info("[" ALARM " N] current full color and night stop alarm\n")}));
    EXPECT_EQ(counts.blink, 2u) << "the counts stay";
    EXPECT_EQ(counts.alarm, 3u);
    EXPECT_EQ(world.journal(), Journal{});
    EXPECT_EQ(ircut_alarm_round(&counts), 500u);
}

TEST_F(AlarmLight, IsDroppedInSmartNightWhileAPersonHasLitTheLed)
{
    ircut_mode_config(5);
    ircut.smart_night = 1;
    world.white = 1;
    world.person_light = 1;
    ask(0, 5);
    EXPECT_EQ(ircut_alarm_round(&counts), 0u);
    EXPECT_EQ(ircut.alarm_flag, 0);
    EXPECT_EQ(world.lines(), (Lines{info("[" ALARM " N] current smart mode and night stop alarm\n")}));
    EXPECT_EQ(world.journal(), Journal{});
    world.person_light = 0;
    world.white = 0;
    ask(0, 1);
    EXPECT_EQ(ticks(), "110") << "in infrared night it is served";
}

TEST_F(AlarmLight, IsServedByDayInModesFourAndFive)
{
    ircut_mode_config(5);
    world.person_light = 1;
    ask(0, 1);
    EXPECT_EQ(ticks(), "110");
    ircut_mode_config(4);
    ircut.smart_night = 1;
    ask(0, 1);
    EXPECT_EQ(ticks(), "110");
}

TEST_F(AlarmLight, ANewRequestGoesOnWithTheTimeOfTheOld)
{
    ask(0, 5);
    EXPECT_EQ(ticks(4), "1111");
    ask(0, 3);
    EXPECT_EQ(ticks(), "110") << "deliberate: the seventh tick since the first";
}

TEST_F(AlarmLight, AClockSetBackOrForwardChangesNothing)
{
    ask(0, 2);
    ircut_alarm_round(&counts);
    world.clock.set_wall_ms(world.clock.wall_ms() - 3600000);
    ircut_alarm_round(&counts);
    world.clock.set_wall_ms(world.clock.wall_ms() + 7200000);
    EXPECT_EQ(ticks(), "110");
}

} // namespace
