// Who covers which pixel: places, nearness, faces, the lens, and what lies outside the picture.
#include "mask.h"

#include <algorithm>
#include <gtest/gtest.h>

#include "world.h"

namespace
{

// An upright plate of `size` metres square, its middle at `at`, its face towards -y, where the camera is.
struct plate {
    scene_mesh mesh;
    scene_object object;
    plate(scene_vec at, float width, float height, uint32_t actor)
    {
        for (int i = 0; i < 4; i++)
            mesh.vertices.push_back(
                {{at.x + (i & 1 ? width : -width) / 2, at.y, at.z + (i & 2 ? height : -height) / 2},
                 {0, -1, 0},
                 0,
                 0,
                 0});
        mesh.indices = {0, 1, 3, 0, 3, 2};
        object.mesh = &mesh;
        object.actor = actor;
    }
};

scene_snapshot looking()
{
    scene_snapshot s;
    s.view.position = {0, 0, 1};
    s.view.width_angle = 90;
    s.view.distortion = 0;
    return s;
}

size_t count_of(const std::vector<uint32_t> &mask, uint32_t actor)
{
    return static_cast<size_t>(std::count(mask.begin(), mask.end(), actor));
}

TEST(Mask, APlateCoversItsPixels)
{
    // 90 degrees on 320 pixels: at 2 m a metre is 80 pixels.
    plate p({0, 2, 1}, 1, 0.5f, 3);
    scene_snapshot s = looking();
    s.objects = {p.object};
    std::vector<uint32_t> mask;
    world_mask(&s, 320, 192, &mask);
    ASSERT_EQ(mask.size(), 320u * 192);
    EXPECT_EQ(count_of(mask, 3), 80u * 40);
    EXPECT_EQ(mask[96 * 320 + 120], 3u);
    EXPECT_EQ(mask[96 * 320 + 119], 0u);
    EXPECT_EQ(mask[96 * 320 + 199], 3u);
    EXPECT_EQ(mask[96 * 320 + 200], 0u);
    EXPECT_EQ(mask[76 * 320 + 160], 3u);
    EXPECT_EQ(mask[75 * 320 + 160], 0u);
    EXPECT_EQ(mask[115 * 320 + 160], 3u);
    EXPECT_EQ(mask[116 * 320 + 160], 0u);
}

TEST(Mask, RightIsRightAndUpIsUp)
{
    plate p({1, 2, 1.6f}, 0.2f, 0.2f, 1);
    scene_snapshot s = looking();
    s.objects = {p.object};
    std::vector<uint32_t> mask;
    world_mask(&s, 320, 192, &mask);
    EXPECT_EQ(mask[48 * 320 + 240], 1u);
    s.view.pan = 26.565f; // turned to it
    world_mask(&s, 320, 192, &mask);
    EXPECT_EQ(mask[53 * 320 + 160], 1u);
    s.view.tilt = 15.02f;
    world_mask(&s, 320, 192, &mask);
    EXPECT_EQ(mask[96 * 320 + 160], 1u);
}

TEST(Mask, TheNearerHides)
{
    plate far({0, 4, 1}, 2, 2, 1), near({0.25f, 2, 1}, 0.5f, 0.5f, 2);
    scene_snapshot s = looking();
    std::vector<uint32_t> one, other;
    s.objects = {far.object, near.object};
    world_mask(&s, 320, 192, &one);
    s.objects = {near.object, far.object};
    world_mask(&s, 320, 192, &other);
    EXPECT_EQ(one, other) << "whatever is drawn first";
    EXPECT_EQ(count_of(one, 2), 40u * 40);
    EXPECT_EQ(count_of(one, 1), 80u * 80 - 40 * 40);
}

TEST(Mask, BacksAreSeenOnlyOfTwoSidedThings)
{
    plate p({0, 2, 1}, 1, 1, 1);
    std::swap(p.mesh.indices[1], p.mesh.indices[2]);
    std::swap(p.mesh.indices[4], p.mesh.indices[5]);
    scene_snapshot s = looking();
    s.objects = {p.object};
    std::vector<uint32_t> mask;
    world_mask(&s, 320, 192, &mask);
    EXPECT_EQ(count_of(mask, 1), 0u);
    s.objects[0].two_sided = true;
    world_mask(&s, 320, 192, &mask);
    EXPECT_EQ(count_of(mask, 1), 6400u);
}

TEST(Mask, WhatIsBehindIsNotSeen)
{
    plate p({0, -2, 1}, 1, 1, 1);
    p.object.two_sided = true;
    scene_snapshot s = looking();
    s.objects = {p.object};
    std::vector<uint32_t> mask;
    world_mask(&s, 320, 192, &mask);
    EXPECT_EQ(count_of(mask, 1), 0u);
}

TEST(Mask, WhatPassesTheLensIsCutNotLost)
{
    // A floor from behind the camera to far before it, half a metre below: it fills all below the horizon but a bit.
    scene_mesh floor;
    for (int i = 0; i < 4; i++)
        floor.vertices.push_back({{i & 1 ? 50.f : -50.f, i & 2 ? 500.f : -5.f, 0.5f}, {0, 0, 1}, 0, 0, 0});
    floor.indices = {0, 1, 3, 0, 3, 2};
    scene_object object;
    object.mesh = &floor;
    object.actor = 1;
    scene_snapshot s = looking();
    s.objects = {object};
    std::vector<uint32_t> mask;
    world_mask(&s, 320, 192, &mask);
    EXPECT_EQ(mask[90 * 320 + 160], 0u);
    for (int row = 98; row < 192; row++)
        EXPECT_EQ(mask[static_cast<size_t>(row) * 320 + 160], 1u) << row;
}

TEST(Mask, AgreesWithTheLens)
{
    for (const float distortion : {-0.12f, -0.08f, 0.2f}) {
        scene_snapshot s = looking();
        s.view.distortion = distortion;
        s.view.pan = 7;
        s.view.tilt = -9;
        const scene_lens lens = scene_lens_of(&s.view, 320, 192);
        for (float x = -2; x <= 2; x += 0.5f) {
            const scene_vec at = {x, 2.4f, 0.6f};
            plate p(at, 0.1f, 0.1f, 1);
            s.objects = {p.object};
            std::vector<uint32_t> mask;
            world_mask(&s, 320, 192, &mask);
            scene_point pixel;
            ASSERT_TRUE(scene_project(lens, at, &pixel));
            const int column = static_cast<int>(floorf(pixel.x)), row = static_cast<int>(floorf(pixel.y));
            if (column >= 0 && column < 320 && row >= 0 && row < 192) {
                EXPECT_EQ(mask[static_cast<size_t>(row * 320 + column)], 1u) << distortion << " " << x;
            } else {
                EXPECT_LE(count_of(mask, 1), 12u);
            }
        }
    }
}

TEST(Mask, LongEdgesAreNotCutOffWhereTheLensBowsThem)
{
    // One large triangle pair against the same plate in many small pieces.
    scene_snapshot s = looking();
    s.view.distortion = -0.12f;
    plate whole({0, 1.3f, 1}, 2.4f, 1.3f, 1);
    s.objects = {whole.object};
    std::vector<uint32_t> one, pieces;
    world_mask(&s, 320, 192, &one);
    std::vector<plate *> parts;
    s.objects.clear();
    for (int i = 0; i < 24; i++)
        for (int k = 0; k < 13; k++) {
            parts.push_back(
                new plate({-1.15f + 0.1f * static_cast<float>(i), 1.3f, 0.4f + 0.1f * static_cast<float>(k)},
                          0.1f, 0.1f, 1));
            s.objects.push_back(parts.back()->object);
        }
    world_mask(&s, 320, 192, &pieces);
    for (plate *part : parts)
        delete part;
    size_t differ = 0;
    for (size_t i = 0; i < one.size(); i++)
        differ += one[i] != pieces[i];
    EXPECT_LE(differ, 60u) << "only along the rim, where corners lie on the grid";
}

TEST(Mask, CountsWhatIsOutsideThePictureToo)
{
    scene_snapshot s = looking();
    const scene_lens lens = scene_lens_of(&s.view, 320, 192);
    mask_canvas canvas;
    mask_prepare(&canvas, lens, true);
    EXPECT_EQ(canvas.columns, 960);
    EXPECT_EQ(canvas.rows, 576);
    plate half({2, 2, 1}, 1, 1, 1); // its middle on the right edge
    uint64_t alone = 0;
    mask_count_new(&canvas);
    mask_draw(&canvas, lens, half.object, &alone);
    const size_t seen = static_cast<size_t>(std::count(canvas.actor.begin(), canvas.actor.end(), 1u));
    EXPECT_EQ(seen, 40u * 80);
    // Beyond the edge directions are spaced as the tangent there says, which without distortion is no change.
    EXPECT_NEAR(static_cast<double>(alone), 6400, 100);
    uint64_t again = 0;
    mask_draw(&canvas, lens, half.object, &again);
    EXPECT_EQ(again, 0u) << "each pixel once";
    mask_count_new(&canvas);
    mask_draw(&canvas, lens, half.object, &again);
    EXPECT_EQ(again, alone);
}

TEST(Mask, BrokenMeshesAreLeftOut)
{
    plate p({0, 2, 1}, 1, 1, 1);
    p.mesh.indices = {0, 1, 9, 0, 3, 2, 1};
    scene_snapshot s = looking();
    s.objects = {p.object};
    std::vector<uint32_t> mask;
    world_mask(&s, 320, 192, &mask);
    EXPECT_NEAR(static_cast<double>(count_of(mask, 1)), 3200, 60) << "the triangle that is whole";
}

} // namespace
