// Turns, the skeleton, lofts and their weights.
#include <gtest/gtest.h>

#include "posed.h"

namespace
{
void expect_near(scene_vec a, scene_vec b, float by = 1e-4f)
{
    EXPECT_NEAR(a.x, b.x, by);
    EXPECT_NEAR(a.y, b.y, by);
    EXPECT_NEAR(a.z, b.z, by);
}

TEST(Turn, SignsAreAsSaid)
{
    expect_near(turn_apply(turn_x(90), {0, 0, -1}), {0, 1, 0});               // what hangs comes forward
    expect_near(turn_apply(turn_y(90), {0, 0, -1}), {-1, 0, 0});              // to the left
    expect_near(turn_apply(turn_z(90), {0, 1, 0}), {-1, 0, 0});               // turns to the left
    expect_near(turn_apply(turn_z(90) * turn_x(90), {0, 0, -1}), {-1, 0, 0}); // first the second
    expect_near(turn_apply(turn_back(turn_x(40)) * turn_x(40), {1, 2, 3}), {1, 2, 3});
}

TEST(Turn, PlacesGoThereAndBack)
{
    const turn turns[] = {turn_x(10), turn_x(170) * turn_y(20), turn_y(175) * turn_z(30),
                          turn_z(178) * turn_x(-20), turn_z(-90)};
    for (const turn &t : turns) {
        const scene_place p = turn_place(t, {4, 5, 6});
        const turn back = turn_of(p);
        expect_near(turn_apply(back, {.3f, -.2f, .9f}), scene_turn(p, {.3f, -.2f, .9f}));
        expect_near(p.origin, {4, 5, 6});
    }
}

TEST(Turn, MixesTheShortWay)
{
    expect_near(turn_apply(turn_mix(turn_z(0), turn_z(80), 0.5f), {0, 1, 0}),
                turn_apply(turn_z(40), {0, 1, 0}));
    turn other = turn_z(80);
    other = {-other.w, -other.x, -other.y, -other.z}; // the same rotation
    expect_near(turn_apply(turn_mix(turn_z(0), other, 0.5f), {0, 1, 0}), turn_apply(turn_z(40), {0, 1, 0}));
    expect_near(turn_apply(turn_mix(turn_z(10), turn_z(80), 0), {0, 1, 0}),
                turn_apply(turn_z(10), {0, 1, 0}));
    expect_near(turn_apply(turn_mix(turn_z(10), turn_z(80), 1), {0, 1, 0}),
                turn_apply(turn_z(80), {0, 1, 0}));
}

TEST(Turn, ClampedAndSmooth)
{
    EXPECT_FLOAT_EQ(clamped(NAN, 2, 3), 2);
    EXPECT_FLOAT_EQ(clamped(4, 2, 3), 3);
    EXPECT_FLOAT_EQ(clamped(1, 2, 3), 2);
    EXPECT_FLOAT_EQ(smooth(1, 3, 0), 0);
    EXPECT_FLOAT_EQ(smooth(1, 3, 2), 0.5f);
    EXPECT_FLOAT_EQ(smooth(1, 3, 4), 1);
    EXPECT_FLOAT_EQ(smooth(3, 1, 4), 0); // falling
    EXPECT_FLOAT_EQ(smooth(3, 1, 0), 1);
}

posture upright(const figure &f)
{
    person_moment at;
    posture p = moves_upright(f, at);
    p.hips = p.waist = p.chest = p.neck = p.head = turn();
    return p;
}

TEST(Figure, SegmentsKeepTheirLengthsWhateverTheyAreAskedFor)
{
    const figure f = figure_make(1.8f, .5f, 0);
    const scene_vec asked[] = {{.1f, .3f, .1f}, {.1f, 3, 0}, {.09f, 0, .9f}, {.1f, 0, .85f}, {-2, -2, -2}};
    for (const scene_vec &a : asked) {
        posture p = upright(f);
        p.leg[FIGURE_RIGHT].ankle = a;
        scene_place b[BONES];
        figure_place(f, p, b);
        EXPECT_NEAR(scene_length(b[BONE_SHIN].origin - b[BONE_THIGH].origin), f.thigh, 1e-4f);
        EXPECT_NEAR(scene_length(b[BONE_FOOT].origin - b[BONE_SHIN].origin), f.shin, 1e-4f);
        for (const scene_place &place : b) {
            EXPECT_NEAR(scene_length(place.x), 1, 1e-4f);
            EXPECT_NEAR(scene_dot(place.x, place.y), 0, 1e-4f);
            expect_near(scene_cross(place.x, place.y), place.z, 1e-3f);
        }
    }
}

TEST(Figure, AReachableAnkleIsReachedWithTheKneeInFront)
{
    const figure f = figure_make(1.8f, .5f, 0);
    posture p = upright(f);
    p.leg[FIGURE_LEFT].ankle = {-.1f, .25f, .3f};
    p.leg[FIGURE_LEFT].knee = {0, 1, 0};
    scene_place b[BONES];
    figure_place(f, p, b);
    const int foot = figure_bone_of(FIGURE_LEFT, BONE_FOOT), shin = figure_bone_of(FIGURE_LEFT, BONE_SHIN);
    expect_near(b[foot].origin, {-.1f, .25f, .3f});
    EXPECT_GT(b[shin].origin.y, .3f);
}

TEST(Figure, AReachableWristIsReachedWithTheElbowWhereItIsWanted)
{
    const figure f = figure_make(1.7f, .5f, 0);
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const float s = side == FIGURE_RIGHT ? 1.f : -1.f;
        posture p = upright(f);
        p.chest = turn_x(-15) * turn_z(10);
        figure_reach(f, &p, side, {s * .1f, .35f, 1.1f}, {s, 0, -.4f});
        scene_place b[BONES];
        figure_place(f, p, b);
        expect_near(b[figure_bone_of(side, BONE_HAND)].origin, {s * .1f, .35f, 1.1f}, 2e-3f);
        EXPECT_GT(s * b[figure_bone_of(side, BONE_FOREARM)].origin.x, .2f);
    }
}

