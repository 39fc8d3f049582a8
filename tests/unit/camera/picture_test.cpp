// Sizes, colour spaces and orientation of converted pictures.
#include "picture.h"

#include <gtest/gtest.h>
#include <memory>
#include <stdlib.h>
#include <string.h>
#include <vector>

extern "C" {
#include <libavutil/display.h>
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "log_capture.h"

namespace
{

struct Free {
    void operator()(AVFrame *frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, Free>;

Frame make(int width, int height, AVPixelFormat format)
{
    Frame frame(av_frame_alloc());
    frame->width = width;
    frame->height = height;
    frame->format = format;
    frame->color_range = AVCOL_RANGE_MPEG;
    frame->colorspace = AVCOL_SPC_SMPTE170M;
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
}

// A picture of three planes, all of one colour.
Frame plain(int width, int height, AVPixelFormat format, int y, int u, int v)
{
    Frame frame = make(width, height, format);
    const int values[] = {y, u, v};
    const int shift = format == AV_PIX_FMT_YUV444P || format == AV_PIX_FMT_YUVJ444P ? 0 : 1;
    for (int plane = 0; plane < 3; plane++)
        memset(frame->data[plane], values[plane],
               static_cast<size_t>(frame->linesize[plane]) *
                   static_cast<size_t>(plane ? height >> shift : height));
    return frame;
}

struct Picture : testing::Test {
    Picture() : nv12(ANALYSIS_FRAME_BYTES + 64, 0) {}
    ~Picture() override { picture_exit(); }

    int luma(int x, int y) const { return nv12[static_cast<size_t>(y * ANALYSIS_WIDTH + x)]; }
    int chroma(int x, int y, int which) const
    {
        return nv12[static_cast<size_t>(ANALYSIS_CHROMA_OFFSET + y / 2 * ANALYSIS_WIDTH + x / 2 * 2 + which)];
    }
    void expect_colour(int x, int y, int want_y, int want_u, int want_v, int tolerance = 2) const
    {
        EXPECT_NEAR(luma(x, y), want_y, tolerance) << "luma at " << x << "," << y;
        EXPECT_NEAR(chroma(x, y, 0), want_u, tolerance) << "U at " << x << "," << y;
        EXPECT_NEAR(chroma(x, y, 1), want_v, tolerance) << "V at " << x << "," << y;
    }
    void expect_everywhere(int want_y, int want_u, int want_v) const
    {
        for (const int x : {0, 1, 160, 318, 319})
            for (const int y : {0, 1, 96, 190, 191})
                expect_colour(x, y, want_y, want_u, want_v);
    }

    std::vector<uint8_t> nv12;
};

TEST_F(Picture, Bt601VideoRangePassesUnchanged)
{
    const Frame frame = plain(320, 192, AV_PIX_FMT_YUV420P, 81, 90, 240);
    ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0);
    for (int i = 0; i < ANALYSIS_CHROMA_OFFSET; i++)
        ASSERT_EQ(nv12[static_cast<size_t>(i)], 81);
    for (int i = ANALYSIS_CHROMA_OFFSET; i < ANALYSIS_FRAME_BYTES; i++)
        ASSERT_EQ(nv12[static_cast<size_t>(i)], i % 2 ? 240 : 90);
    for (size_t i = ANALYSIS_FRAME_BYTES; i < nv12.size(); i++)
        ASSERT_EQ(nv12[i], 0) << "beyond the picture";
}

// Pure red is Y 63, U 102, V 240 in BT.709 and Y 81, U 90, V 240 in BT.601.
TEST_F(Picture, OneThatIsJustSoKeepsItsColours)
{
    Frame frame = make(ANALYSIS_WIDTH, ANALYSIS_HEIGHT, AV_PIX_FMT_NV12);
    for (int y = 0; y < ANALYSIS_HEIGHT; y++)
        for (int x = 0; x < ANALYSIS_WIDTH; x++) {
            frame->data[0][y * frame->linesize[0] + x] = static_cast<uint8_t>(x + y);
            if (y % 2 == 0)
                frame->data[1][y / 2 * frame->linesize[1] + x] = static_cast<uint8_t>(3 * x + 5 * y + 1);
        }
    memset(nv12.data(), 7, nv12.size());
    ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0);
    for (int y = 0; y < ANALYSIS_HEIGHT; y += 2)
        for (int x = 0; x < ANALYSIS_WIDTH; x += 2) {
            ASSERT_EQ(luma(x, y), static_cast<uint8_t>(x + y)) << x << "," << y;
            ASSERT_EQ(chroma(x, y, 0), static_cast<uint8_t>(3 * x + 5 * y + 1)) << x << "," << y;
            ASSERT_EQ(chroma(x, y, 1), static_cast<uint8_t>(3 * (x + 1) + 5 * y + 1)) << x << "," << y;
        }
    EXPECT_EQ(nv12[ANALYSIS_FRAME_BYTES], 7) << "nothing behind the picture";
}

TEST_F(Picture, FullRangeOfTheSameFormatIsSqueezed)
{
    Frame frame = make(ANALYSIS_WIDTH, ANALYSIS_HEIGHT, AV_PIX_FMT_NV12);
    frame->color_range = AVCOL_RANGE_JPEG;
    memset(frame->data[0], 255, static_cast<size_t>(frame->linesize[0]) * ANALYSIS_HEIGHT);
    memset(frame->data[1], 128, static_cast<size_t>(frame->linesize[1]) * ANALYSIS_HEIGHT / 2);
    ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0);
    expect_everywhere(235, 128, 128);
}

TEST_F(Picture, Bt709BecomesBt601)
{
    for (const auto &[width, height] : {std::pair{1280, 720}, {320, 192}}) {
        const Frame frame = plain(width, height, AV_PIX_FMT_YUV420P, 63, 102, 240);
        frame->colorspace = AVCOL_SPC_BT709;
        ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0);
        expect_everywhere(81, 90, 240);
    }
}

