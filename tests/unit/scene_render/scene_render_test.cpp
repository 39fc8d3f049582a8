// The renderer: where things are drawn, how bright, and that it says what it cannot do.
#include "render.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string.h>

#include "gl.h"
#include "projection.h"
#include "shaders.h"
#include "test_room.h"

using testing::HasSubstr;

namespace
{
const float PI = static_cast<float>(M_PI);

class Render : public testing::Test
{
  protected:
    void SetUp() override
    {
        testing::internal::CaptureStderr();
        ASSERT_EQ(0, render_start(false));
    }
    void TearDown() override
    {
        render_stop();
        testing::internal::GetCapturedStderr();
    }
    std::string said()
    {
        const std::string text = testing::internal::GetCapturedStderr();
        testing::internal::CaptureStderr();
        return text;
    }
};

// A wall 4 m square, 2 m ahead of a camera at the origin that looks along +y.
struct wall {
    std::vector<scene_material> materials;
    scene_mesh mesh, other;
    scene_snapshot snapshot;

    wall()
    {
        materials = {test_material(0.5f, 0.25f, 0.125f, 0.75f), test_material(0, 0, 0, 0)};
        test_sheet(&mesh, {-2, 2, -2}, {4, 0, 0}, {0, 0, 4}, 0, true);
        snapshot.view.position = {0, 0, 0};
        snapshot.view.distortion = 0;
        add(&mesh);
    }
    wall(const wall &) = delete;
    scene_object *add(const scene_mesh *what)
    {
        scene_object object;
        object.mesh = what;
        object.materials = &materials;
        snapshot.objects.push_back(object);
        return &snapshot.objects.back();
    }
    scene_light *lamp(scene_light_kind kind, scene_vec position, scene_vec direction, float strength)
    {
        scene_light light;
        light.kind = kind;
        light.position = position;
        light.direction = direction;
        light.size[0] = light.size[1] = 0.001f;
        for (float &band : light.strength)
            band = strength;
        snapshot.lights.push_back(light);
        return &snapshot.lights.back();
    }
    float at(int column, int row, int band = BAND_RED)
    {
        render_picture picture;
        EXPECT_EQ(0, render_draw(&snapshot, 320, 192, &picture));
        return picture.light[static_cast<size_t>((row * 320 + column) * BANDS + band)];
    }
    // Where a point of the world is seen.
    float at(scene_vec point, int band = BAND_RED)
    {
        scene_point pixel = {0, 0};
        EXPECT_TRUE(scene_project(scene_lens_of(&snapshot.view, 320, 192), point, &pixel));
        return at(static_cast<int>(pixel.x), static_cast<int>(pixel.y), band);
    }
};

TEST(RenderStart, MissingLibraryIsSaidWithItsPackages)
{
    const char *usual = gl_library;
    gl_library = "libthere-is-none.so.1";
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, render_start(false));
    EXPECT_EQ(-1, render_start(true));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("libegl1 and libgl1-mesa-dri"));
    render_stop();
    gl_library = usual;
}

TEST(RenderStart, NothingIsDrawnBeforeIt)
{
    render_picture picture;
    std::vector<uint32_t> actors;
    scene_snapshot snapshot;
    testing::internal::CaptureStderr();
    EXPECT_EQ(-1, render_draw(&snapshot, 320, 192, &picture));
    EXPECT_EQ(-1, render_actors(&snapshot, 320, 192, &actors));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("the renderer is not started"));
    EXPECT_STREQ("", render_device());
}

TEST_F(Render, StartsOnceAndKnowsItsDevice)
{
    EXPECT_THAT(render_device(), HasSubstr("llvmpipe"));
    EXPECT_EQ(-1, render_start(false));
    EXPECT_THAT(said(), HasSubstr("started already"));
}

TEST_F(Render, GpuWithoutOneFallsBackAndSaysSo)
{
    render_stop();
    ASSERT_EQ(0, render_start(true));
    EXPECT_EQ(strstr(render_device(), "llvmpipe") != nullptr,
              said().find("no graphics card is found; drawing in software") != std::string::npos);
}

