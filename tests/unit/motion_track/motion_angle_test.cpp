// Places in the picture as angles: every half pixel, the edges, and the table for a motor.
#include "motion_angle.h"

#include <limits.h>
#include <math.h>

#include <gtest/gtest.h>

#include "log_capture.h"

namespace
{

struct Angles {
    int h, v;
};

Angles angles(int x1, int y1, int x2, int y2)
{
    Angles a = {-999, -999};
    EXPECT_EQ(cal_h_v_degree(&a.h, &a.v, x1, y1, x2, y2), 0);
    return a;
}

TEST(MotionAngle, PlacesAndTheirAngles)
{
    const struct {
        int x, y; // the middle
        int h, v;
    } cases[] = {
        {160, 96, 0, 0},  {320, 192, 44, 23}, {0, 0, -43, -22}, // 43.6 and 23.0 degrees to each edge
        {300, 96, 40, 0}, {160, 180, 0, 20},  {160, 12, 0, -19}, {20, 96, -39, 0},
        {161, 97, 0, 0},  {162, 98, 1, 1},    {163, 99, 1, 1}, // 0.34 degrees a pixel, 0.25 down
        {158, 94, 0, 0},  {155, 90, -1, -1}, // 0.7, 0.5 and 1.7, 1.5 degrees: 0.5 is added, and cut off
    };
    for (const auto &c : cases) {
        const Angles a = angles(c.x - 10, c.y - 8, c.x + 10, c.y + 8);
        EXPECT_EQ(a.h, c.h) << c.x;
        EXPECT_EQ(a.v, c.v) << c.y;
    }
}

TEST(MotionAngle, NegativeAnglesAreCutOffAfterHalfADegreeWasAdded)
{
    // The middle at 128.5 is 31.5 pixels left, -10.63 degrees; mirrored it is 10.63.
    EXPECT_EQ(angles(128, 96, 129, 96).h, -10);
    EXPECT_EQ(angles(191, 96, 192, 96).h, 11);
    EXPECT_EQ(angles(160, 52, 160, 53).v, -10); // 43.5 pixels up, -10.9 degrees
    EXPECT_EQ(angles(160, 139, 160, 140).v, 11);
}

TEST(MotionAngle, EveryHalfPixel)
{
    // The same formula in double throughout.
    const double pi = acos(-1.);
    for (int sum = -700; sum <= 1400; sum++) {
        const double h = atan((sum / 2. - 160) / 160 * 2.56 / 2.6856) * 180 / pi;
        const double v = atan((sum / 2. - 96) / 96 * 1.44 / 3.3888) * 180 / pi;
        const int first = sum / 2, second = sum - first;
        const Angles a = angles(first, first, second, second);
        EXPECT_EQ(a.h, static_cast<int>(h + 0.5)) << sum;
        EXPECT_EQ(a.v, static_cast<int>(v + 0.5)) << sum;
        const Angles swapped = angles(second, second, first, first);
        EXPECT_EQ(swapped.h, a.h);
        EXPECT_EQ(swapped.v, a.v);
    }
}

TEST(MotionAngle, TheAxesAreKeptApart)
{
    const Angles a = angles(300, 180, 300, 180);
    EXPECT_EQ(a.h, 40);
    EXPECT_EQ(a.v, 20);
    EXPECT_EQ(angles(0, 180, 320, 180).h, 0);
    EXPECT_EQ(angles(300, 0, 300, 192).v, 0);
}

TEST(MotionAngle, NumbersThatAreNoPlaces)
{
    EXPECT_EQ(angles(INT_MAX, INT_MAX, INT_MAX, INT_MAX).h, 90);
    EXPECT_EQ(angles(INT_MIN, INT_MIN, INT_MIN, INT_MIN).v, -89);
    EXPECT_EQ(angles(INT_MIN, INT_MIN, INT_MAX, INT_MAX).h, -43); // their middle is 0
}

TEST(MotionAngle, NoPlaceForTheAngles)
{
    LogCapture log;
    int kept = 7;
    EXPECT_EQ(cal_h_v_degree(nullptr, &kept, 300, 180, 300, 180), -1);
    EXPECT_EQ(cal_h_v_degree(&kept, nullptr, 300, 180, 300, 180), -1);
    EXPECT_EQ(cal_h_v_degree(nullptr, nullptr, 300, 180, 300, 180), -1);
    EXPECT_EQ(kept, 7);
    const LogCapture::Line line = {NARO_LOG_ERR, "[cal_h_v_degree] no place for the angles\n"};
    EXPECT_EQ(log.lines(), (std::vector<LogCapture::Line>{line, line, line}));
}

// ---- Spread for a motor -----------------------------------------------------------------------------------

TEST(AngleTable, EveryAngle)
{
    const struct {
        int angle, result;
    } cases[] = {
        {0, 20},  {1, 20},  {5, 20},  {9, 20},  {10, 20}, {11, 21}, {15, 25},  {19, 29},      {20, 30},
        {21, 32}, {22, 34}, {23, 36}, {24, 38}, {25, 40}, {26, 42}, {29, 48},  {30, 50},      {31, 52},
        {34, 58}, {35, 60}, {36, 61}, {40, 65}, {44, 69}, {45, 70}, {46, 72},  {49, 78},      {50, 80},
        {51, 81}, {55, 85}, {59, 89}, {60, 90}, {61, 90}, {75, 90}, {180, 90}, {INT_MAX, 90},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(angle_h_dst_cal(c.angle), c.result) << c.angle;
        EXPECT_EQ(angle_h_dst_cal(-c.angle), c.angle == 0 ? 20 : -c.result) << -c.angle;
    }
    EXPECT_EQ(angle_h_dst_cal(INT_MIN), -90);
}

} // namespace
