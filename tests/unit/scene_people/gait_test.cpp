// Walking and running: feet that stay where they are put, joints within what is published for people.
#include <gtest/gtest.h>

#include "posed.h"

namespace
{
struct joints {
    float hip, knee, ankle, pelvis, clear; // degrees of flexion; metres
};

joints right_leg(const figure &f, const person_moment &at)
{
    const posture p = moves_gait(f, at.activity, at);
    scene_place b[BONES];
    figure_place(f, p, b);
    const float degrees = static_cast<float>(180 / M_PI);
    const scene_place &thigh = b[BONE_THIGH], &shin = b[BONE_SHIN], &foot = b[BONE_FOOT];
    const float t = atan2f(-thigh.z.y, thigh.z.z) * degrees, s = atan2f(-shin.z.y, shin.z.z) * degrees,
                r = atan2f(foot.y.z, foot.y.y) * degrees;
    float low = 1;
    for (const posture_leg &leg : p.leg)
        low = std::min(low, figure_lowest(f, leg));
    return {t, t - s, r - s, p.pelvis.z, low};
}

person_moment walking(float speed)
{
    person_moment m;
    m.activity = speed > 2.3f ? PERSON_RUN : PERSON_WALK;
    m.speed = speed;
    return m;
}

// Ranges of the joints over a cycle at a comfortable speed, as in Winter (1991) give or take the spread of people:
// hip about 30 degrees before to 10 (and more for long steps) behind, knee bent 5 to 25 in stance and about 60 in
// swing, ankle 20 down to 15 up.
TEST(Gait, JointsMoveAsInPublishedCurves)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = walking(1.3f);
    const float step = moves_step(f, false, 1.3f);
    float hip_most = -90, hip_least = 90, swing = 0, stance = 0, down = 90, up = -90;
    for (int i = 0; i < 100; i++) {
        const float cycle = static_cast<float>(i) / 100;
        at.way = cycle * 2 * step;
        const joints j = right_leg(f, at);
        hip_most = std::max(hip_most, j.hip);
        hip_least = std::min(hip_least, j.hip);
        down = std::min(down, j.ankle);
        up = std::max(up, j.ankle);
        if (cycle < .40f)
            stance = std::max(stance, j.knee);
        else
            swing = std::max(swing, j.knee);
    }
    EXPECT_GT(hip_most, 20);
    EXPECT_LT(hip_most, 38);
    EXPECT_LT(hip_least, -8);
    EXPECT_GT(hip_least, -28);
    EXPECT_GT(stance, 8);
    EXPECT_LT(stance, 26);
    EXPECT_GT(swing, 50);
    EXPECT_LT(swing, 72);
    EXPECT_LT(down, -5);
    EXPECT_GT(down, -28);
    EXPECT_GT(up, 5);
    EXPECT_LT(up, 22);
    at.way = 0; // the heel comes down with the knee nearly straight
    EXPECT_LT(right_leg(f, at).knee, 12);
}

TEST(Gait, ThePelvisRisesTwiceACycleByAFewCentimetres)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = walking(1.3f);
    const float step = moves_step(f, false, 1.3f);
    float low = 9, high = 0;
    for (int i = 0; i < 50; i++) {
        at.way = static_cast<float>(i) / 50 * step;
        const float z = right_leg(f, at).pelvis;
        low = std::min(low, z);
        high = std::max(high, z);
        at.way += step;
        EXPECT_NEAR(right_leg(f, at).pelvis, z, 1e-3f);
    }
    EXPECT_GT(high - low, .015f);
    EXPECT_LT(high - low, .06f);
    EXPECT_LT(high, f.rest[BONE_THIGH].z);
}

// A vertex of a sole that is on the floor now and a centimetre further on has not moved, from when the foot is put
// down until it is taken up.
void expect_no_sliding(const person_look &look, float speed)
{
    const person_owner p = made(look);
    person_moment at = walking(speed);
    at.heading = 0;
    const bool runs = at.activity == PERSON_RUN;
    const float step = moves_step(figure_make(look.height, look.shoulders, look.curves), runs, speed),
                until = runs ? .33f : .58f;
    scene_mesh last;
    int held = 0;
    float worst = 0;
    for (int i = 0; i <= 200; i++) {
        at.way = static_cast<float>(i) * .01f;
        at.position = {0, at.way, 0};
        const scene_mesh now = posed(p, at);
        for (size_t v = 0; i > 0 && v < now.vertices.size(); v++) {
            if (now.vertices[v].material != BODY_SOLES)
                continue;
            const float cycle = at.way / (2 * step) + (last.vertices[v].position.x > 0 ? 0 : .5f);
            if (cycle - floorf(cycle) > until || cycle - floorf(cycle) < .01f / step)
                continue;
            const scene_vec a = last.vertices[v].position, b = now.vertices[v].position;
            if (a.z > .004f || b.z > .004f)
                continue;
            held++;
            worst = std::max(worst, hypotf(a.x - b.x, a.y - b.y));
        }
        last = now;
    }
    EXPECT_GT(held, 500);
    EXPECT_LT(worst, .004f) << look.height << " m tall at " << speed << " m/s";
}

TEST(Gait, FeetDoNotSlideInWalking)
{
    for (const float speed : {.5f, 1.2f, 1.7f})
        for (const int variant : {0, 7, 8, 23})
            expect_no_sliding(person_variant(variant), speed);
}

