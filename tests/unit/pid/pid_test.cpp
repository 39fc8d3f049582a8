// The three controllers, step by step, by numbers worked out by hand.
#include "pid.h"

#include <limits.h>
#include <math.h>

#include <utility>

#include <gtest/gtest.h>

namespace
{

pid_state begun(float Kp, float Ki, float Kd)
{
    pid_state state = {};
    pid_init(&state, Kp, Ki, Kd);
    return state;
}

TEST(Pid, InitSetsTheGainsAndNothingElse)
{
    pid_state state = {1, 2, 3, 4, 5, 6, 7, {8, 9, 10, 11, 12}, 13};
    pid_init(&state, 0.5f, 0.25f, 0.125f);
    EXPECT_EQ(state.Kp, 0.5f);
    EXPECT_EQ(state.Ki, 0.25f);
    EXPECT_EQ(state.Kd, 0.125f);
    EXPECT_EQ(state.P, 4);
    EXPECT_EQ(state.I, 5);
    EXPECT_EQ(state.D, 6);
    EXPECT_EQ(state.error, 7);
    for (int i = 0; i < PID_HISTORY; i++)
        EXPECT_EQ(state.earlier[i], 8 + i);
    EXPECT_EQ(state.output, 13);
}

TEST(Pid, Positional)
{
    pid_state state = begun(2, 0.5f, 4);
    const struct {
        int measured, setpoint;
        float P, I, D;
        int output;
    } steps[] = {
        {0, 10, 20, 5, 40, 65},       // e = 10
        {4, 10, 12, 8, -16, 4},       // e = 6
        {13, 10, -6, 6.5f, -36, -35}, // e = -3: -35.5, cut off toward zero
        {13, 10, -6, 5, 0, -1},       // e = -3
        {9, 10, 2, 5.5f, 16, 23},     // e = 1: 23.5
    };
    for (const auto &step : steps) {
        EXPECT_EQ(pid(step.measured, step.setpoint, &state), step.output);
        EXPECT_EQ(state.output, step.output);
        EXPECT_EQ(state.error, step.setpoint - step.measured);
        EXPECT_EQ(state.earlier[0], step.setpoint - step.measured);
        EXPECT_EQ(state.P, step.P);
        EXPECT_EQ(state.I, step.I);
        EXPECT_EQ(state.D, step.D);
    }
    EXPECT_EQ(state.earlier[1], 0); // deeper history is not its business
}

TEST(Pid, SmoothedDerivative)
{
    // Kd / 16 = 1: D is the weighted sum itself. Errors 1, 10, 100, 1000, 10000, 100000 show each weight at its place.
    pid_state state = begun(0, 0, 16);
    const int errors[] = {1, 10, 100, 1000, 10000, 60000, 0};
    const int sums[] = {
        1,
        10 + 3 * 1,
        100 + 3 * 10 + 2 * 1,
        1000 + 3 * 100 + 2 * 10 - 2 * 1,
        10000 + 3 * 1000 + 2 * 100 - 2 * 10 - 3 * 1,
        60000 + 3 * 10000 + 2 * 1000 - 2 * 100 - 3 * 10 - 1,
        0 + 3 * 60000 + 2 * 10000 - 2 * 1000 - 3 * 100 - 10,
    };
    for (int i = 0; i < 7; i++) {
        EXPECT_EQ(better_pid(0, errors[i], &state), sums[i]) << i;
        EXPECT_EQ(state.D, static_cast<float>(sums[i]));
        EXPECT_EQ(state.error, errors[i]);
    }
    const int history[] = {0, 60000, 10000, 1000, 100};
    for (int i = 0; i < PID_HISTORY; i++)
        EXPECT_EQ(state.earlier[i], history[i]);
}

TEST(Pid, SmoothedDerivativeBesideTheOtherTerms)
{
    pid_state state = begun(2, 0.5f, 4);      // Kd / 16 = 0.25
    EXPECT_EQ(better_pid(0, 10, &state), 27); // 20 + 5 + 2.5
    EXPECT_EQ(state.P, 20);
    EXPECT_EQ(state.I, 5);
    EXPECT_EQ(state.D, 2.5f);
    EXPECT_EQ(better_pid(17, 10, &state), -6); // e = -7: -14 + 1.5 + 0.25 (-7 + 30) = -6.75
}

TEST(Pid, Incremental)
{
    pid_state state = begun(2, 0.5f, 4);
    const struct {
        int measured, setpoint;
        float P, I, D;
        int output;
    } steps[] = {
        {0, 10, 20, 5, 40, 65},        // e = 10
        {4, 10, -8, 8, -56, 9},        // e = 6: 65 - 8 + 8 - 56
        {13, 10, -18, 6.5f, -20, -22}, // e = -3: 9 - 31.5 = -22.5
        {13, 10, 0, 5, 36, 19},        // e = -3
        {9, 10, 8, 5.5f, 16, 48},      // e = 1: 19 + 29.5 = 48.5
    };
    for (const auto &step : steps) {
        EXPECT_EQ(incre_pid(step.measured, step.setpoint, &state), step.output);
        EXPECT_EQ(state.output, step.output);
        EXPECT_EQ(state.error, step.setpoint - step.measured);
        EXPECT_EQ(state.P, step.P);
        EXPECT_EQ(state.I, step.I);
        EXPECT_EQ(state.D, step.D);
    }
    EXPECT_EQ(state.earlier[0], 1);
    EXPECT_EQ(state.earlier[1], -3);
    EXPECT_EQ(state.earlier[2], 0);
}

TEST(Pid, TheSetpointIsAnUnsigned16BitNumber)
{
    for (int (*controller)(int, int, pid_state *) : {pid, better_pid, incre_pid}) {
        for (const auto &[setpoint, taken] :
             {std::pair<int, int>(-1, 65535), {65535, 65535}, {65536, 0}, {65537, 1}, {-65536, 0}}) {
            pid_state state = begun(1, 0, 0);
            EXPECT_EQ(controller(0, setpoint, &state), taken) << setpoint;
            EXPECT_EQ(state.error, taken);
        }
    }
}

TEST(Pid, WhatNoIntCanHold)
{
    for (int (*controller)(int, int, pid_state *) : {pid, better_pid, incre_pid}) {
        pid_state state = begun(1, 0, 0);
        controller(INT_MIN, 65535, &state);
        EXPECT_EQ(state.error, INT_MAX);
        state = begun(1e9f, 0, 0);
        EXPECT_EQ(controller(0, 3, &state), INT_MAX);
        state = begun(-1e9f, 0, 0);
        EXPECT_EQ(controller(0, 3, &state), INT_MIN);
        state = begun(NAN, 0, 0);
        EXPECT_EQ(controller(0, 3, &state), 0);
        state = begun(65536, 0, 0);
        EXPECT_EQ(controller(0, 32767, &state), 65536 * 32767); // 2^31 - 65536 still fits
        state = begun(65536, 0, 0);
        EXPECT_EQ(controller(0, 32768, &state), INT_MAX);
        state = begun(-65536, 0, 0);
        EXPECT_EQ(controller(0, 32768, &state), INT_MIN);
    }
    // Differences of the largest errors.
    pid_state state = begun(0, 0, 1);
    better_pid(INT_MAX, 0, &state);
    better_pid(INT_MAX, 0, &state);
    better_pid(INT_MIN, 65535, &state);
    EXPECT_NEAR(state.D, 1. / 16 * (1. - 3 - 2) * 2147483647., 1000);
    state = begun(0, 0, 1);
    incre_pid(INT_MAX, 0, &state);
    incre_pid(INT_MIN, 65535, &state);
    incre_pid(INT_MAX, 0, &state);
    EXPECT_NEAR(state.D, -4. * 2147483647., 1000);
}

} // namespace
