// Parameters, profile, end stops, steps, play and latency of a move.
#include "motor_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <math.h>

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;

// Round numbers: 0.1 degrees a step, up to speed within half a second and 12.5 degrees, no play.
motor_parameters simple(void)
{
    motor_parameters p = motor_parameters_usual();
    p.speed[MOTOR_PAN] = 50;
    p.acceleration[MOTOR_PAN] = 100;
    p.speed[MOTOR_TILT] = 20;
    p.acceleration[MOTOR_TILT] = 100;
    p.backlash[MOTOR_PAN] = p.backlash[MOTOR_TILT] = 0;
    p.step = 0.1;
    p.latency_ms = 30;
    p.settle_ms = 20;
    return p;
}

motor_state at_rest(int32_t pan_steps, int32_t tilt_steps, double step = 0.1)
{
    return {{{pan_steps, pan_steps * step}, {tilt_steps, tilt_steps * step}}};
}

double pan_at(const motor_parameters &p, const motor_move &move, double ms)
{
    return motor_at(&p, &move, ms).axis[MOTOR_PAN].head;
}

TEST(MotorParameters, AreThoseOfASmallCamera)
{
    const motor_parameters p = motor_parameters_usual();
    EXPECT_EQ(p.speed[MOTOR_PAN], 60);
    EXPECT_EQ(p.speed[MOTOR_TILT], 40);
    EXPECT_EQ(p.acceleration[MOTOR_PAN], 240);
    EXPECT_EQ(p.acceleration[MOTOR_TILT], 160);
    EXPECT_EQ(p.low[MOTOR_PAN], -175);
    EXPECT_EQ(p.high[MOTOR_PAN], 175);
    EXPECT_EQ(p.low[MOTOR_TILT], -90);
    EXPECT_EQ(p.high[MOTOR_TILT], 30);
    EXPECT_EQ(p.backlash[MOTOR_PAN], 0.8);
    EXPECT_EQ(p.backlash[MOTOR_TILT], 0.8);
    EXPECT_EQ(p.step, 360. / 4096);
    EXPECT_EQ(p.latency_ms, 50);
    EXPECT_EQ(p.settle_ms, 40);
}

TEST(MotorParameters, EachIsSetByItsKeyAndNoOther)
{
    EXPECT_THAT(motor_keys(), ElementsAre("pan_speed", "tilt_speed", "pan_acceleration", "tilt_acceleration",
                                          "pan_low", "pan_high", "tilt_low", "tilt_high", "pan_backlash",
                                          "tilt_backlash", "step", "latency_ms", "settle_ms"));
    const motor_parameters usual = motor_parameters_usual();
    for (const std::string &key : motor_keys()) {
        motor_parameters p = usual;
        std::string error;
        const double value = motor_parameter_get(&usual, key.c_str()) * 0.5;
        ASSERT_EQ(motor_parameter_set(&p, (key + "=" + std::to_string(value)).c_str(), &error), 0)
            << key << error;
        for (const std::string &other : motor_keys())
            EXPECT_NEAR(motor_parameter_get(&p, other.c_str()),
                        other == key ? value : motor_parameter_get(&usual, other.c_str()), 1e-6)
                << key << " " << other;
    }
    EXPECT_TRUE(isnan(motor_parameter_get(&usual, "speed")));
}

TEST(MotorParameters, HaveBounds)
{
    const struct {
        const char *key;
        double least, most;
    } bounds[] = {
        {"pan_speed", 1, 1000},
        {"tilt_speed", 1, 1000},
        {"pan_acceleration", 1, 100000},
        {"tilt_acceleration", 1, 100000},
        {"pan_low", -360, 175},
        {"pan_high", -175, 360},
        {"tilt_low", -90, 30},
        {"tilt_high", -90, 90},
        {"pan_backlash", 0, 10},
        {"tilt_backlash", 0, 10},
        {"step", 0.001, 10},
        {"latency_ms", 0, 10000},
        {"settle_ms", 0, 10000},
    };
    ASSERT_EQ(sizeof bounds / sizeof *bounds, motor_keys().size());
    for (const auto &row : bounds) {
        const auto set = [&row](double value) {
            motor_parameters p = motor_parameters_usual();
            std::string error;
            char text[64];
            snprintf(text, sizeof text, "%s=%.9g", row.key, value);
            return motor_parameter_set(&p, text, &error);
        };
        EXPECT_EQ(set(row.least), 0) << row.key;
        EXPECT_EQ(set(row.most), 0) << row.key;
        EXPECT_EQ(set(row.least - 1e-4), -1) << row.key;
        EXPECT_EQ(set(row.most + 1e-3), -1) << row.key;
    }
}