TEST_F(Picture, WithoutAWordItIsBt709From720LinesOn)
{
    for (const int height : {718, 720}) {
        const Frame frame = plain(640, height, AV_PIX_FMT_YUV420P, 63, 102, 240);
        frame->colorspace = AVCOL_SPC_UNSPECIFIED;
        ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0);
        if (height == 720)
            expect_colour(160, 96, 81, 90, 240);
        else
            expect_colour(160, 96, 63, 102, 240);
    }
}

TEST_F(Picture, FullRangeIsSqueezed)
{
    const Frame white = plain(320, 192, AV_PIX_FMT_YUV420P, 255, 128, 128);
    white->color_range = AVCOL_RANGE_JPEG;
    ASSERT_EQ(picture_to_analysis(white.get(), nv12.data()), 0);
    expect_everywhere(235, 128, 128);
    const Frame black = plain(320, 192, AV_PIX_FMT_YUV420P, 0, 128, 128);
    black->color_range = AVCOL_RANGE_JPEG;
    ASSERT_EQ(picture_to_analysis(black.get(), nv12.data()), 0);
    expect_everywhere(16, 128, 128);
}

TEST_F(Picture, AFormatThatSaysFullRangeIsSqueezed)
{
    for (const AVPixelFormat format : {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ444P}) {
        const Frame white = plain(640, 480, format, 255, 128, 128);
        white->color_range = AVCOL_RANGE_UNSPECIFIED;
        ASSERT_EQ(picture_to_analysis(white.get(), nv12.data()), 0);
        expect_everywhere(235, 128, 128);
    }
}

TEST_F(Picture, RgbAndGreyAreTakenToo)
{
    const Frame rgb = make(100, 50, AV_PIX_FMT_RGB24);
    for (int y = 0; y < 50; y++)
        for (int x = 0; x < 100; x++) {
            uint8_t *pixel = rgb->data[0] + y * rgb->linesize[0] + 3 * x;
            pixel[0] = 255;
            pixel[1] = pixel[2] = 0;
        }
    ASSERT_EQ(picture_to_analysis(rgb.get(), nv12.data()), 0);
    expect_everywhere(81, 90, 240);
    const Frame grey = make(320, 192, AV_PIX_FMT_GRAY8);
    memset(grey->data[0], 100, static_cast<size_t>(grey->linesize[0]) * 192);
    ASSERT_EQ(picture_to_analysis(grey.get(), nv12.data()), 0);
    expect_everywhere(100, 128, 128);
}

// Left and right half, top and bottom half keep their places whatever the size and shape.
TEST_F(Picture, TheWholePictureIsStretched)
{
    for (const auto &[width, height] :
         {std::pair{640, 480}, {768, 432}, {200, 1000}, {33, 17}, {1, 1}, {321, 193}}) {
        const Frame frame = plain(width, height, AV_PIX_FMT_YUV420P, 50, 128, 128);
        for (int y = 0; y < height; y++)
            for (int x = 0; x < width; x++)
                frame->data[0][y * frame->linesize[0] + x] =
                    static_cast<uint8_t>(50 + (2 * x >= width ? 100 : 0) + (2 * y >= height ? 50 : 0));
        ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0) << width << "x" << height;
        if (width < 8)
            continue;
        EXPECT_NEAR(luma(40, 24), 50, 3) << width << "x" << height;
        EXPECT_NEAR(luma(280, 24), 150, 3) << width << "x" << height;
        EXPECT_NEAR(luma(40, 168), 100, 3) << width << "x" << height;
        EXPECT_NEAR(luma(280, 168), 200, 3) << width << "x" << height;
    }
}

