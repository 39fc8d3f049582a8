// The building blocks: closed, outside out, of the size asked for.
#include "shapes.h"

#include "mesh_checks.h"
#include "stuff.h"

static scene_mesh mesh;
static shape_maker maker = {&mesh, {}, 0};

TEST(shapes, a_plain_box_is_closed_and_has_12_triangles)
{
    shape_box(&maker, {-1, -2, 0}, {1, 2, 3});
    expect_sound(mesh, 1, "box");
    expect_facing(mesh, 0, "box");
    EXPECT_EQ(shape_triangles(&mesh), 12);
    EXPECT_NEAR(six_volumes(mesh) / 6, 24, 1e-4);
}

TEST(shapes, a_box_with_bevels_loses_its_edges_only)
{
    shape_box(&maker, {0, 0, 0}, {1, 1, 1}, 0.1f);
    expect_sound(mesh, 1, "box");
    expect_facing(mesh, 0, "box");
    EXPECT_EQ(shape_triangles(&mesh), 44);
    // Twelve edges of length 0.8 lose half of 0.1 x 0.1, eight corners five sixths of 0.1 cubed.
    EXPECT_NEAR(six_volumes(mesh) / 6, 1 - 12 * 0.8 * 0.005 - 8 * 0.001 * 5 / 6, 1e-4);
    const mesh_box box = box_of(mesh);
    EXPECT_FLOAT_EQ(box.low.x, 0);
    EXPECT_FLOAT_EQ(box.high.z, 1);
}

TEST(shapes, a_bevel_is_cut_to_what_the_box_allows)
{
    shape_box(&maker, {0, 0, 0}, {1, 1, 0.1f}, 5);
    expect_sound(mesh, 1, "box");
    expect_facing(mesh, 0, "box");
    EXPECT_GT(six_volumes(mesh), 0);
}

TEST(shapes, a_board_shows_four_sides_outwards)
{
    shape_board(&maker, {0, 0, 0}, {1, 2, 3});
    expect_facing(mesh, 0, "board");
    EXPECT_EQ(shape_triangles(&mesh), 8);
    for (const scene_vertex &v : mesh.vertices)
        EXPECT_GE(v.normal.x * (v.position.x - 0.5f) + v.normal.y * (v.position.y - 1) +
                      v.normal.z * (v.position.z - 1.5f),
                  0.4f);
}

TEST(shapes, a_ball_has_a_balls_volume)
{
    shape_ball(&maker, {1, 2, 3}, {0.5f, 0.5f, 0.5f}, 48, 24);
    expect_sound(mesh, 1, "ball");
    expect_facing(mesh, 0.001f, "ball");
    EXPECT_NEAR(six_volumes(mesh) / 6, 4.0 / 3 * M_PI / 8, 0.01);
    for (const scene_vertex &v : mesh.vertices)
        EXPECT_NEAR(scene_length(v.position - scene_vec{1, 2, 3}), 0.5f, 1e-4);
}

TEST(shapes, no_triangle_without_area_at_the_poles)
{
    shape_ball(&maker, {0, 0, 0}, {1, 1, 1}, 8, 4);
    EXPECT_EQ(shape_triangles(&mesh), 8 * 2 + 2 * 8 * 2);
    for (size_t i = 0; i < mesh.indices.size(); i += 3) {
        const scene_vec a = mesh.vertices[mesh.indices[i]].position,
                        b = mesh.vertices[mesh.indices[i + 1]].position,
                        c = mesh.vertices[mesh.indices[i + 2]].position;
        EXPECT_GT(scene_length(scene_cross(b - a, c - a)), 1e-6f);
    }
}

TEST(shapes, a_cushion_fills_more_of_its_box_the_squarer_it_is)
{
    shape_cushion(&maker, {0, 0, 0}, {1, 1, 1}, 1, 24, 12);
    const float round = six_volumes(mesh);
    mesh = {};
    shape_cushion(&maker, {0, 0, 0}, {1, 1, 1}, 0.3f, 24, 12);
    expect_sound(mesh, 1, "cushion");
    EXPECT_GT(six_volumes(mesh), round * 1.3f);
    EXPECT_LT(six_volumes(mesh), 48);
}

TEST(shapes, a_cylinder_stands_on_its_bottom)
{
    shape_cylinder(&maker, {1, 1, 2}, 0.5f, 3, 64);
    expect_sound(mesh, 1, "cylinder");
    expect_facing(mesh, 0, "cylinder");
    EXPECT_NEAR(six_volumes(mesh) / 6, M_PI * 0.25 * 3, 0.01);
    EXPECT_FLOAT_EQ(box_of(mesh).low.z, 2);
    EXPECT_FLOAT_EQ(box_of(mesh).high.z, 5);
    EXPECT_EQ(shape_triangles(&mesh), 64 * 4);
}

TEST(shapes, a_rod_is_closed_whichever_way_it_goes)
{
    const scene_vec ways[5] = {{0, 0, 1}, {0, 0, -1}, {1, 0, 0}, {0, 1, 0}, {-1, -2, 3}};
    for (const scene_vec &way : ways) {
        mesh = {};
        shape_rod(&maker, {0.1f, 0.2f, 0.3f}, scene_vec{0.1f, 0.2f, 0.3f} + way, 0.2f, 32);
        expect_sound(mesh, 1, "rod");
        expect_facing(mesh, 0, "rod");
        EXPECT_NEAR(six_volumes(mesh) / 6, M_PI * 0.04 * static_cast<double>(scene_length(way)), 0.02);
    }
}