TEST_F(Render, SizesHaveBounds)
{
    scene_snapshot snapshot;
    render_picture picture;
    EXPECT_EQ(0, render_draw(&snapshot, 16, 16, &picture));
    EXPECT_EQ(16u * 16 * BANDS, picture.light.size());
    for (int bad : {15, 4097, 0, -320}) {
        EXPECT_EQ(-1, render_draw(&snapshot, bad, 192, &picture));
        EXPECT_THAT(said(), HasSubstr("sides are 16 to 4096"));
        EXPECT_EQ(-1, render_draw(&snapshot, 320, bad, &picture));
        EXPECT_THAT(said(), HasSubstr("sides are 16 to 4096"));
    }
}

TEST_F(Render, EmptySnapshotIsSky)
{
    scene_snapshot snapshot;
    const float sky[BANDS] = {10, 20, 30, 40};
    memcpy(snapshot.sky, sky, sizeof sky);
    render_picture picture;
    ASSERT_EQ(0, render_draw(&snapshot, 64, 48, &picture));
    for (size_t i = 0; i < picture.light.size(); i++)
        ASSERT_NEAR(sky[i % BANDS], picture.light[i], 1e-4f);
}

TEST_F(Render, SamePictureSameBytesAlsoAfterARestart)
{
    test_room room;
    test_room_make(&room);
    test_room_day(&room);
    render_picture first, second;
    ASSERT_EQ(0, render_draw(&room.snapshot, 320, 192, &first));
    test_room_lamp(&room);
    ASSERT_EQ(0, render_draw(&room.snapshot, 320, 192, &second));
    EXPECT_NE(first.light, second.light);
    test_room_day(&room);
    ASSERT_EQ(0, render_draw(&room.snapshot, 320, 192, &second));
    EXPECT_EQ(first.light, second.light);
    render_stop();
    ASSERT_EQ(0, render_start(false));
    ASSERT_EQ(0, render_draw(&room.snapshot, 320, 192, &second));
    EXPECT_EQ(first.light, second.light);
}

TEST_F(Render, FourBandsOfAmbientLightByReflectance)
{
    wall w;
    for (float &band : w.snapshot.ambient)
        band = 100;
    for (int band = 0; band < BANDS; band++) // 8 bits of the square root of the reflectance
        EXPECT_NEAR(w.materials[0].first[band] * 100 / PI, w.at(160, 96, band), 0.4f) << band;
}

TEST_F(Render, PointLampFallsWithTheSquareAndTheCosine)
{
    wall w;
    w.lamp(LIGHT_POINT, {0, 1, 0}, {0, 0, -1}, 100);
    EXPECT_NEAR(0.5f / PI * 100, w.at(scene_vec{0, 2, 0}), 0.4f);
    const float d2 = 1 + 0.5f * 0.5f; // half a metre aside: farther and aslant
    EXPECT_NEAR(0.5f / PI * 100 / (d2 * sqrtf(d2)), w.at(scene_vec{0.5f, 2, 0}), 0.4f);
}

TEST_F(Render, LargeLampIsWeakerNearby)
{
    wall w;
    scene_light *lamp = w.lamp(LIGHT_AREA, {0, 1, 0}, {0, 1, 0}, 100);
    lamp->size[0] = lamp->size[1] = 1;
    EXPECT_NEAR(0.5f / PI * 100 / (1 + 1 / PI), w.at(scene_vec{0, 2, 0}), 0.4f);
}

TEST_F(Render, SunIsTheSameEverywhere)
{
    wall w;
    w.lamp(LIGHT_SUN, {0, 0, 0}, scene_unit({1, 1, 0}), 1000);
    for (float x : {-1.f, 0.f, 1.f})
        EXPECT_NEAR(0.5f / PI * 1000 * sqrtf(0.5f), w.at(scene_vec{x, 2, 0}), 1.5f);
}

TEST_F(Render, ConeFallsToHalfAtItsHalfAngle)
{
    wall w;
    scene_light *lamp = w.lamp(LIGHT_SPOT, {0, 1, 0}, {0, 1, 0}, 100);
    lamp->half_angle = 30;
    const float tangent = tanf(30 * PI / 180), d2 = 1 + tangent * tangent;
    EXPECT_NEAR(0.5f / PI * 100, w.at(scene_vec{0, 2, 0}), 0.6f);
    EXPECT_NEAR(0.5f / PI * 50 / (d2 * sqrtf(d2)), w.at(scene_vec{tangent, 2, 0}), 0.4f);
}

