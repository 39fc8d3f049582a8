// Which way the camera looks, from what the driver wrote.
#include "motor_head.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include "isolate.h"
#include "log_capture.h"
#include "motor_view.h"

namespace
{

const std::string root = scratch_root();

struct MotorHead : testing::Test {
    MotorHead()
    {
        mkdir((root + "/run").c_str(), 0755);
        mkdir((root + "/run/naro").c_str(), 0755);
    }
    ~MotorHead() override { motor_head_stop(); }
    void write(uint32_t moves, double h, double v, double h_speed = 0, double v_speed = 0)
    {
        motor_view_file *view = motor_view_open(false);
        motor_view_record record = {};
        record.moves = moves;
        record.place = {{{0, h}, {0, v}}};
        record.speed[MOTOR_PAN] = h_speed;
        record.speed[MOTOR_TILT] = v_speed;
        motor_view_write(view, &record);
        motor_view_close(view);
    }
    float pan = 77, tilt = 78;
};

TEST_F(MotorHead, WithoutOneNothingIsSaid)
{
    EXPECT_FALSE(motor_head_at(0, &pan, &tilt));
    EXPECT_EQ(pan, 77);
    EXPECT_EQ(tilt, 78);
}

TEST_F(MotorHead, ThatHasNotMovedLeavesTheSceneAlone)
{
    write(5, 1, 2); // of an earlier camera
    ASSERT_EQ(motor_head_start(), 0);
    EXPECT_FALSE(motor_head_at(0, &pan, &tilt));
    write(0, 1, 2);
    EXPECT_FALSE(motor_head_at(0, &pan, &tilt));
    EXPECT_EQ(pan, 77);
    write(1, 1, 2);
    EXPECT_TRUE(motor_head_at(0, &pan, &tilt));
}

TEST_F(MotorHead, LooksUpWhereTheMotorsDegreesGrowDownwards)
{
    ASSERT_EQ(motor_head_start(), 0);
    write(1, 30, 12, 60, -40);
    ASSERT_TRUE(motor_head_at(0, &pan, &tilt));
    EXPECT_FLOAT_EQ(pan, 30);
    EXPECT_FLOAT_EQ(tilt, -12);
    ASSERT_TRUE(motor_head_at(0.01, &pan, &tilt));
    EXPECT_FLOAT_EQ(pan, 29.4f) << "it turns at 60 degrees a second";
    EXPECT_FLOAT_EQ(tilt, -12.4f);
}

TEST_F(MotorHead, StandsWhereItWasReadLastWhileTheFileHoldsNonsense)
{
    ASSERT_EQ(motor_head_start(), 0);
    write(1, 30, 12);
    ASSERT_TRUE(motor_head_at(0, &pan, &tilt));
    write(2, 1000, 12); // no head turns so far
    ASSERT_TRUE(motor_head_at(0, &pan, &tilt));
    EXPECT_FLOAT_EQ(pan, 30);
}

TEST_F(MotorHead, IsToldAsTheMotorWroteIt)
{
    motor_view_record record = {};
    EXPECT_FALSE(motor_head_record(&record)) << "no head";
    ASSERT_EQ(motor_head_start(), 0);
    EXPECT_FALSE(motor_head_record(&record)) << "nobody has written";
    write(3, 30, 12);
    ASSERT_TRUE(motor_head_record(&record));
    EXPECT_EQ(record.moves, 3u);
    EXPECT_EQ(record.place.axis[MOTOR_TILT].head, 12);
}

TEST_F(MotorHead, IsForgottenWhenTheCameraIsSwitchedOnAgain)
{
    ASSERT_EQ(motor_head_start(), 0);
    write(1, 30, 12);
    ASSERT_TRUE(motor_head_at(0, &pan, &tilt));
    motor_head_stop();
    ASSERT_EQ(motor_head_start(), 0);
    EXPECT_FALSE(motor_head_at(0, &pan, &tilt));
}

TEST_F(MotorHead, ThatCannotBeIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    const std::string path = root + MOTOR_VIEW_PATH;
    unlink(path.c_str());
    mkdir(path.c_str(), 0755);
    EXPECT_EQ(motor_head_start(), -1);
    EXPECT_NE(errors.text().find(path + ": Is a directory"), std::string::npos) << errors.text();
    rmdir(path.c_str());
}

} // namespace
