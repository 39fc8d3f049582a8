// Pictures of a scene from where the camera's head is.
#include "rendered.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

#include "event_channels.h"
#include "isolate.h"
#include "log_capture.h"
#include "render.h"

namespace
{

// Before any thread.
const bool prepared = [] {
    render_prepare();
    return true;
}();

const char scene[] = "empty-day"; // looks 12 degrees down from the shelf
const char turning_scene[] = "view-turns-person";

struct {
    bool there = false;
    float pan = 0, tilt = 0, pan_speed = 0;
} head;

bool head_at(double before_s, float *pan, float *tilt)
{
    if (!head.there)
        return false;
    *pan = head.pan - head.pan_speed * static_cast<float>(before_s);
    *tilt = head.tilt;
    return true;
}

void turn_to(float pan, float tilt, float pan_speed = 0)
{
    head.pan = pan;
    head.tilt = tilt;
    head.pan_speed = pan_speed;
    head.there = true;
}

std::vector<uint8_t> luma(const AVFrame *frame)
{
    return std::vector<uint8_t>(frame->data[0],
                                frame->data[0] + static_cast<size_t>(frame->width) * frame->height);
}

// Mean difference of neighbours in a row: what a smear takes away.
double sharpness(const std::vector<uint8_t> &picture)
{
    double sum = 0;
    for (size_t i = 1; i < picture.size(); i++)
        sum += i % ANALYSIS_WIDTH != 0 ? abs(picture[i] - picture[i - 1]) : 0;
    return sum / static_cast<double>(picture.size());
}

struct RenderedHead : testing::Test {
    ~RenderedHead() override { rendered_close(); }
    void open(const char *name)
    {
        const rendered_settings settings = {name, false, false, false, head_at};
        ASSERT_EQ(rendered_open(&settings), 0);
    }
    truth_moment take(uint64_t number, std::vector<uint8_t> *picture = nullptr)
    {
        AVFrame *frame = rendered_picture(number);
        EXPECT_NE(frame, nullptr);
        const truth_moment truth = rendered_extra_of(frame)->truth;
        if (picture)
            *picture = luma(frame);
        av_frame_free(&frame);
        return truth;
    }
};

TEST_F(RenderedHead, UntilItMovesTheScenesOwnTurnsHold)
{
    open(turning_scene);
    EXPECT_EQ(take(0).pan, -20);
    EXPECT_EQ(take(40).pan, 20) << "8 s: turned by the scene";
    turn_to(5, 3);
    const truth_moment truth = take(41);
    EXPECT_FLOAT_EQ(truth.pan, -15) << "from where the scene mounts it";
    EXPECT_TRUE(truth.view_moves);
}

TEST_F(RenderedHead, ThePictureIsOfWhereItLooks)
{
    open(scene);
    std::vector<uint8_t> ahead, right;
    truth_moment truth = take(0, &ahead);
    EXPECT_EQ(truth.pan, 0);
    EXPECT_EQ(truth.tilt, -12);
    turn_to(30, 4);
    truth = take(1, &right);
    EXPECT_FLOAT_EQ(truth.pan, 30);
    EXPECT_FLOAT_EQ(truth.tilt, -8);
    EXPECT_TRUE(truth.view_moves) << "since the picture before";
    EXPECT_FALSE(take(2).view_moves);
    turn_to(30.1f, 4);
    EXPECT_TRUE(take(3).view_moves);
    turn_to(30.1f, 4.1f);
    EXPECT_TRUE(take(4).view_moves);
    double different = 0;
    for (size_t i = 0; i < ahead.size(); i++)
        different += abs(ahead[i] - right[i]) > 20;
    EXPECT_GT(different / static_cast<double>(ahead.size()), 0.2);
}

TEST_F(RenderedHead, ATurningOneSmearsThePicture)
{
    open(scene);
    std::vector<uint8_t> still, turning;
    turn_to(20, 0);
    for (uint64_t number = 0; number < 3; number++)
        take(number, &still);
    turn_to(20, 0, 200);
    take(3, &turning);
    EXPECT_LT(sharpness(turning), 0.95 * sharpness(still));
}

} // namespace