TEST(shapes, a_tube_is_wide_across_and_high_along_up)
{
    const shape_section sections[3] = {
        {{0, 0, 0}, 0.3f, 0.1f}, {{0, 1, 0}, 0.3f, 0.1f}, {{0, 2, 0}, 0.3f, 0.1f}};
    shape_tube(&maker, sections, 3, {0, 0, 1}, 16);
    expect_facing(mesh, 0, "tube");
    const mesh_box box = box_of(mesh);
    EXPECT_NEAR(box.high.x, 0.3, 1e-4);
    EXPECT_NEAR(box.high.z, 0.1, 1e-4);
    EXPECT_NEAR(box.low.y, 0, 1e-4);
    EXPECT_NEAR(box.high.y, 2, 1e-4);
}

TEST(shapes, grain_runs_along_the_longer_side)
{
    shape_quad(&maker, {0, 0, 0}, {1, 0, 0}, {1, 0, 3}, {0, 0, 3});
    for (const scene_vertex &v : mesh.vertices) {
        EXPECT_FLOAT_EQ(v.u, v.position.z);
        EXPECT_FLOAT_EQ(v.v, v.position.x);
    }
    mesh = {};
    shape_quad(&maker, {0, 0, 0}, {3, 0, 0}, {3, 0, 1}, {0, 0, 1});
    for (const scene_vertex &v : mesh.vertices) {
        EXPECT_FLOAT_EQ(v.u, v.position.x);
        EXPECT_FLOAT_EQ(v.v, v.position.z);
    }
}

TEST(shapes, a_picture_goes_from_0_to_1_upwards)
{
    shape_picture(&maker, {0, 0, 0}, {2, 0, 0}, {2, 0, 5}, {0, 0, 5});
    for (const scene_vertex &v : mesh.vertices) {
        EXPECT_FLOAT_EQ(v.u, v.position.x / 2);
        EXPECT_FLOAT_EQ(v.v, v.position.z / 5);
    }
}

TEST(shapes, the_makers_place_turns_points_and_normals)
{
    maker.place = scene_standing({10, 20, 1}, 90); // y looks along x
    maker.material = 7;
    shape_box(&maker, {-1, 0, 0}, {1, 3, 1});
    expect_sound(mesh, 8, "box");
    expect_facing(mesh, 0, "box");
    const mesh_box box = box_of(mesh);
    EXPECT_NEAR(box.low.x, 10, 1e-4);
    EXPECT_NEAR(box.high.x, 13, 1e-4);
    EXPECT_NEAR(box.low.y, 19, 1e-4);
    EXPECT_EQ(mesh.vertices[0].material, 7u);
}

TEST(stuff, every_material_reflects_between_nothing_and_all)
{
    for (int i = 0; i < STUFFS; i++) {
        ASSERT_GT(stuff_variants(static_cast<stuff>(i)), 0) << i;
        for (uint32_t seed = 0; seed < 20; seed++) {
            const scene_material material = stuff_material(static_cast<stuff>(i), seed);
            for (int band = 0; band < BANDS; band++) {
                EXPECT_GT(material.first[band], 0.005f) << i;
                EXPECT_LT(material.first[band], 0.85f) << i;
                EXPECT_GT(material.second[band], 0.005f) << i;
                EXPECT_LT(material.second[band], 0.85f) << i;
                EXPECT_EQ(material.emission[band], 0) << i;
            }
            EXPECT_GT(material.size, 0) << i;
        }
    }
}

static float visible(const scene_material &m)
{
    return 0.2126f * m.first[0] + 0.7152f * m.first[1] + 0.0722f * m.first[2];
}

TEST(stuff, infrared_is_as_the_materials_are)
{
    for (uint32_t seed = 0; seed < 8; seed++) {
        const scene_material leaf = stuff_material(STUFF_LEAF, seed), sofa = stuff_material(STUFF_SOFA, seed),
                             wood = stuff_material(STUFF_DARK_WOOD, seed),
                             wall = stuff_material(STUFF_WALL, seed),
                             glass = stuff_material(STUFF_GLASS_DARK, seed);
        EXPECT_GT(leaf.first[BAND_INFRARED], 4 * visible(leaf)); // chlorophyll takes visible light only
        EXPECT_GT(sofa.first[BAND_INFRARED], 1.5f * visible(sofa));
        EXPECT_GT(wood.first[BAND_INFRARED], 2 * visible(wood));
        EXPECT_NEAR(wall.first[BAND_INFRARED], visible(wall), 0.2);
        EXPECT_LT(glass.first[BAND_INFRARED], 0.05f);
    }
}

TEST(stuff, seeds_choose_among_the_variants_and_the_same_seed_the_same)
{
    bool differ = false;
    for (uint32_t seed = 0; seed < 16; seed++) {
        const scene_material once = stuff_material(STUFF_SOFA, seed),
                             again = stuff_material(STUFF_SOFA, seed);
        for (int band = 0; band < BANDS; band++)
            EXPECT_EQ(once.first[band], again.first[band]);
        EXPECT_EQ(once.seed, again.seed);
        differ = differ || once.first[0] != stuff_material(STUFF_SOFA, 0).first[0];
    }
    EXPECT_TRUE(differ);
    EXPECT_EQ(stuff_variants(static_cast<stuff>(STUFFS)), 0);
}