TEST_F(Render, WindowLetsLightThroughOnlyInItsRectangle)
{
    wall w;
    scene_light *sun = w.lamp(LIGHT_SUN, {0, 0, 0}, {0, 1, 0}, 1000);
    sun->through_window = true;
    sun->window_centre = {0.5f, 1, 0};
    sun->window_u = {0.3f, 0, 0};
    sun->window_v = {0, 0, 0.2f};
    EXPECT_NEAR(0.5f / PI * 1000, w.at(scene_vec{0.5f, 2, 0}), 1.5f);
    EXPECT_NEAR(0.5f / PI * 1000, w.at(scene_vec{0.75f, 2, 0.15f}), 1.5f);
    for (scene_vec dark : {scene_vec{0.1f, 2, 0}, scene_vec{0.9f, 2, 0}, scene_vec{0.5f, 2, 0.3f},
                           scene_vec{0.5f, 2, -0.3f}, scene_vec{-0.5f, 2, 0}})
        EXPECT_NEAR(0, w.at(dark), 0.1f) << dark.x << ' ' << dark.z;
    sun->window_centre = {0, 3, 0}; // behind the wall: not on the light's way
    sun->direction = {0, -1, 0};
    EXPECT_NEAR(0, w.at(scene_vec{0, 2, 0}), 0.1f);
}

TEST_F(Render, LightFromBehindComesThroughByItsShare)
{
    wall w;
    w.lamp(LIGHT_SUN, {0, 0, 0}, {0, -1, 0}, 1000);
    EXPECT_NEAR(0, w.at(scene_vec{0, 2, 0}), 0.1f);
    w.materials[0].through = 16 / 31.f; // in steps of 1 / 31
    EXPECT_NEAR(0.5f / PI * 1000 * 16 / 31, w.at(scene_vec{0, 2, 0}), 1.5f);
}

TEST_F(Render, EmissionNeedsNoLight)
{
    wall w;
    const float glow[BANDS] = {1, 2, 3, 4};
    memcpy(w.materials[0].emission, glow, sizeof glow);
    for (int band = 0; band < BANDS; band++)
        EXPECT_NEAR(glow[band], w.at(160, 96, band), 1e-4f);
}

TEST_F(Render, GlossShinesWhereTheLampIsMirrored)
{
    wall w;
    w.materials[0] = test_material(0.1f, 0.1f, 0.1f, 0.1f);
    w.lamp(LIGHT_POINT, {0.5f, 1, 0}, {0, 0, -1}, 100);
    const float matt = w.at(scene_vec{0.333f, 2, 0}), matt_aside = w.at(scene_vec{-1, 2, 0});
    w.materials[0].gloss = 1;
    EXPECT_GT(w.at(scene_vec{0.333f, 2, 0}),
              3 * matt); // from the eye 2 m off and the lamp 1 m off: a third of the way
    EXPECT_NEAR(matt_aside, w.at(scene_vec{-1, 2, 0}), 0.05f * matt_aside);
}

TEST_F(Render, LampOfTheGreatestShadowThrowsIt)
{
    wall w;
    test_box(&w.other, {-0.25f, 1.4f, -0.25f}, {0.25f, 1.6f, 0.25f}, 1, false);
    w.add(&w.other);
    w.snapshot.view.position = {-1.5f, 0, 0};
    w.snapshot.view.pan = 30;
    w.lamp(LIGHT_SUN, {0, 0, 0}, {0, 1, 0}, 1000)->shadow = 1;
    const float full = 0.5f / PI * 1000;
    EXPECT_NEAR(0, w.at(scene_vec{0, 2, 0}), 0.1f);
    EXPECT_NEAR(full, w.at(scene_vec{-0.8f, 2, 0}), 1.5f);
    w.lamp(LIGHT_SUN, {0, 0, 0}, {0, 1, 0}, 1000)->shadow = 0; // a second one, without
    EXPECT_NEAR(full, w.at(scene_vec{0, 2, 0}), 1.5f);
    w.snapshot.lights[1].shadow = 2; // now that one's is drawn, and the first has none
    w.snapshot.lights[1].strength[0] = 500;
    EXPECT_NEAR(full, w.at(scene_vec{0, 2, 0}), 1.5f);
    w.snapshot.objects[1].shadow = false;
    EXPECT_NEAR(1.5f * full, w.at(scene_vec{0, 2, 0}), 2);
}

