// From one activity to the next: it begins with the one, ends with the other, and nothing jumps on the way.
#include <gtest/gtest.h>

#include "posed.h"

namespace
{
// A change as the world asks for it: seats half a metre behind where one stands, beds beside.
person_moment change(person_activity before, person_activity activity)
{
    person_moment m = usual(activity);
    const person_moment from = usual(before);
    m.before = before;
    m.before_position = from.position;
    const bool sits = activity == PERSON_SIT || activity == PERSON_DESK,
               sat = before == PERSON_SIT || before == PERSON_DESK;
    if (sits && !sat)
        m.before_position.y = .5f;
    if (sat && !sits)
        m.position.y = .5f;
    if (activity == PERSON_LIE && before != PERSON_LIE)
        m.before_position.x = .9f;
    if (before == PERSON_LIE && activity != PERSON_LIE)
        m.position.x = .9f;
    return m;
}

TEST(Changes, BeginAndEndWithWhatIsDone)
{
    const person_owner p = made(person_variant(1));
    for (int b = 0; b < PERSON_ACTIVITIES; b++)
        for (int a = 0; a < PERSON_ACTIVITIES; a++) {
            const person_activity before = static_cast<person_activity>(b),
                                  activity = static_cast<person_activity>(a);
            person_moment m = change(before, activity), from = m, to = m;
            from.activity = before;
            from.position = m.before_position;
            to.before = activity;
            m.blend = 0;
            EXPECT_LT(farthest(posed(p, m), posed(p, from)), .002f) << b << " to " << a;
            m.blend = 1;
            EXPECT_TRUE(same_bytes(posed(p, m), posed(p, to))) << b << " to " << a;
            m.blend = .9999f;
            EXPECT_LT(farthest(posed(p, m), posed(p, to)), .02f) << b << " to " << a;
        }
}

TEST(Changes, NothingJumps)
{
    for (const int variant : {0, 5, 7}) {
        const person_owner p = made(person_variant(variant));
        for (int b = 0; b < PERSON_ACTIVITIES; b++)
            for (int a = 0; a < PERSON_ACTIVITIES; a++) {
                person_moment m = change(static_cast<person_activity>(b), static_cast<person_activity>(a));
                scene_mesh last;
                for (int i = 0; i <= 60; i++) {
                    m.blend = static_cast<float>(i) / 60;
                    const scene_mesh now = posed(p, m);
                    ASSERT_TRUE(all_finite(now));
                    if (i > 0) {
                        EXPECT_LT(farthest(now, last), .28f)
                            << variant << ": " << b << " to " << a << " at " << i;
                    }
                    last = now;
                }
            }
    }
}

TEST(Changes, NobodySinksIntoTheFloor)
{
    const person_owner p = made(person_variant(0));
    for (int b = 0; b < PERSON_ACTIVITIES; b++)
        for (int a = 0; a < PERSON_ACTIVITIES; a++) {
            person_moment m = change(static_cast<person_activity>(b), static_cast<person_activity>(a));
            for (int i = 0; i <= 10; i++) {
                m.blend = static_cast<float>(i) / 10;
                EXPECT_GT(bounds_of(posed(p, m)).low.z, -.12f) << b << " to " << a << " at " << i;
            }
        }
}

TEST(Changes, WhoSitsDownLeansForwardOnTheWay)
{
    const figure f = figure_make(1.75f, .5f, 0);
    for (const bool down : {true, false}) {
        person_moment m = down ? change(PERSON_STAND, PERSON_SIT) : change(PERSON_SIT, PERSON_STAND);
        m.blend = .5f;
        const posture half = moves_posture(f, m);
        m.blend = 1;
        const posture end = moves_posture(f, m);
        const scene_vec up = turn_apply(half.hips * half.waist, {0, 0, 1}),
                        last = turn_apply(end.hips * end.waist, {0, 0, 1});
        EXPECT_GT(up.y, .25f);
        EXPECT_LT(last.y, .1f);
        // The feet stay near where they are.
        m.blend = 0;
        const posture start = moves_posture(f, m);
        for (int side = 0; side < FIGURE_SIDES; side++)
            EXPECT_LT(scene_length(start.leg[side].ankle - end.leg[side].ankle), .22f);
    }
}

TEST(Changes, WhoLiesDownSitsOnTheEdgeFirstOnTheSideTheyCameFrom)
{
    const figure f = figure_make(1.75f, .5f, 0);
    for (const float side : {1.f, -1.f}) {
        person_moment m = usual(PERSON_LIE);
        m.before = PERSON_STAND;
        m.before_position = {side * .9f, 0, 0};
        m.before_heading = 90 * side;
        m.blend = .45f;
        const posture edge = moves_posture(f, m);
        EXPECT_NEAR(edge.pelvis.x, side * .25f, .12f);
        EXPECT_NEAR(edge.pelvis.z, .5f + .1f, .05f);
        EXPECT_GT(turn_apply(edge.hips, {0, 0, 1}).z, .9f);        // upright
        EXPECT_GT(side * turn_apply(edge.hips, {0, 1, 0}).x, .8f); // looks out of the bed
    }
}

TEST(Changes, AFallGetsFaster)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment m = change(PERSON_STAND, PERSON_FALLEN);
    float height[5];
    for (int i = 0; i < 5; i++) {
        m.blend = static_cast<float>(i) / 4;
        height[i] = moves_posture(f, m).pelvis.z;
    }
    EXPECT_LT(height[0] - height[1], height[1] - height[2]);
    EXPECT_LT(height[4], .3f);
}

TEST(Changes, TheBoxIsThereFromHalfWay)
{
    const person_owner p = made(person_variant(0));
    person_moment m = change(PERSON_STAND, PERSON_CARRY);
    m.blend = .3f;
    bounds b = bounds_of(posed(p, m), BODY_PARCEL);
    EXPECT_FLOAT_EQ(b.high.z, b.low.z);
    m.blend = .7f;
    b = bounds_of(posed(p, m), BODY_PARCEL);
    EXPECT_NEAR(b.high.z - b.low.z, BODY_BOX.z, .01f);
    m = change(PERSON_CARRY, PERSON_STAND);
    m.blend = .3f;
    b = bounds_of(posed(p, m), BODY_PARCEL);
    EXPECT_NEAR(b.high.z - b.low.z, BODY_BOX.z, .01f);
}
} // namespace