struct Bad {
    const char *text, *why;
};
TEST(MotorParameters, WhatIsWrongIsSaidAndChangesNothing)
{
    const Bad all[] = {
        {"pan_speed", "KEY=VALUE is wanted, with one of pan_speed tilt_speed"},
        {"speed=3", "there is no such number; there are pan_speed tilt_speed"},
        {"pan_spee=3", "there is no such number"},
        {"pan_speed=", "pan_speed is a number from 1 to 1000"},
        {"pan_speed=3x", "pan_speed is a number from 1 to 1000"},
        {"pan_speed=0.99", "pan_speed is a number from 1 to 1000"},
        {"pan_speed=1001", "pan_speed is a number from 1 to 1000"},
        {"pan_speed=nan", "pan_speed is a number from 1 to 1000"},
        {"pan_speed=1e999", "pan_speed is a number from 1 to 1000"},
        {"tilt_acceleration=0.5", "tilt_acceleration is a number from 1 to 100000"},
        {"pan_backlash=", "pan_backlash is a number from 0 to 10"},
        {"pan_backlash=10.1", "pan_backlash is a number from 0 to 10"},
        {"step=0.0009", "step is a number from 0.001 to 10"},
        {"latency_ms=-1", "latency_ms is a number from 0 to 10000"},
        {"settle_ms=10001", "settle_ms is a number from 0 to 10000"},
        {"pan_low=176", "pan_low would put the lower end above the upper one"},
        {"tilt_high=-90.5", "tilt_high is a number from -90 to 90"},
        {"pan_high=-175.5", "pan_high would put the lower end above the upper one"},
    };
    for (const Bad &bad : all) {
        motor_parameters p = motor_parameters_usual();
        std::string error;
        EXPECT_EQ(motor_parameter_set(&p, bad.text, &error), -1) << bad.text;
        EXPECT_THAT(error, HasSubstr(bad.why)) << bad.text;
        for (const std::string &key : motor_keys()) {
            const motor_parameters usual = motor_parameters_usual();
            EXPECT_EQ(motor_parameter_get(&p, key.c_str()), motor_parameter_get(&usual, key.c_str()));
        }
    }
    motor_parameters p = motor_parameters_usual();
    std::string error;
    for (const char *bound :
         {"pan_speed=1", "pan_speed=1000", "step=0.001", "step=10", "pan_backlash=0", "pan_low=175"})
        EXPECT_EQ(motor_parameter_set(&p, bound, &error), 0) << bound << error;
}

TEST(MotorMove, GoesUpToSpeedAlongAndDownAgain)
{
    const motor_parameters p = simple();
    const motor_state from = at_rest(0, 0);
    // 12.5 degrees up to speed, 25 along, 12.5 down: 0.5 s each.
    const motor_move move = motor_plan(&p, &from, 50, 0);
    EXPECT_EQ(move.to[MOTOR_PAN], 500);
    EXPECT_EQ(move.to[MOTOR_TILT], 0);
    EXPECT_NEAR(move.turn_ms[MOTOR_PAN], 1500, 1e-6);
    EXPECT_EQ(move.turn_ms[MOTOR_TILT], 0);
    EXPECT_NEAR(move.duration_ms, 30 + 1500 + 20, 1e-6);
    const double latency = 30;
    EXPECT_EQ(pan_at(p, move, 0), 0);
    EXPECT_EQ(pan_at(p, move, latency), 0);
    EXPECT_NEAR(pan_at(p, move, latency + 100), 0.5, 0.051) << "100 / 2 * 0.1^2";
    EXPECT_NEAR(pan_at(p, move, latency + 500), 12.5, 0.051);
    EXPECT_NEAR(pan_at(p, move, latency + 700), 22.5, 0.051) << "50 degrees a second";
    EXPECT_NEAR(pan_at(p, move, latency + 1000), 37.5, 0.051);
    EXPECT_NEAR(pan_at(p, move, latency + 1400), 49.5, 0.051);
    EXPECT_NEAR(pan_at(p, move, latency + 1499), 49.9, 1e-9) << "the last step is still to come";
    EXPECT_NEAR(pan_at(p, move, latency + 1500), 50, 1e-9);
    EXPECT_NEAR(pan_at(p, move, 1e9), 50, 1e-9);
    EXPECT_EQ(pan_at(p, move, -5), 0);
}

