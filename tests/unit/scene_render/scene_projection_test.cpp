// The road from the world to a pixel and back.
#include "projection.h"

#include <gtest/gtest.h>

namespace
{
scene_lens lens_of(float pan, float tilt, float distortion)
{
    scene_view view;
    view.position = {1, 2, 3};
    view.pan = pan;
    view.tilt = tilt;
    view.width_angle = 90;
    view.distortion = distortion;
    return scene_lens_of(&view, 320, 192);
}

TEST(Projection, StraightAheadIsTheMiddle)
{
    scene_point pixel;
    ASSERT_TRUE(scene_project(lens_of(0, 0, -0.08f), {1, 7, 3}, &pixel));
    EXPECT_FLOAT_EQ(160, pixel.x);
    EXPECT_FLOAT_EQ(96, pixel.y);
}

TEST(Projection, PanGrowsToTheRightAndTiltUpwards)
{
    scene_point pixel;
    ASSERT_TRUE(scene_project(lens_of(90, 0, 0), {6, 2, 3}, &pixel)); // 90 looks along +x
    EXPECT_NEAR(160, pixel.x, 1e-3);
    ASSERT_TRUE(
        scene_project(lens_of(10, 0, 0), {1, 7, 3}, &pixel)); // turned right: what was ahead goes left
    EXPECT_LT(pixel.x, 150);
    ASSERT_TRUE(scene_project(lens_of(0, 10, 0), {1, 7, 3}, &pixel)); // turned up: it goes down
    EXPECT_GT(pixel.y, 110);
    ASSERT_TRUE(scene_project(lens_of(0, 0, 0), {2, 7, 4}, &pixel));
    EXPECT_FLOAT_EQ(160 + 160 / 5.f, pixel.x);
    EXPECT_FLOAT_EQ(96 - 160 / 5.f, pixel.y);
}

TEST(Projection, WidthAngleIsSeenFromEdgeToEdgeWhateverTheDistortion)
{
    for (float k : {-0.12f, -0.08f, 0.f, 0.3f}) {
        scene_point pixel;
        ASSERT_TRUE(scene_project(lens_of(0, 0, k), {6, 7, 3}, &pixel)); // 45 degrees to the right
        EXPECT_NEAR(320, pixel.x, 1e-3) << k;
        EXPECT_NEAR(96, pixel.y, 1e-3) << k;
    }
}

TEST(Projection, BarrelDistortionMovesTheInnerPointsOutwards)
{
    scene_point pixel;
    ASSERT_TRUE(scene_project(lens_of(0, 0, -0.08f), {3.5f, 7, 3}, &pixel)); // r = 0.5
    EXPECT_NEAR(160 + 160 * 0.5f * (1 - 0.08f * 0.25f) / 0.92f, pixel.x, 1e-3);
}

TEST(Projection, WayBackEndsWhereItBegan)
{
    for (float k : {-0.12f, -0.08f, 0.f, 0.1f, 0.3f})
        for (float x = 0; x <= 320; x += 16)
            for (float y = 0; y <= 192; y += 16) {
                const scene_lens lens = lens_of(25, -20, k);
                scene_point pixel;
                ASSERT_TRUE(scene_project(lens, lens.position + scene_pixel_ray(lens, {x, y}) * 3, &pixel));
                EXPECT_NEAR(x, pixel.x, 2e-3) << k << ' ' << y;
                EXPECT_NEAR(y, pixel.y, 2e-3) << k << ' ' << x;
            }
}

TEST(Projection, CameraCoordinatesAndBack)
{
    const scene_lens lens = lens_of(33, -12, 0);
    const scene_vec back = scene_to_world(lens, scene_to_camera(lens, {4, 5, 0.5f}));
    EXPECT_NEAR(4, back.x, 1e-5);
    EXPECT_NEAR(5, back.y, 1e-5);
    EXPECT_NEAR(0.5f, back.z, 1e-5);
}

TEST(Projection, NothingBehindTheLensIsSeen)
{
    scene_point pixel = {7, 7};
    EXPECT_FALSE(scene_project(lens_of(0, 0, 0), {1, 1.9f, 3}, &pixel));
    EXPECT_FALSE(scene_project(lens_of(0, 0, 0), {2, 2, 3}, &pixel)); // beside it
    EXPECT_EQ(7, pixel.x);
}

TEST(Projection, FarOutPointsStayOutsideOnTheirSide)
{
    const scene_lens lens = lens_of(0, 0, -0.12f);
    for (float x :
         {2.f, 5.f, 50.f}) { // without the bound the polynomial would bring them back into the picture
        const scene_point seen = scene_distort(lens, {x, 0});
        EXPECT_GT(seen.x, 1.2f) << x;
        EXPECT_LT(seen.x, 1.3f) << x;
        EXPECT_LT(scene_distort(lens, {-x, 0}).x, -1.2f) << x;
    }
    EXPECT_NEAR(lens.fold, scene_undistort(lens, {9, 0}).x, 1e-5);
}

TEST(Projection, OddViewsAreTakenAsTheNearestBound)
{
    scene_view view;
    view.width_angle = 3;
    view.distortion = -0.5f;
    EXPECT_NEAR(tan(5 * M_PI / 180), scene_lens_of(&view, 320, 192).half_width, 1e-6);
    EXPECT_EQ(-0.12f, scene_lens_of(&view, 320, 192).distortion);
    view.width_angle = 170;
    view.distortion = 0.9f;
    EXPECT_NEAR(tan(75 * M_PI / 180), scene_lens_of(&view, 320, 192).half_width, 1e-5);
    EXPECT_EQ(0.3f, scene_lens_of(&view, 320, 192).distortion);
}
} // namespace