TEST(Figure, HalfBonesBendByHalf)
{
    const figure f = figure_make(1.7f, .5f, 0);
    posture p = upright(f);
    p.arm[FIGURE_RIGHT].elbow = 90;
    scene_place b[BONES];
    figure_place(f, p, b);
    const float half = scene_dot(b[BONE_ELBOW].z, b[BONE_ARM].z),
                whole = scene_dot(b[BONE_FOREARM].z, b[BONE_ARM].z);
    EXPECT_GT(half, whole + .1f);
    EXPECT_NEAR(scene_dot(turn_apply(turn_x(90), {0, 0, -1}), {0, 1, 0}), 1, 1e-4f);
    EXPECT_GT(b[BONE_HAND].origin.y, b[BONE_FOREARM].origin.y + .2f); // the forearm points ahead
}

TEST(Figure, TheLowestPointOfAFootIsHeelBallOrTip)
{
    const figure f = figure_make(1.75f, .5f, 0);
    posture_leg leg = {};
    leg.ankle = {0, 0, .5f};
    EXPECT_NEAR(figure_lowest(f, leg), .5f - f.ankle, 1e-4f);
    leg.foot = turn_x(20); // toes up: on the heel
    EXPECT_NEAR(figure_lowest(f, leg), .5f + turn_apply(turn_x(20), {0, f.heel, -f.ankle}).z, 1e-4f);
    leg.foot = turn_x(-40);
    EXPECT_NEAR(figure_lowest(f, leg), .5f + turn_apply(turn_x(-40), {0, f.toe, -f.ankle}).z, 1e-4f);
    const float on_tip = figure_lowest(f, leg);
    leg.toes = 40; // flat toes, whose root lies a centimetre above the sole: nearly on the ball
    const float ball = .5f + turn_apply(turn_x(-40), {0, f.ball, -f.ankle}).z;
    EXPECT_LE(figure_lowest(f, leg), ball);
    EXPECT_GT(figure_lowest(f, leg), ball - .006f);
    EXPECT_GT(figure_lowest(f, leg), on_tip + .03f);
}