TEST_F(Render, ShadesThrowNoShadowFromTheirLampButFromTheSun)
{
    wall w;
    w.materials[1].through = 0.3f;
    test_box(&w.other, {-0.25f, 1.4f, -0.25f}, {0.25f, 1.6f, 0.25f}, 1, false);
    w.add(&w.other);
    w.snapshot.view.position = {-1.5f, 0, 0};
    w.snapshot.view.pan = 30;
    scene_light *lamp = w.lamp(LIGHT_SPOT, {0, 1, 0}, {0, 1, 0}, 100);
    lamp->shadow = 1;
    EXPECT_GT(w.at(scene_vec{0, 2, 0}), 10);
    lamp->kind = LIGHT_SUN;
    EXPECT_NEAR(0, w.at(scene_vec{0, 2, 0}), 0.1f);
}

TEST_F(Render, BacksAreSeenOnlyOfTwoSidedObjects)
{
    wall w;
    w.materials[0].emission[0] = 5;
    w.snapshot.view.position = {0, 4, 0};
    w.snapshot.view.pan = 180;
    EXPECT_NEAR(0, w.at(160, 96), 1e-4f);
    w.snapshot.objects[0].two_sided = true;
    EXPECT_NEAR(5, w.at(160, 96), 1e-4f);
    w.lamp(LIGHT_SUN, {0, 0, 0}, {0, -1, 0}, 1000); // onto the back: its normal is turned too
    EXPECT_NEAR(5 + 0.5f / PI * 1000, w.at(160, 96), 1.5f);
}

TEST_F(Render, PointsAreDrawnWhereTheProjectionPutsThem)
{
    for (float k : {-0.12f, 0.f, 0.2f})
        for (scene_vec dot : {scene_vec{0, 3, 0}, scene_vec{1.9f, 3, 1}, scene_vec{-2.5f, 3, -1.4f}}) {
            wall w;
            w.materials[0] = test_material(0, 0, 0, 0);
            w.materials[1].emission[0] = 1000;
            w.snapshot.objects.clear();
            w.snapshot.view.distortion = k;
            w.snapshot.view.tilt = 5;
            test_box(&w.other, dot - scene_vec{0.02f, 0.02f, 0.02f}, dot + scene_vec{0.02f, 0.02f, 0.02f}, 1,
                     false);
            w.add(&w.other);
            render_picture picture;
            ASSERT_EQ(0, render_draw(&w.snapshot, 320, 192, &picture));
            float sum = 0, x = 0, y = 0;
            for (int i = 0; i < 320 * 192; i++) {
                const float light = picture.light[static_cast<size_t>(i * BANDS)];
                sum += light;
                x += light * (static_cast<float>(i % 320) + 0.5f);
                y += light * (static_cast<float>(i / 320) + 0.5f);
            }
            scene_point pixel;
            ASSERT_TRUE(scene_project(scene_lens_of(&w.snapshot.view, 320, 192), dot, &pixel));
            ASSERT_GT(sum, 0);
            EXPECT_NEAR(pixel.x, x / sum, 0.3f) << k << ' ' << dot.x;
            EXPECT_NEAR(pixel.y, y / sum, 0.3f) << k << ' ' << dot.x;
        }
}

TEST_F(Render, ActorsAreToldByTheNearestOne)
{
    wall w;
    w.snapshot.objects[0].actor = 3;
    test_box(&w.other, {0, 1, -0.5f}, {0.5f, 1.2f, 0.5f}, 1, false); // seen from x 160 to 240, y 16 to 176
    w.add(&w.other)->actor = 70000;
    std::vector<uint32_t> actors;
    ASSERT_EQ(0, render_actors(&w.snapshot, 320, 192, &actors));
    const auto at = [&](int x, int y) { return actors[static_cast<size_t>(y * 320 + x)]; };
    EXPECT_EQ(3u, at(158, 96));
    EXPECT_EQ(70000u, at(161, 96));
    EXPECT_EQ(70000u, at(238, 96));
    EXPECT_EQ(3u, at(241, 96));
    EXPECT_EQ(3u, at(200, 14));
    EXPECT_EQ(70000u, at(200, 17));
    EXPECT_EQ(70000u, at(200, 174));
    EXPECT_EQ(3u, at(200, 177));
    w.snapshot.objects[0].actor = 0;
    ASSERT_EQ(0, render_actors(&w.snapshot, 320, 192, &actors));
    EXPECT_EQ(0u, at(10, 96));
}