TEST(Gait, FeetDoNotSlideInRunning)
{
    expect_no_sliding(person_variant(0), 3);
}

TEST(Gait, SomeFootIsAlwaysOnTheFloorInWalking)
{
    for (const float height : {1.05f, 1.4f, 1.75f, 1.98f}) {
        const figure f = figure_make(height, .5f, 0);
        for (const float speed : {.4f, 1.f, 1.5f, 2.2f}) {
            person_moment at = walking(speed);
            for (int i = 0; i < 100; i++) {
                at.way = static_cast<float>(i) * .03f;
                EXPECT_NEAR(right_leg(f, at).clear, 0, .002f);
            }
        }
    }
}

TEST(Gait, RunningHasAFlight)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = walking(3);
    const float step = moves_step(f, true, 3);
    int flies = 0;
    for (int i = 0; i < 100; i++) {
        at.way = static_cast<float>(i) / 100 * 2 * step;
        const joints j = right_leg(f, at);
        EXPECT_GE(j.clear, -.002f);
        flies += j.clear > .005f;
    }
    EXPECT_GT(flies, 15);
    EXPECT_LT(flies, 45);
    const posture p = moves_gait(f, PERSON_RUN, at);
    EXPECT_GT(p.arm[0].elbow, 60);
    EXPECT_GT(p.arm[1].elbow, 60);
}

TEST(Gait, StepsFollowSpeedAndLegs)
{
    const figure adult = figure_make(1.75f, .5f, 0), child = figure_make(1.1f, .5f, 0);
    EXPECT_NEAR(moves_step(adult, false, 1.3f), .72f, .04f); // as of grown men at 1.3 m/s
    EXPECT_GT(moves_step(adult, false, 1.6f), moves_step(adult, false, 1.0f) + .1f);
    EXPECT_LT(moves_step(child, false, 1.3f), moves_step(adult, false, 1.3f) - .1f);
    EXPECT_NEAR(3 / moves_step(adult, true, 3), 2.75f, .1f); // steps a second
    EXPECT_FLOAT_EQ(moves_step(adult, false, 0), moves_step(adult, false, .25f));
    EXPECT_FLOAT_EQ(moves_step(adult, false, 9), moves_step(adult, false, 2.3f));
}

TEST(Gait, ArmsSwingAgainstTheLegs)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = walking(1.3f);
    scene_place b[BONES];
    figure_place(f, moves_gait(f, PERSON_WALK, at), b); // the right foot is just put down ahead
    const scene_vec right = b[BONE_HAND].origin, left = b[figure_bone_of(FIGURE_LEFT, BONE_HAND)].origin;
    EXPECT_GT(b[BONE_FOOT].origin.y, .2f);
    EXPECT_LT(b[figure_bone_of(FIGURE_LEFT, BONE_FOOT)].origin.y, -.2f);
    EXPECT_GT(left.y, right.y + .2f);
}

TEST(Gait, TheBodySwaysOverTheFootThatBears)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = walking(1.3f);
    const float step = moves_step(f, false, 1.3f);
    at.way = .31f * 2 * step;
    EXPECT_GT(moves_gait(f, PERSON_WALK, at).pelvis.x, .01f);
    at.way = .81f * 2 * step;
    EXPECT_LT(moves_gait(f, PERSON_WALK, at).pelvis.x, -.01f);
}

TEST(Gait, PeopleAreNotInStep)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = walking(1.3f);
    const float one = moves_gait(f, PERSON_WALK, at).leg[0].ankle.y;
    at.seed = 3;
    EXPECT_GT(fabsf(moves_gait(f, PERSON_WALK, at).leg[0].ankle.y - one), .02f);
}

TEST(Gait, TheBoxIsHeldBeforeTheBelly)
{
    const person_owner p = made(person_variant(0));
    person_moment at = usual(PERSON_CARRY);
    at.heading = 90;
    at.position = {2, 3, 0};
    const scene_mesh m = posed(p, at);
    const bounds b = bounds_of(m, BODY_PARCEL);
    EXPECT_NEAR(b.high.x - b.low.x, BODY_BOX.y, .01f);
    EXPECT_NEAR(b.high.y - b.low.y, BODY_BOX.x, .01f);
    EXPECT_NEAR(b.high.z - b.low.z, BODY_BOX.z, .01f);
    const scene_vec middle = middle_of(m, BODY_PARCEL);
    EXPECT_NEAR(middle.x, 2.32f, .06f);
    EXPECT_NEAR(middle.y, 3, .04f);
    EXPECT_NEAR(middle.z, 1.13f, .1f);
    // Hands at its sides.
    const figure f = figure_make(1.78f, .7f, 0);
    at.position = {};
    at.heading = 0;
    const posture q = moves_gait(f, PERSON_CARRY, at);
    scene_place bones[BONES];
    figure_place(f, q, bones);
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const scene_vec wrist = bones[figure_bone_of(side, BONE_HAND)].origin;
        EXPECT_NEAR(fabsf(wrist.x - q.held.x), BODY_BOX.x / 2, .03f);
        EXPECT_GT(wrist.z, q.held.z);
        EXPECT_LT(wrist.z, q.held.z + BODY_BOX.z);
    }
    // Nobody else holds one.
    const bounds none = bounds_of(posed(p, usual(PERSON_WALK)), BODY_PARCEL);
    EXPECT_FLOAT_EQ(none.high.z, none.low.z);
}
} // namespace