TEST(MotorMove, OfAShortWayNeverComesToSpeed)
{
    const motor_parameters p = simple();
    const motor_state from = at_rest(0, 0);
    // Full speed needs 25 degrees; 9 are 2 * sqrt(9 / 100) s.
    const motor_move move = motor_plan(&p, &from, -9, 0);
    EXPECT_EQ(move.to[MOTOR_PAN], -90);
    EXPECT_NEAR(move.turn_ms[MOTOR_PAN], 600, 1e-6);
    EXPECT_NEAR(pan_at(p, move, 30 + 300), -4.5, 0.051);
    EXPECT_NEAR(pan_at(p, move, 30 + 100), -0.5, 0.051);
    EXPECT_NEAR(pan_at(p, move, 30 + 500), -8.5, 0.051);
    // At 25 degrees both formulas meet.
    EXPECT_NEAR(motor_plan(&p, &from, 25, 0).turn_ms[MOTOR_PAN], 1000, 1e-6);
    EXPECT_NEAR(motor_plan(&p, &from, 26, 0).turn_ms[MOTOR_PAN], 1020, 1e-6);
}

TEST(MotorMove, BothAxesTurnAtOnceAndTheSlowerSaysWhenItEnds)
{
    const motor_parameters p = simple();
    const motor_state from = at_rest(0, 0);
    const motor_move move = motor_plan(&p, &from, 9, 20);
    EXPECT_NEAR(move.turn_ms[MOTOR_TILT], 1200, 1e-6) << "20 / 20 + 20 / 100";
    EXPECT_NEAR(move.duration_ms, 30 + 1200 + 20, 1e-6);
    const motor_state middle = motor_at(&p, &move, 30 + 600);
    EXPECT_NEAR(middle.axis[MOTOR_PAN].head, 9, 1e-9);
    EXPECT_NEAR(middle.axis[MOTOR_TILT].head, 10, 0.051);
    EXPECT_FALSE(motor_turns(&p, &move, 30));
    EXPECT_TRUE(motor_turns(&p, &move, 31));
    EXPECT_TRUE(motor_turns(&p, &move, 30 + 1199));
    EXPECT_FALSE(motor_turns(&p, &move, 30 + 1200)) << "it settles";
    const motor_move pan = motor_plan(&p, &from, 9, 0);
    EXPECT_TRUE(motor_turns(&p, &pan, 30 + 599));
    EXPECT_FALSE(motor_turns(&p, &pan, 30 + 600));
}

TEST(MotorMove, TheShaftStandsOnWholeSteps)
{
    motor_parameters p = simple();
    p.step = 0.7;
    motor_state from = at_rest(0, 0);
    EXPECT_EQ(motor_plan(&p, &from, 10, 0).to[MOTOR_PAN], 14) << "9.8 is nearer than 10.5";
    EXPECT_EQ(motor_plan(&p, &from, -10, 0).to[MOTOR_PAN], -14);
    EXPECT_EQ(motor_plan(&p, &from, 0, 1).to[MOTOR_TILT], 1);
    const motor_move move = motor_plan(&p, &from, 10, 0);
    for (double ms = 0; ms < move.duration_ms; ms += 7) {
        const motor_place place = motor_at(&p, &move, ms).axis[MOTOR_PAN];
        EXPECT_NEAR(place.head, place.steps * 0.7, 1e-9);
        EXPECT_LE(place.steps, 14);
    }
    EXPECT_EQ(motor_at(&p, &move, move.duration_ms).axis[MOTOR_PAN].steps, 14);
    // Requests add up to where the shaft is, not to what was asked.
    from = motor_at(&p, &move, move.duration_ms);
    EXPECT_EQ(motor_plan(&p, &from, 10, 0).to[MOTOR_PAN], 28) << "9.8 + 10 is nearest to 19.6";
}

TEST(MotorMove, EndsAtTheEndStop)
{
    const motor_parameters p = simple();
    const motor_state near_it = at_rest(1700, -890);
    const motor_move move = motor_plan(&p, &near_it, 44, -23);
    EXPECT_EQ(move.to[MOTOR_PAN], 1750);
    EXPECT_EQ(move.to[MOTOR_TILT], -900);
    const motor_state there = at_rest(1750, 300);
    const motor_move none = motor_plan(&p, &there, 1, 1);
    EXPECT_EQ(none.to[MOTOR_PAN], 1750);
    EXPECT_EQ(none.to[MOTOR_TILT], 300);
    EXPECT_EQ(none.duration_ms, 30) << "nothing turns, nothing settles";
    EXPECT_FALSE(motor_turns(&p, &none, 31));
    EXPECT_EQ(motor_plan(&p, &there, -1, -1).to[MOTOR_PAN], 1740);
    EXPECT_EQ(motor_plan(&p, &there, -360, -360).to[MOTOR_PAN], -1750);
    EXPECT_EQ(motor_plan(&p, &there, -360, -360).to[MOTOR_TILT], -900);
}