// Mean and spread of a patch in the middle.
void patch(wall *w, float *mean, float *spread)
{
    render_picture picture;
    ASSERT_EQ(0, render_draw(&w->snapshot, 320, 192, &picture));
    float sum = 0, squares = 0;
    for (int y = 60; y < 132; y++)
        for (int x = 100; x < 220; x++) {
            const float light = picture.light[static_cast<size_t>((y * 320 + x) * BANDS)] * PI / 100;
            sum += light;
            squares += light * light;
        }
    const float count = 72 * 120;
    *mean = sum / count;
    *spread = sqrtf(fmaxf(squares / count - *mean * *mean, 0));
}

TEST_F(Render, PatternsLieBetweenTheirColoursAndVary)
{
    wall w;
    w.snapshot.ambient[0] = 100;
    w.materials[0].first[0] = 0.2f;
    w.materials[0].second[0] = 0.8f;
    w.materials[0].size = 0.25f;
    for (int pattern = PATTERN_PLAIN; pattern <= PATTERN_WEAVE; pattern++) {
        w.materials[0].pattern = static_cast<scene_pattern>(pattern);
        float mean, spread;
        patch(&w, &mean, &spread);
        EXPECT_GT(mean, 0.15f) << pattern;
        EXPECT_LT(mean, 0.7f) << pattern;
        if (pattern == PATTERN_PLAIN)
            EXPECT_LT(spread, 0.01f);
        else
            EXPECT_GT(spread, 0.04f) << pattern;
    }
}

TEST_F(Render, FinePatternsFadeToTheirMean)
{
    wall w;
    w.snapshot.ambient[0] = 100;
    w.materials[0].first[0] = 0.2f;
    w.materials[0].second[0] = 0.8f;
    w.materials[0].size = 0.004f; // a third of a pixel
    for (int pattern : {PATTERN_STRIPES_U, PATTERN_STRIPES_V, PATTERN_CHECKS, PATTERN_PLAID, PATTERN_NOISE}) {
        w.materials[0].pattern = static_cast<scene_pattern>(pattern);
        float mean, spread;
        patch(&w, &mean, &spread);
        EXPECT_NEAR(0.5f, mean, 0.08f) << pattern;
        EXPECT_LT(spread, 0.05f) << pattern;
    }
}

TEST_F(Render, ScreenMovesAndThePosterDoesNot)
{
    for (int pattern : {PATTERN_SCREEN, PATTERN_PICTURE, PATTERN_PERSON}) {
        wall w;
        w.mesh = {};
        test_sheet(&w.mesh, {-1, 2, -1}, {2, 0, 0}, {0, 0, 2}, 0, false);
        w.snapshot.ambient[0] = w.snapshot.ambient[1] = w.snapshot.ambient[2] = 100;
        for (int band = 0; band < BAND_INFRARED; band++)
            w.materials[0].emission[band] = pattern == PATTERN_SCREEN ? 100 : 0;
        w.materials[0].pattern = static_cast<scene_pattern>(pattern);
        w.materials[0].seed = 4;
        render_picture first, second;
        ASSERT_EQ(0, render_draw(&w.snapshot, 320, 192, &first));
        w.snapshot.time = 5;
        ASSERT_EQ(0, render_draw(&w.snapshot, 320, 192, &second));
        EXPECT_EQ(pattern == PATTERN_SCREEN, first.light != second.light) << pattern;
        w.materials[0].seed = 5;
        ASSERT_EQ(0, render_draw(&w.snapshot, 320, 192, &first));
        EXPECT_NE(first.light, second.light) << pattern;
    }
}

