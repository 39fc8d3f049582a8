// Days of light, the controller in them, and the maps: laws and bookkeeping.
#include "day.h"

#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include "maps.h"
#include "naro_util.h"
#include "quick_root.h"

namespace
{

const std::string root = quick_root();

day_light named(const std::string &name)
{
    day_light light;
    for (int i = 0; i < DAY_KINDS; i++)
        if (name == day_kinds[i].name)
            day_kinds[i].make(&light, 0);
    return light;
}

// ---- Light -----------------------------------------------------------------------------------------------------------

TEST(Sun, ThePiecesOfItsTableMeet)
{
    for (double altitude : {20., 5., -0.8, -5., -12.})
        EXPECT_NEAR(day_sun_lux(altitude + 1e-9) / day_sun_lux(altitude - 1e-9), 1, 0.02) << altitude;
    for (double altitude = -30; altitude < 90; altitude += 0.5)
        EXPECT_LE(day_sun_lux(altitude), day_sun_lux(altitude + 0.5) * 1.005) << altitude;
}

TEST(Sun, IsAsBrightAsPublished)
{
    EXPECT_NEAR(log10(day_sun_lux(90)), 5.11, 0.01);
    EXPECT_NEAR(day_sun_lux(0), 759, 10);
    EXPECT_NEAR(day_sun_lux(-6), 3.4, 0.2) << "the end of civil dusk";
    EXPECT_EQ(day_sun_lux(-40), 0.0006) << "stars";
}

TEST(Sun, RisesAtSixAndSetsAtEighteen)
{
    EXPECT_NEAR(day_sun_altitude(6), 0, 1e-9);
    EXPECT_NEAR(day_sun_altitude(12), 40, 1e-9);
    EXPECT_NEAR(day_sun_altitude(18), 0, 1e-9);
    EXPECT_NEAR(day_sun_altitude(30), 0, 1e-9) << "the next morning";
    EXPECT_GT(day_sun_altitude(9), 0);
}

TEST(Clouds, TakeThreeQuartersAtMost)
{
    EXPECT_EQ(day_cloud_share(0), 1);
    EXPECT_EQ(day_cloud_share(1), 0.25);
    EXPECT_NEAR(day_cloud_share(0.5), 1 - 0.75 * pow(0.5, 3.4), 1e-12);
}

TEST(Unrest, IsAsLargeAsItIsSaidToBe)
{
    EXPECT_EQ(day_unrest(0, 12345), 1);
    double sum = 0, squares = 0;
    const int count = 20000;
    for (int i = 0; i < count; i++) {
        const double value = log(day_unrest(0.15, 2. * i)); // on the knots, where nothing is averaged
        sum += value;
        squares += value * value;
    }
    EXPECT_NEAR(sum / count, 0, 0.005);
    EXPECT_NEAR(sqrt(squares / count), 0.15, 0.005);
    EXPECT_NEAR(day_unrest(0.15, 11), sqrt(day_unrest(0.15, 10) * day_unrest(0.15, 12)), 1e-12);
}

TEST(Days, EachIsWholeAndBeginsAndEndsByDay)
{
    for (int i = 0; i < DAY_KINDS; i++) {
        day_light light;
        day_kinds[i].make(&light, 0);
        ASSERT_FALSE(light.moments.empty());
        EXPECT_EQ(light.moments.front().seconds, 0) << day_kinds[i].name;
        EXPECT_GE(light.moments.back().seconds, DAY_S);
        EXPECT_GT(light.moments.front().lux, 7);
        EXPECT_GT(light_schedule_at(light.moments, DAY_S).lux, 7);
        for (size_t j = 1; j < light.moments.size(); j++) {
            ASSERT_GT(light.moments[j].seconds, light.moments[j - 1].seconds);
            ASSERT_GE(light.moments[j].lux, 0);
            ASSERT_GE(light.moments[j].infrared, 0);
        }
    }
}

TEST(Days, ASeedGivesAnotherOfItsKind)
{
    const auto of = [](const char *name, unsigned seed) {
        day_light light;
        for (int i = 0; i < DAY_KINDS; i++)
            if (strcmp(name, day_kinds[i].name) == 0)
                day_kinds[i].make(&light, seed);
        return light.moments.size() > 5000 ? light_schedule_at(light.moments, 40000).lux
                                           : light.moments[1000].lux;
    };
    EXPECT_EQ(of("clouds", 3), of("clouds", 3));
    EXPECT_NE(of("clouds", 3), of("clouds", 4));
    EXPECT_NE(of("clouds", 3), of("thunder", 3));
    EXPECT_EQ(of("clear", 3), of("clear", 4)) << "no chance in it";
}

TEST(Days, HaveWhatTheyAreNamedAfter)
{
    const double noon = 5.5 * 3600, evening = 13.5 * 3600; // 12:00 and 20:00
    const double clear_noon = light_schedule_at(named("clear").moments, noon).lux;
    EXPECT_NEAR(clear_noon, day_sun_lux(40) * 0.015, 1);
    EXPECT_LT(light_schedule_at(named("clear").moments, evening).lux, 0.001);
    EXPECT_LT(light_schedule_at(named("clouds").moments, noon).lux, clear_noon);
    const light_moment lamp = light_schedule_at(named("lamp").moments, evening);
    EXPECT_NEAR(lamp.lux, 100, 0.01);
    EXPECT_LT(lamp.infrared, 0.01) << "LEDs give none";
    EXPECT_NEAR(light_schedule_at(named("glow").moments, evening).infrared, 350, 0.1);
    const auto beams = [](const day_light &light) {
        size_t count = 0;
        bool lit = false;
        for (const light_moment &moment : light.moments) {
            const bool now = moment.seconds > 12 * 3600 && moment.seconds < 23 * 3600 && moment.lux > 4;
            count += now && !lit;
            lit = now;
        }
        return count;
    };
    EXPECT_EQ(beams(named("clear")), 0u);
    EXPECT_GT(beams(named("headlights")), 30u);
    EXPECT_GT(beams(named("traffic")), 1500u);
    EXPECT_GT(beams(named("switching")), 100u);
    EXPECT_GT(named("visitors").seen.size(), 100u);
}

// ---- The controller --------------------------------------------------------------------------------------------------

struct Day : testing::Test {
    bool run(int mode, double seconds)
    {
        settings.light = &light;
        settings.mode = mode;
        settings.seconds = seconds;
        return day_run(&settings, &result);
    }
    day_light light;
    day_settings settings = {};
    day_result result;
};

TEST_F(Day, ASampleEveryHalfSecond)
{
    light.moments = {{0, 100, 80}};
    ASSERT_TRUE(run(3, 600));
    EXPECT_NEAR(static_cast<double>(result.samples), 1200, 5);
    EXPECT_EQ(result.switches.size(), 0u);
    EXPECT_EQ(result.breaches, 0u);
}

TEST_F(Day, DarknessIsFollowedWithinSevenSeconds)
{
    light.moments = {{0, 100, 80}, {100, 100, 80}, {100.1, 0.01, 0.008}};
    ASSERT_TRUE(run(3, 200));
    ASSERT_EQ(result.switches.size(), 1u);
    EXPECT_TRUE(result.switches[0].to_night);
    EXPECT_GT(result.switches[0].seconds, 105);
    EXPECT_LT(result.switches[0].seconds, 110);
    EXPECT_EQ(result.switches[0].reasons & 2u, 2u) << "the exposure is at its end";
    EXPECT_EQ(result.wrong_day_s, 0) << "that is quick enough";
    EXPECT_EQ(result.moves, 1u);
    EXPECT_NEAR(result.night_s, 200 - result.switches[0].seconds, 0.2);
}

TEST_F(Day, NightInTheLightIsWrongOnceItLasts)
{
    light.moments = {{0, 100, 80}};
    settings.room.reflectance = 0.002; // as black as a tunnel
    ASSERT_TRUE(run(3, 100));
    ASSERT_EQ(result.switches.size(), 1u);
    EXPECT_NEAR(result.wrong_night_s, 100 - 15, 0.2) << "the light has been there from the start";
    EXPECT_EQ(result.wrong_day_s, 0);
}

TEST_F(Day, DayInTheDarkIsWrongOnceItLasts)
{
    light.moments = {{0, 0.3, 0.24}};
    settings.room.reflectance = 5; // as if the camera saw a lamp
    ASSERT_TRUE(run(3, 100));
    EXPECT_EQ(result.switches.size(), 0u);
    EXPECT_NEAR(result.wrong_day_s, 100 - 15, 0.2);
    EXPECT_EQ(result.wrong_night_s, 0);
}

TEST_F(Day, BetweenBrightAndDarkEitherIsRight)
{
    light.moments = {{0, 19.9, 16}, {50, 19.9, 16}, {50.1, 0.31, 0.25}};
    settings.room.reflectance = 5;
    ASSERT_TRUE(run(3, 100));
    EXPECT_EQ(result.wrong_day_s + result.wrong_night_s, 0);
}

TEST_F(Day, TheWhiteLedIsTheNightOfModeFour)
{
    light.moments = {{0, 100, 80}, {20, 100, 80}, {20.1, 0.01, 0.008}};
    ASSERT_TRUE(run(4, 100));
    ASSERT_EQ(result.switches.size(), 1u);
    EXPECT_EQ(result.switches[0].reasons, 0u);
    EXPECT_EQ(result.white_lit, 1u);
    EXPECT_NEAR(result.white_s, result.night_s, 0.2);
    EXPECT_EQ(result.moves, 0u);
}

TEST_F(Day, APersonLightsTheNightOfModeFiveForHalfAMinute)
{
    light.moments = {{0, 0.01, 0.008}};
    light.seen = {5, 60}; // the first by day yet
    ASSERT_TRUE(run(5, 150));
    ASSERT_EQ(result.switches.size(), 1u) << "colour by white light is night all the same";
    EXPECT_EQ(result.white_lit, 1u);
    EXPECT_NEAR(result.white_s, 30, 0.3);
    EXPECT_EQ(result.moves, 3u) << "to night, to colour, and back";
}

TEST_F(Day, AHighLampTurnsNightIntoDay)
{
    light.moments = {{0, 0.01, 0.008}};
    settings.room.white_led_lux = 100;
    ASSERT_TRUE(run(4, 300));
    EXPECT_GT(result.switches.size(), 20u);
    EXPECT_NEAR(day_period_s(&result), 17, 2) << "11 dark and 21 bright samples, and the exposure's lag";
}

TEST_F(Day, TheOtherSensorsFileIsThere)
{
    light.moments = {{0, 100, 80}};
    settings.other_sensor = true;
    ASSERT_TRUE(run(3, 5));
    EXPECT_EQ(naro_access("/tmp/SSC3338", 0), 0);
    settings.other_sensor = false;
    ASSERT_TRUE(run(3, 5));
    EXPECT_NE(naro_access("/tmp/SSC3338", 0), 0);
}

TEST_F(Day, IsTheSameEveryTime)
{
    light = named("clouds");
    light.moments.erase(light.moments.begin(), light.moments.begin() + 2000);
    for (light_moment &moment : light.moments)
        moment.seconds -= 40000;
    ASSERT_TRUE(run(5, 1200));
    const day_result first = result;
    ASSERT_TRUE(run(5, 1200));
    ASSERT_EQ(result.switches.size(), first.switches.size());
    for (size_t i = 0; i < first.switches.size(); i++)
        EXPECT_EQ(result.switches[i].seconds, first.switches[i].seconds);
    EXPECT_EQ(result.pulses, first.pulses);
    EXPECT_EQ(result.samples, first.samples);
}

TEST(Period, IsTheMedianFromNightToNight)
{
    day_result result = {};
    for (double at : {10., 20., 31., 45.}) {
        result.switches.push_back({at, true, 0, {}, 0});
        result.switches.push_back({at + 5, false, 0, {}, 0});
    }
    EXPECT_EQ(day_period_s(&result), 11);
    result.switches.resize(4);
    EXPECT_EQ(day_period_s(&result), 0) << "two are no period";
}

// ---- Maps ------------------------------------------------------------------------------------------------------------

char letter(const map_plane &plane, double x, double y)
{
    const double along_x = log(x / plane.from_x) / log(plane.to_x / plane.from_x);
    const double along_y = plane.log_y ? log(y / plane.from_y) / log(plane.to_y / plane.from_y)
                                       : (y - plane.from_y) / (plane.to_y - plane.from_y);
    return plane.rows.at(static_cast<size_t>(along_y * MAP_ROWS))
        .at(static_cast<size_t>(along_x * MAP_COLUMNS));
}

TEST(Map, OfTheStatistics)
{
    for (int mode : {0, 3, 5}) {
        const map_plane plane = map_statistics(mode, {});
        ASSERT_EQ(plane.rows.size(), static_cast<size_t>(MAP_ROWS));
        EXPECT_EQ(letter(plane, 1, -3000), 'd');
        EXPECT_EQ(letter(plane, 10, -3000), '.');
        EXPECT_EQ(letter(plane, 13.4, -9000), '1');
        EXPECT_EQ(letter(plane, 200, -9000), '2');
        EXPECT_EQ(letter(plane, 43, 550), '.') << "the infrared lamp's own light";
    }
    const map_plane white = map_statistics(4, {});
    EXPECT_EQ(letter(white, 3, -9000), 'd');
    EXPECT_EQ(letter(white, 60, -9000), 'b');
    EXPECT_EQ(letter(white, 60, -6900), '.');
}

TEST(Map, OfTheRoom)
{
    const map_plane infrared = map_room(3, {}, {});
    EXPECT_EQ(letter(infrared, 0.1, 0.4), 'd');
    EXPECT_EQ(letter(infrared, 1.1, 0.4), '.');
    EXPECT_EQ(letter(infrared, 10, 0.4), 'b');
    const map_plane white = map_room(4, {}, {});
    EXPECT_EQ(letter(white, 0.1, 0.4), 'd');
    EXPECT_EQ(letter(white, 0.1, 0.8), 'x') << "the white LED alone is bright enough for a day";
    EXPECT_EQ(letter(white, 100, 0.8), 'b');
    EXPECT_NE(map_room(5, {}, {}).rows, white.rows);
    EXPECT_EQ(map_room(5, {}, {}).rows, infrared.rows);
}

} // namespace