// Every output pixel is the mean of what it covers: a chessboard of single pixels becomes its mean.
TEST_F(Picture, ShrinkingAverages)
{
    const Frame frame = plain(1280, 768, AV_PIX_FMT_YUV420P, 0, 128, 128);
    for (int y = 0; y < 768; y++)
        for (int x = 0; x < 1280; x++)
            frame->data[0][y * frame->linesize[0] + x] = static_cast<uint8_t>((x + y) % 2 ? 200 : 40);
    ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0);
    expect_everywhere(120, 128, 128);
}

// A picture whose upper left quarter is red and else grey, to be turned clockwise by `quarters`.
Frame cornered(int width, int height, int quarters)
{
    Frame frame = plain(width, height, AV_PIX_FMT_YUV420P, 180, 128, 128);
    for (int y = 0; y < height / 2; y++)
        memset(frame->data[0] + y * frame->linesize[0], 81, static_cast<size_t>(width / 2));
    for (int y = 0; y < height / 4; y++) {
        memset(frame->data[1] + y * frame->linesize[1], 90, static_cast<size_t>(width / 4));
        memset(frame->data[2] + y * frame->linesize[2], 240, static_cast<size_t>(width / 4));
    }
    if (quarters >= 0) {
        AVFrameSideData *matrix =
            av_frame_new_side_data(frame.get(), AV_FRAME_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t));
        av_display_rotation_set(reinterpret_cast<int32_t *>(matrix->data), 90 * quarters);
    }
    return frame;
}

TEST_F(Picture, IsTurnedUprightAsTheSourceSays)
{
    const int corners[4][2] = {{40, 24}, {280, 24}, {280, 168}, {40, 168}}; // clockwise from the upper left
    for (int quarters = 0; quarters < 4; quarters++) {
        const Frame frame = cornered(640, 480, quarters);
        ASSERT_EQ(picture_to_analysis(frame.get(), nv12.data()), 0);
        std::vector<uint32_t> view(640 * 384 + 16);
        ASSERT_EQ(picture_to_view(frame.get(), 640, 384, view.data()), 0);
        for (int corner = 0; corner < 4; corner++) {
            const int x = corners[corner][0], y = corners[corner][1];
            const uint32_t pixel = view[static_cast<size_t>(2 * y * 640 + 2 * x)];
            if (corner == quarters) {
                expect_colour(x, y, 81, 90, 240, 3);
                EXPECT_GT(pixel >> 16 & 255, 240u);
                EXPECT_LT(pixel & 255, 15u);
            } else {
                expect_colour(x, y, 180, 128, 128, 3);
                EXPECT_NEAR(static_cast<int>(pixel & 255), 191, 3);
            }
        }
    }
}

TEST_F(Picture, TheViewIsInColour)
{
    const Frame frame = plain(320, 192, AV_PIX_FMT_YUV420P, 81, 90, 240);
    std::vector<uint32_t> view(640 * 384 + 16, 7);
    ASSERT_EQ(picture_to_view(frame.get(), 640, 384, view.data()), 0);
    for (const size_t at : {size_t(0), size_t(639), size_t(640 * 384 - 1)}) {
        EXPECT_NEAR(static_cast<int>(view[at] >> 16 & 255), 255, 2);
        EXPECT_NEAR(static_cast<int>(view[at] >> 8 & 255), 0, 2);
        EXPECT_NEAR(static_cast<int>(view[at] & 255), 0, 2);
    }
    for (size_t i = 640 * 384; i < view.size(); i++)
        EXPECT_EQ(view[i], 7u) << "beyond the picture";
}

TEST_F(Picture, AnotherSizeOrFormatInTheMiddleIsFine)
{
    for (int i = 0; i < 3; i++) {
        const Frame first = plain(320, 192, AV_PIX_FMT_YUV420P, 60, 128, 128);
        ASSERT_EQ(picture_to_analysis(first.get(), nv12.data()), 0);
        expect_everywhere(60, 128, 128);
        const Frame second = plain(640, 480, AV_PIX_FMT_YUV444P, 90, 100, 140);
        ASSERT_EQ(picture_to_analysis(second.get(), nv12.data()), 0);
        expect_everywhere(90, 100, 140);
    }
}

TEST_F(Picture, WhatCannotBeConvertedIsSaid)
{
    OutputCapture errors(STDERR_FILENO);
    Frame empty(av_frame_alloc());
    EXPECT_EQ(picture_to_analysis(empty.get(), nv12.data()), -1);
    const Frame frame = plain(320, 192, AV_PIX_FMT_YUV420P, 60, 128, 128);
    frame->format = AV_PIX_FMT_VAAPI;
    EXPECT_EQ(picture_to_analysis(frame.get(), nv12.data()), -1);
    EXPECT_NE(errors.text().find("an empty picture"), std::string::npos);
    EXPECT_NE(errors.text().find("a picture of 320x192 in format vaapi cannot be converted"),
              std::string::npos);
}

} // namespace