TEST_F(Render, FaultyMeshesLoseOnlyTheirFaultyTriangles)
{
    wall w;
    w.materials[0].emission[0] = 5;
    w.mesh.indices.insert(w.mesh.indices.begin(), {0, 1, 99, 4000000000u, 0, 1});
    w.mesh.indices.push_back(0); // not a whole triangle
    w.mesh.vertices[0].material = 77;
    w.materials[0].pattern = static_cast<scene_pattern>(99);
    scene_object nothing;
    w.snapshot.objects.push_back(nothing);
    EXPECT_NEAR(5, w.at(100, 60), 1e-4f);
    EXPECT_NEAR(5, w.at(220, 132), 1e-4f);
}

TEST_F(Render, MoreThanCanBeDrawnIsSaid)
{
    wall w;
    render_picture picture;
    w.snapshot.objects.resize(SHADER_OBJECTS_MAX);
    EXPECT_EQ(0, render_draw(&w.snapshot, 64, 48, &picture));
    w.snapshot.objects.resize(SHADER_OBJECTS_MAX + 1);
    EXPECT_EQ(-1, render_draw(&w.snapshot, 64, 48, &picture));
    EXPECT_THAT(said(), HasSubstr("the scene has 1024 objects, more than the 1023 that can be drawn"));
    w.snapshot.objects.resize(1);
    w.materials.resize(SHADER_MATERIALS_MAX);
    EXPECT_EQ(0, render_draw(&w.snapshot, 64, 48, &picture));
    w.materials.resize(SHADER_MATERIALS_MAX + 1);
    EXPECT_EQ(-1, render_draw(&w.snapshot, 64, 48, &picture));
    EXPECT_THAT(said(), HasSubstr("the scene has too many materials to be drawn"));
}

TEST_F(Render, ManyLampsAreDrawnByTheStrongest)
{
    wall w;
    for (int i = 0; i < 60; i++)
        w.lamp(LIGHT_POINT, {0, 1, 0}, {0, 0, -1}, i < 50 ? 0.01f : 10);
    EXPECT_NEAR(0.5f / PI * 100, w.at(scene_vec{0, 2, 0}), 1);
}

TEST_F(Render, LampsThatComeAndGoKeepNoOldLight)
{
    wall w;
    for (int lamps : {0, 1, 2, 3, 4, 5, 6, 7, 8, 7, 0, 1}) { // more sets of lamps than programs are kept
        w.snapshot.lights.clear();
        for (int i = 0; i < lamps; i++)
            w.lamp(i % 2 ? LIGHT_SPOT : LIGHT_POINT, {0, 1, 0}, {0, 1, 0}, 10);
        EXPECT_NEAR(0.5f / PI * 10 * static_cast<float>(lamps), w.at(scene_vec{0, 2, 0}), 0.5f) << lamps;
    }
}

TEST_F(Render, LargerPicturesShowTheSame)
{
    test_room room;
    test_room_make(&room);
    test_room_lamp(&room);
    render_picture small, large;
    ASSERT_EQ(0, render_draw(&room.snapshot, 320, 192, &small));
    ASSERT_EQ(0, render_draw(&room.snapshot, 1280, 768, &large));
    double off = 0, sum = 0;
    for (int y = 0; y < 192; y++)
        for (int x = 0; x < 320; x++) {
            float mean = 0;
            for (int i = 0; i < 16; i++)
                mean +=
                    large.light[static_cast<size_t>(((y * 4 + i / 4) * 1280 + x * 4 + i % 4) * BANDS)] / 16;
            const float here = small.light[static_cast<size_t>((y * 320 + x) * BANDS)];
            off += fabsf(mean - here);
            sum += here;
        }
    EXPECT_LT(off / sum, 0.05);
}

TEST_F(Render, PicturesLeaveNothingBehind)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer's own allocator is not counted here, and finds leaks itself";
#else
    test_room room;
    test_room_make(&room);
    test_room_day(&room);
    render_picture picture;
    const auto draw = [&](int pictures) {
        for (int i = 0; i < pictures; i++) {
            test_room_put_man(&room, 1.5f + static_cast<float>(i % 7) * 0.1f, 3);
            ASSERT_EQ(0, render_draw(&room.snapshot, 64, 48, &picture));
        }
    };
    draw(50);
    const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    draw(400);
    const size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
    EXPECT_LT(after, before + 100 * 1024); // of 400 pictures' 6 MB of vertices alone
#endif
}
} // namespace