TEST(Shape, HoldsAddUpToOneAndTheLargestStay)
{
    shape_mixer m;
    const float shares[] = {.1f, .5f, .2f, .05f, .3f};
    for (int i = 0; i < 5; i++)
        shape_hang(&m, i, shares[i]);
    shape_hang(&m, 1, .1f); // again: joins what is there
    const shape_hold h = shape_held(m);
    float sum = 0;
    for (int k = 0; k < SHAPE_BONES; k++) {
        EXPECT_NE(h.bone[k], 3);
        sum += h.share[k];
        if (h.bone[k] == 1) {
            EXPECT_NEAR(h.share[k], .6f / 1.2f, 1e-5f);
        }
    }
    EXPECT_NEAR(sum, 1, 1e-5f);
}

shape_hold held_by_none(const figure &, int, scene_vec)
{
    return shape_hold();
}

TEST(Shape, ALoftIsClosedAndLooksOutBothWaysUp)
{
    const figure f = figure_make(1.75f, .5f, 0);
    for (const float end : {1.f, -1.f})
        for (const shape_end kind : {SHAPE_ROUND, SHAPE_FLAT}) {
            shape s;
            shape_loft loft;
            for (int i = 0; i < 4; i++)
                loft.rings.push_back(shape_level({0, 0, end * static_cast<float>(i)}, .5f, .5f, .5f, 2));
            loft.segments = 24;
            loft.first = loft.last = kind;
            shape_add(&s, loft, f, 0, held_by_none);
            double volume = 0;
            for (size_t t = 0; t < s.mesh.indices.size(); t += 3) {
                const scene_vec a = s.mesh.vertices[s.mesh.indices[t]].position,
                                b = s.mesh.vertices[s.mesh.indices[t + 1]].position,
                                c = s.mesh.vertices[s.mesh.indices[t + 2]].position;
                volume += static_cast<double>(scene_dot(a, scene_cross(b, c)) / 6);
            }
            EXPECT_NEAR(volume, 3 * M_PI / 4, 0.05); // a cylinder's
            EXPECT_EQ(s.holds.size(), s.mesh.vertices.size());
        }
}

TEST(Shape, TextureRunsInMetres)
{
    const figure f = figure_make(1.75f, .5f, 0);
    shape s;
    shape_loft loft;
    loft.segments = 16;
    for (int i = 0; i < 3; i++)
        loft.rings.push_back(shape_level({0, 0, .5f * static_cast<float>(i)}, .2f, .2f, .2f, 2));
    shape_add(&s, loft, f, 0, held_by_none);
    EXPECT_NEAR(s.mesh.vertices.back().v, 1, 1e-4f);
    EXPECT_NEAR(s.mesh.vertices[16].u - s.mesh.vertices[0].u, .4f * static_cast<float>(M_PI), 1e-3f);
    EXPECT_NEAR(s.mesh.vertices[8].u, 0, 1e-4f); // the middle of the front
    EXPECT_GT(s.mesh.vertices[8].position.y, 0);
}

TEST(Shape, ACurveGoesThroughItsTableAndStaysInside)
{
    const float table[][2] = {{0, 1}, {1, 3}, {3, 2}, {4, 2}};
    for (const float *row : table) {
        float v;
        body_between(table[0], 4, 2, row[0], &v);
        EXPECT_NEAR(v, row[1], 1e-5f);
    }
    float before, after;
    body_between(table[0], 4, 2, -7, &before);
    body_between(table[0], 4, 2, 9, &after);
    EXPECT_FLOAT_EQ(before, 1);
    EXPECT_FLOAT_EQ(after, 2);
}

TEST(Shape, NoiseStaysBetweenItsBoundsAndIsSmooth)
{
    float least = 1, most = -1;
    for (int i = 0; i < 2000; i++) {
        const float x = static_cast<float>(i) * .01f;
        const float v = shape_noise({x, 1.3f, -.7f}, 9), next = shape_noise({x + .01f, 1.3f, -.7f}, 9);
        least = std::min(least, v);
        most = std::max(most, v);
        ASSERT_LT(fabsf(v - next), .05f);
    }
    EXPECT_LT(least, -.4f);
    EXPECT_GT(most, .4f);
    EXPECT_GE(least, -1);
    EXPECT_LE(most, 1);
}
} // namespace