TEST(MotorMove, TheLastWholeStepLiesBeforeTheEndStop)
{
    motor_parameters p = simple();
    p.step = 0.7;
    p.high[MOTOR_PAN] = 10;
    p.low[MOTOR_PAN] = -10;
    const motor_state from = at_rest(0, 0);
    EXPECT_EQ(motor_plan(&p, &from, 100, 0).to[MOTOR_PAN], 14) << "9.8";
    EXPECT_EQ(motor_plan(&p, &from, -100, 0).to[MOTOR_PAN], -14);
}

TEST(MotorMove, FromBeyondAnEndItOnlyComesBack)
{
    motor_parameters p = simple();
    p.high[MOTOR_PAN] = 90;
    const motor_state beyond = at_rest(1200, 0);
    EXPECT_EQ(motor_plan(&p, &beyond, 5, 0).to[MOTOR_PAN], 1200)
        << "a request to the right turns nothing left";
    EXPECT_EQ(motor_plan(&p, &beyond, 1, 0).to[MOTOR_PAN], 1200);
    EXPECT_EQ(motor_plan(&p, &beyond, -5, 0).to[MOTOR_PAN], 900);
    EXPECT_EQ(motor_plan(&p, &beyond, -40, 0).to[MOTOR_PAN], 800);
    EXPECT_EQ(motor_plan(&p, &beyond, 0, 5).to[MOTOR_PAN], 1200) << "another axis was asked";
    p.low[MOTOR_PAN] = -90;
    const motor_state below = at_rest(-1200, 0);
    EXPECT_EQ(motor_plan(&p, &below, -5, 0).to[MOTOR_PAN], -1200);
    EXPECT_EQ(motor_plan(&p, &below, -1, 0).to[MOTOR_PAN], -1200);
    EXPECT_EQ(motor_plan(&p, &below, 5, 0).to[MOTOR_PAN], -900);
}

TEST(MotorPlay, TheHeadHangsBehindByHalfOfItAndTurnsBackLate)
{
    motor_parameters p = simple();
    p.backlash[MOTOR_PAN] = 1;
    motor_state from = at_rest(0, 0);
    motor_move move = motor_plan(&p, &from, 10, 0);
    EXPECT_NEAR(pan_at(p, move, 30 + 80), 0, 1e-9) << "0.3 degrees of the shaft are inside the play";
    motor_state there = motor_at(&p, &move, move.duration_ms);
    EXPECT_EQ(there.axis[MOTOR_PAN].steps, 100);
    EXPECT_NEAR(there.axis[MOTOR_PAN].head, 9.5, 1e-9);
    // Further in the same direction the play is used up already.
    move = motor_plan(&p, &there, 10, 0);
    there = motor_at(&p, &move, move.duration_ms);
    EXPECT_NEAR(there.axis[MOTOR_PAN].head, 19.5, 1e-9);
    // Back: a whole play of the shaft turns nothing.
    move = motor_plan(&p, &there, -1, 0);
    EXPECT_NEAR(motor_at(&p, &move, move.duration_ms).axis[MOTOR_PAN].head, 19.5, 1e-9);
    move = motor_plan(&p, &there, -10, 0);
    EXPECT_NEAR(motor_at(&p, &move, move.duration_ms).axis[MOTOR_PAN].head, 10.5, 1e-9);
}

TEST(MotorPlay, OfOneAxisIsNotTheOthers)
{
    motor_parameters p = simple();
    p.backlash[MOTOR_TILT] = 2;
    const motor_state from = at_rest(0, 0);
    const motor_move move = motor_plan(&p, &from, 10, 10);
    const motor_state there = motor_at(&p, &move, move.duration_ms);
    EXPECT_NEAR(there.axis[MOTOR_PAN].head, 10, 1e-9);
    EXPECT_NEAR(there.axis[MOTOR_TILT].head, 9, 1e-9);
}

TEST(MotorDegrees, AreWholeOnesOfTheShaft)
{
    const motor_parameters p = simple();
    motor_place place = {104, 3};
    EXPECT_EQ(motor_degrees(&p, &place), 10);
    place.steps = 105;
    EXPECT_EQ(motor_degrees(&p, &place), 11);
    place.steps = -105;
    EXPECT_EQ(motor_degrees(&p, &place), -11);
    place.steps = -104;
    EXPECT_EQ(motor_degrees(&p, &place), -10);
}

TEST(MotorMove, OfAWildRequestStaysWithinNumbers)
{
    motor_parameters p = motor_parameters_usual();
    p.step = 0.001;
    const motor_state from = at_rest(0, 0, 0.001);
    const motor_move move = motor_plan(&p, &from, 2147483647, -2147483647);
    EXPECT_EQ(move.to[MOTOR_PAN], 175000);
    EXPECT_EQ(move.to[MOTOR_TILT], -90000);
    EXPECT_TRUE(isfinite(move.duration_ms));
}

} // namespace
