// Where the window lies in a wide picture, and cutting it out.
#include "wide.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

namespace
{

void expect_window(const wide_window &window, int x, int y, int width, int height)
{
    EXPECT_EQ(window.x, x);
    EXPECT_EQ(window.y, y);
    EXPECT_EQ(window.width, width);
    EXPECT_EQ(window.height, height);
}

TEST(WideWindow, IsTheLargestOfTheAnalysisPicturesShapeInTheMiddle)
{
    expect_window(wide_window_of(640, 240, 1, 0, 0), 120, 0, 400, 240);
    expect_window(wide_window_of(320, 400, 1, 0, 0), 0, 104, 320, 192);
    expect_window(wide_window_of(1920, 1080, 0.5, 0, 0), 510, 270, 900, 540);
    expect_window(wide_window_of(320, 192, 1, 40, 40), 0, 0, 320, 192);
}

TEST(WideWindow, MovesWithTheHeadAndStopsAtTheEdge)
{
    // 900 columns are 87.26 degrees: 10.31 a degree.
    expect_window(wide_window_of(1920, 1080, 0.5, 10, 0), 612, 270, 900, 540);
    expect_window(wide_window_of(1920, 1080, 0.5, -10, 0), 406, 270, 900, 540);
    expect_window(wide_window_of(1920, 1080, 0.5, 0, 10), 510, 166, 900, 540);
    expect_window(wide_window_of(1920, 1080, 0.5, 0, -10), 510, 372, 900, 540);
    expect_window(wide_window_of(1920, 1080, 0.5, 175, 90), 1020, 0, 900, 540);
    expect_window(wide_window_of(1920, 1080, 0.5, -175, -90), 0, 540, 900, 540);
}

TEST(WideWindow, LiesOnPairsOfPixels)
{
    for (int width = 300; width < 340; width += 3)
        for (double pan = -20; pan < 20; pan += 1.7) {
            const wide_window window = wide_window_of(width, 251, 0.37, pan, pan);
            EXPECT_EQ(window.x % 2 + window.y % 2 + window.width % 2 + window.height % 2, 0);
            EXPECT_GE(window.x, 0);
            EXPECT_LE(window.x + window.width, width);
            EXPECT_LE(window.y + window.height, 251);
        }
}

TEST(WideCut, LeavesTheWindowAndItsColours)
{
    AVFrame *frame = av_frame_alloc();
    frame->width = 640;
    frame->height = 240;
    frame->format = AV_PIX_FMT_YUV420P;
    ASSERT_EQ(av_frame_get_buffer(frame, 0), 0);
    for (int y = 0; y < 240; y++)
        for (int x = 0; x < 640; x++) {
            frame->data[0][y * frame->linesize[0] + x] = static_cast<uint8_t>(x / 4 + y / 4);
            frame->data[1][y / 2 * frame->linesize[1] + x / 2] = static_cast<uint8_t>(x / 4);
        }
    AVFrame *other = av_frame_clone(frame);
    ASSERT_TRUE(wide_cut(frame, 0.5, 0, 0)); // 200 x 120 at (220, 60)
    EXPECT_EQ(frame->width, 200);
    EXPECT_EQ(frame->height, 120);
    EXPECT_EQ(frame->data[0][0], 220 / 4 + 60 / 4);
    EXPECT_EQ(frame->data[0][119 * frame->linesize[0] + 199], 419 / 4 + 179 / 4);
    EXPECT_EQ(frame->data[1][0], 220 / 4);
    EXPECT_EQ(other->width, 640) << "who shares the picture sees all of it";
    EXPECT_EQ(other->data[0][0], 0);
    av_frame_free(&frame);
    av_frame_free(&other);
}

TEST(WideCut, LeavesAlonePicturesThatLieOnTheirSide)
{
    AVFrame *frame = av_frame_alloc();
    frame->width = 640;
    frame->height = 240;
    frame->format = AV_PIX_FMT_YUV420P;
    ASSERT_EQ(av_frame_get_buffer(frame, 0), 0);
    ASSERT_NE(av_frame_new_side_data(frame, AV_FRAME_DATA_DISPLAYMATRIX, 36), nullptr);
    EXPECT_FALSE(wide_cut(frame, 0.5, 0, 0));
    EXPECT_EQ(frame->width, 640);
    av_frame_free(&frame);
}

} // namespace
