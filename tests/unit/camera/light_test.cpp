// Light: schedules, what a room sends back, and what reaches the ISP and the rendered room.
#include "light.h"

#include <ev.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <math.h>

#include "command_server.h"
#include "fake_clock.h"
#include "isolate.h"
#include "log_capture.h"
#include "rendered.h"

// ---- Fakes ---------------------------------------------------------------------------------------------------
namespace
{

using testing::HasSubstr;

struct {
    isp_state isp;
    unsigned reports;
    bool metered;
    isp_light mean;
    unsigned controlled;
    world_controls controls;
} fake;

} // namespace

const isp_state *command_server_isp(void)
{
    return &fake.isp;
}
void command_server_set_light(const naro_isp_ev_attr *exposure, const naro_isp_wb_attr *white_balance)
{
    fake.isp.exposure = *exposure;
    fake.isp.white_balance = *white_balance;
    fake.reports++;
}
void rendered_control(const world_controls *controls)
{
    fake.controls = *controls;
    fake.controlled++;
}
bool rendered_light(isp_light *light)
{
    *light = fake.mean;
    return fake.metered;
}

// ---- Tests ---------------------------------------------------------------------------------------------------
namespace
{

const std::string root = scratch_root();

std::vector<light_moment> parsed(const std::string &text)
{
    std::vector<light_moment> schedule;
    std::string error;
    EXPECT_EQ(light_schedule_parse(text, &schedule, &error), 0) << error;
    return schedule;
}

TEST(Schedule, LinesRemarksAndBlanks)
{
    const std::vector<light_moment> schedule = parsed("# dusk\n\n 0 400\r\n60\t0.5 20 # lamp\n");
    ASSERT_EQ(schedule.size(), 2u);
    EXPECT_EQ(schedule[0].seconds, 0);
    EXPECT_EQ(schedule[0].lux, 400);
    EXPECT_EQ(schedule[0].infrared, 320) << "as by daylight";
    EXPECT_EQ(schedule[1].seconds, 60);
    EXPECT_EQ(schedule[1].lux, 0.5);
    EXPECT_EQ(schedule[1].infrared, 20);
}

TEST(Schedule, WhatIsWrongIsSaidWithItsLine)
{
    const struct {
        const char *text, *error;
    } cases[] = {
        {"0 1\n5", "line 2: seconds and lux are wanted"},
        {"x 1", "line 1: seconds and lux"},
        {"0 -1", "line 1: seconds and lux"},
        {"0 1e10", "line 1: seconds and lux"},
        {"0 nan", "line 1: seconds and lux"},
        {"0 1 2 3", "line 1: after seconds and lux only infrared"},
        {"0 1 x", "line 1: after seconds and lux only infrared"},
        {"5 1\n4 1", "line 2: times go back"},
        {"", "there is no light in it"},
        {"# nothing\n", "there is no light in it"},
    };
    for (const auto &one : cases) {
        std::vector<light_moment> schedule;
        std::string error;
        EXPECT_EQ(light_schedule_parse(one.text, &schedule, &error), -1) << one.text;
        EXPECT_THAT(error, HasSubstr(one.error)) << one.text;
    }
}

TEST(Schedule, LightChangesByEqualFactors)
{
    const std::vector<light_moment> schedule = parsed("10 100 40\n30 1 10\n");
    EXPECT_EQ(light_schedule_at(schedule, 0).lux, 100);
    EXPECT_NEAR(light_schedule_at(schedule, 10).lux, 100, 1e-9);
    EXPECT_NEAR(light_schedule_at(schedule, 20).lux, 10, 1e-9);
    EXPECT_NEAR(light_schedule_at(schedule, 20).infrared, 20, 1e-9);
    EXPECT_EQ(light_schedule_at(schedule, 30).lux, 1);
    EXPECT_EQ(light_schedule_at(schedule, 1e6).lux, 1);
}

TEST(Schedule, GrowingTimesAreFoundFromWhereTheLastOneWas)
{
    const std::vector<light_moment> schedule = parsed("0 1\n10 2\n10 50\n20 50\n40 5\n");
    size_t from = 0;
    for (double seconds = 0; seconds < 60; seconds += 0.5) {
        const light_moment found = light_schedule_at(schedule, seconds, &from);
        const light_moment expected = light_schedule_at(schedule, seconds);
        EXPECT_EQ(found.lux, expected.lux) << seconds;
        EXPECT_EQ(found.infrared, expected.infrared) << seconds;
    }
    EXPECT_EQ(from, schedule.size());
}

TEST(Schedule, ALampIsSwitchedAtOnceAndDarknessIsReached)
{
    const std::vector<light_moment> schedule = parsed("0 0\n10 0\n10 50\n20 50\n40 0\n");
    EXPECT_EQ(light_schedule_at(schedule, 9.99).lux, 0);
    EXPECT_EQ(light_schedule_at(schedule, 10).lux, 50);
    EXPECT_GT(light_schedule_at(schedule, 30).lux, 0);
    EXPECT_EQ(light_schedule_at(schedule, 40).lux, 0);
}

TEST(Room, SendsBackItsShareAndTheLamps)
{
    board_state board;
    board_init(&board);
    const isp_light plain = light_of_room({0, 100, 80}, board);
    EXPECT_NEAR(plain.visible, 100 * 0.4 / M_PI, 1e-9);
    EXPECT_NEAR(plain.infrared, 80 * 0.4 / M_PI, 1e-9);
    board.high[BOARD_WHITE_LED] = true;
    const isp_light white = light_of_room({0, 100, 80}, board);
    EXPECT_GT(white.visible, plain.visible);
    EXPECT_EQ(white.infrared, plain.infrared) << "white LEDs give no infrared";
    board.high[BOARD_IR_LED] = true;
    const isp_light led = light_of_room({0, 100, 80}, board);
    EXPECT_EQ(led.visible, white.visible) << "infrared LEDs give no light";
    EXPECT_GT(led.infrared, white.infrared);
    board.pwm_percent = 50;
    const double half = light_of_room({0, 100, 80}, board).infrared - led.infrared;
    board.pwm_percent = 100;
    EXPECT_NEAR(light_of_room({0, 100, 80}, board).infrared - led.infrared, 2 * half, 1e-9);
}

TEST(Room, IsAsItIsSaidToBe)
{
    board_state board;
    board_init(&board);
    room_constants white;
    white.reflectance = 0.8;
    EXPECT_NEAR(light_of_room({0, 100, 80}, board, white).visible, 80 / M_PI, 1e-9);
    white.white_led_lux = 50;
    white.ir_led = 7;
    white.ir_lamp = 20;
    board.high[BOARD_WHITE_LED] = board.high[BOARD_IR_LED] = true;
    board.pwm_percent = 50;
    EXPECT_NEAR(light_of_room({0, 100, 80}, board, white).visible, 0.8 * 150 / M_PI, 1e-9);
    EXPECT_NEAR(light_of_room({0, 100, 80}, board, white).infrared, 0.8 * 97 / M_PI, 1e-9);
}

struct Light : testing::Test {
    Light()
    {
        fake = {};
        board_init(&board);
        loop = ev_loop_new(EVFLAG_AUTO);
    }
    ~Light() override
    {
        light_stop();
        ev_loop_destroy(loop);
    }
    void start(const std::string &schedule = "")
    {
        if (!schedule.empty()) {
            std::ofstream(root + "/lux.txt") << schedule;
            path = root + "/lux.txt";
            settings.schedule = path.c_str();
        }
        ASSERT_EQ(light_start(loop, &settings), 0);
    }
    // The timer is real, its clock is not.
    void tick(unsigned ms = 0)
    {
        clock.advance_ms(ms);
        ev_run(loop, EVRUN_ONCE);
    }
    uint32_t ev() const { return fake.isp.exposure.word[0]; }
    FakeClock clock;
    board_state &board = *const_cast<board_state *>(board_get()); // the real one, never started
    std::string path;
    light_settings settings = {};
    struct ev_loop *loop;
};

TEST_F(Light, OfAVideoNothingIsKnown)
{
    start();
    tick();
    EXPECT_EQ(fake.reports, 0u);
    EXPECT_EQ(fake.controlled, 0u);
}

TEST_F(Light, ASchedulePassesAndTheIspFollows)
{
    start("0 400\n10 400\n20 0.1\n");
    tick();
    const uint32_t day = ev();
    EXPECT_GT(day, 500u);
    tick(20000);
    EXPECT_LT(ev(), 3u);
    EXPECT_EQ(fake.reports, 2u);
}

TEST_F(Light, TheFilterAndTheLampsMatter)
{
    start("0 0.05 0\n");
    tick();
    const uint32_t dark = ev();
    board.high[BOARD_IR_LED] = true;
    tick(60000);
    EXPECT_LE(ev(), dark + 2) << "the filter keeps it out";
    board.filter_day = false;
    tick(60000);
    EXPECT_GT(ev(), 30u);
    EXPECT_GT(fake.isp.white_balance.word[0], 0);
}

TEST_F(Light, ARenderedRoomIsMeteredOnceItIsDrawn)
{
    settings.rendered = true;
    start();
    tick();
    EXPECT_EQ(fake.reports, 0u);
    fake.metered = true;
    fake.mean = {10, 1};
    tick(100);
    EXPECT_EQ(ev(), 240u);
    EXPECT_EQ(fake.controlled, 0u) << "the scene's own lights hold";
}

TEST_F(Light, TheDaemonsLightsGoToTheRoom)
{
    settings.rendered = settings.daemon = true;
    start();
    tick();
    EXPECT_TRUE(fake.controls.lights_set);
    EXPECT_TRUE(fake.controls.filter);
    EXPECT_FALSE(fake.controls.grey);
    EXPECT_EQ(fake.controls.infrared + fake.controls.white, 0);
    board.filter_day = false;
    board.high[BOARD_IR_LED] = board.high[BOARD_WHITE_LED] = true;
    fake.isp.mode = ISP_MODE_NIGHT;
    tick(100);
    EXPECT_FALSE(fake.controls.filter);
    EXPECT_TRUE(fake.controls.grey);
    EXPECT_EQ(fake.controls.infrared, 1);
    EXPECT_EQ(fake.controls.white, 1);
    board.high[BOARD_IR_LED] = false;
    board.pwm_percent = 50;
    tick(100);
    EXPECT_GT(fake.controls.infrared, 0.2f);
    EXPECT_LT(fake.controls.infrared, 0.6f);
}

TEST_F(Light, ASceneWithoutTheDaemonOnlyKeepsItsLights)
{
    settings.daemon = true; // of no rendered room
    start();
    tick();
    EXPECT_EQ(fake.controlled, 0u);
}

TEST_F(Light, AScheduleThatCannotBeReadIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    settings.schedule = "/none";
    EXPECT_EQ(light_start(loop, &settings), -1);
    std::ofstream(root + "/bad.txt") << "0 1\nx\n";
    path = root + "/bad.txt";
    settings.schedule = path.c_str();
    EXPECT_EQ(light_start(loop, &settings), -1);
    EXPECT_THAT(errors.text(), HasSubstr("/none: No such file or directory"));
    EXPECT_THAT(errors.text(), HasSubstr("/bad.txt: line 2: seconds and lux are wanted"));
}

} // namespace
