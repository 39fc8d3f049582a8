// Postures: each where it belongs, never quite still, the same for the same arguments, whole for any.
#include <gtest/gtest.h>

#include <chrono>
#include <limits>

#include "posed.h"

namespace
{
const person_activity on_feet[] = {PERSON_STAND, PERSON_WALK, PERSON_CROUCH, PERSON_CARRY, PERSON_WAVE};

TEST(Poses, FeetAreOnTheFloor)
{
    for (int variant = 0; variant < PERSON_VARIANTS; variant++) {
        const person_owner p = made(person_variant(variant));
        for (const person_activity activity : on_feet)
            for (int i = 0; i < 12; i++) {
                person_moment at = usual(activity);
                at.time = static_cast<float>(i) * 1.7f;
                at.way = static_cast<float>(i) * .13f;
                at.seed = static_cast<uint32_t>(i * 7 + variant);
                EXPECT_NEAR(bounds_of(posed(p, at)).low.z, 0, .01f)
                    << variant << " " << person_activity_name(activity) << " " << i;
            }
    }
}

TEST(Poses, NobodySinksIntoWhatTheyRestOn)
{
    for (int variant = 0; variant < PERSON_VARIANTS; variant += 3)
        for (uint32_t seed = 0; seed < 6; seed++) {
            const person_owner p = made(person_variant(variant));
            person_moment at = usual(PERSON_LIE);
            at.seed = seed;
            const bounds lies = bounds_of(posed(p, at));
            EXPECT_GT(lies.low.z, .5f - .05f) << variant << " " << seed;
            EXPECT_LT(lies.high.z, .5f + .75f) << variant << " " << seed;
            at = usual(PERSON_FALLEN);
            at.seed = seed;
            const bounds fell = bounds_of(posed(p, at));
            EXPECT_GT(fell.low.z, -.05f) << variant << " " << seed;
            EXPECT_LT(fell.low.z, .06f) << variant << " " << seed;
            EXPECT_LT(fell.high.z, .75f) << variant << " " << seed;
        }
}

TEST(Poses, WhoLiesOrFellIsLongAndLow)
{
    const person_owner p = made(person_variant(0));
    const bounds lies = bounds_of(posed(p, usual(PERSON_LIE)));
    EXPECT_GT(lies.high.y - lies.low.y, 1.6f);
    const bounds fell = bounds_of(posed(p, usual(PERSON_FALLEN)));
    EXPECT_GT(fell.high.y - fell.low.y, 1.1f);
    // On the back, face up, the head towards the heading.
    const scene_mesh m = posed(p, usual(PERSON_LIE));
    EXPECT_GT(middle_of(m, BODY_HAIR).y, .5f);
    EXPECT_GT(middle_of(m, BODY_EYES).z, middle_of(m, BODY_HAIR).z);
    EXPECT_GT(middle_of(posed(p, usual(PERSON_FALLEN)), BODY_HAIR).y, .7f);
}

TEST(Poses, TheSeatIsUnderWhoSits)
{
    const person_owner p = made(person_variant(0));
    for (const person_activity activity : {PERSON_SIT, PERSON_DESK}) {
        const scene_mesh m = posed(p, usual(activity));
        const bounds b = bounds_of(m), seat = bounds_of(m, BODY_BOTTOM);
        EXPECT_NEAR(b.low.z, 0, .02f);                    // feet on the floor
        EXPECT_NEAR(b.high.z, .45f + .52f * 1.78f, .09f); // sitting height, Drillis & Contini
        float under = 9;                                  // of the buttocks
        for (const scene_vertex &v : m.vertices)
            if (v.material == BODY_BOTTOM && fabsf(v.position.y) < .15f)
                under = std::min(under, v.position.z);
        EXPECT_NEAR(under, .45f, .05f);
        EXPECT_GT(seat.high.y, .4f); // knees ahead
    }
}

TEST(Poses, HandsAreOnTheTableAtTheDesk)
{
    for (const float height : {1.55f, 1.75f, 1.9f}) {
        const figure f = figure_make(height, .5f, 0);
        person_moment at = usual(PERSON_DESK);
        for (int i = 0; i < 40; i++) {
            at.time = static_cast<float>(i) * .37f;
            scene_place b[BONES];
            figure_place(f, moves_still(f, PERSON_DESK, at, -.45f), b);
            for (int side = 0; side < FIGURE_SIDES; side++) {
                const scene_vec wrist = b[figure_bone_of(side, BONE_HAND)].origin;
                EXPECT_NEAR(wrist.z + .45f, .775f, .03f);
                EXPECT_GT(wrist.y, .25f);
            }
        }
    }
}

TEST(Poses, HandsTypeNowAndThen)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = usual(PERSON_DESK);
    int moves = 0, rests = 0;
    for (int i = 0; i < 400; i++) {
        scene_place a[BONES], b[BONES];
        at.time = static_cast<float>(i) * .1f;
        figure_place(f, moves_still(f, PERSON_DESK, at, -.45f), a);
        at.time += .05f;
        figure_place(f, moves_still(f, PERSON_DESK, at, -.45f), b);
        const float by = scene_length(a[BONE_HAND].origin - b[BONE_HAND].origin);
        moves += by > .003f;
        rests += by < .0015f;
    }
    EXPECT_GT(moves, 60);
    EXPECT_GT(rests, 60);
}

TEST(Poses, AWavingHandIsAboveTheHeadAndGoesToAndFro)
{
    for (uint32_t seed = 0; seed < 6; seed++) {
        const figure f = figure_make(1.75f, .5f, 0);
        person_moment at = usual(PERSON_WAVE);
        at.seed = seed;
        float left = 9, right = -9, top = 0;
        for (int i = 0; i < 40; i++) {
            at.time = static_cast<float>(i) * .05f;
            scene_place b[BONES];
            figure_place(f, moves_still(f, PERSON_WAVE, at, 0), b);
            const scene_vec r = b[BONE_HAND].origin, l = b[figure_bone_of(FIGURE_LEFT, BONE_HAND)].origin;
            const scene_vec hand = r.z > l.z ? r : l;
            left = std::min(left, hand.x);
            right = std::max(right, hand.x);
            top = std::max(top, hand.z);
        }
        EXPECT_GT(right - left, .12f);
        EXPECT_GT(top, 1.55f);
    }
}

TEST(Poses, NobodyIsQuiteStill)
{
    const person_owner p = made(person_variant(3));
    for (const person_activity activity :
         {PERSON_STAND, PERSON_SIT, PERSON_DESK, PERSON_LIE, PERSON_CROUCH, PERSON_FALLEN}) {
        person_moment a = usual(activity), b = a;
        b.time = 1.1f;
        const float moved = farthest(posed(p, a), posed(p, b));
        EXPECT_GT(moved, .001f) << person_activity_name(activity);
        EXPECT_LT(moved, .25f) << person_activity_name(activity);
    }
}

TEST(Poses, WeightShiftsFromLegToLeg)
{
    const figure f = figure_make(1.75f, .5f, 0);
    person_moment at = usual(PERSON_STAND);
    float left = 0, right = 0;
    for (int i = 0; i < 60; i++) {
        at.time = static_cast<float>(i);
        const float x = moves_still(f, PERSON_STAND, at, 0).pelvis.x;
        left = std::min(left, x);
        right = std::max(right, x);
    }
    EXPECT_LT(left, -.02f);
    EXPECT_GT(right, .02f);
}

TEST(Poses, HeadingsTurnClockwiseAndPositionsMove)
{
    const person_owner p = made(person_variant(10));
    person_moment at = usual(PERSON_STAND);
    const scene_vec face = middle_of(posed(p, at), BODY_LIPS), head = middle_of(posed(p, at), BODY_HAIR);
    EXPECT_GT(face.y, .07f);
    EXPECT_NEAR(face.x, head.x, .06f);
    at.heading = 90;
    at.position = {4, -2, .3f};
    const scene_vec turned = middle_of(posed(p, at), BODY_LIPS);
    EXPECT_NEAR(turned.x, 4 + face.y, .01f);
    EXPECT_NEAR(turned.y, -2 - face.x, .01f);
    EXPECT_NEAR(turned.z, .3f + face.z, .001f);
}

TEST(Poses, TheHeadLooksWhereItIsTold)
{
    const person_owner p = made(person_variant(10));
    person_moment at = usual(PERSON_STAND);
    const scene_vec ahead = middle_of(posed(p, at), BODY_LIPS);
    at.look_pan = 50; // to the right
    EXPECT_GT(middle_of(posed(p, at), BODY_LIPS).x, ahead.x + .05f);
    at.look_pan = 0;
    at.look_tilt = 30; // up
    EXPECT_GT(middle_of(posed(p, at), BODY_LIPS).z, ahead.z + .015f);
    at.look_tilt = -30;
    EXPECT_LT(middle_of(posed(p, at), BODY_LIPS).z, ahead.z - .015f);
    // No further than a neck turns.
    at.look_tilt = 0;
    at.look_pan = 85;
    const scene_mesh most = posed(p, at);
    at.look_pan = 400;
    EXPECT_TRUE(same_bytes(most, posed(p, at)));
}

TEST(Poses, EverybodyMovesInAnOwnWay)
{
    const person_owner p = made(person_variant(0));
    person_moment a = usual(PERSON_STAND), b = a;
    b.seed = 1;
    EXPECT_GT(farthest(posed(p, a), posed(p, b)), .01f);
}

TEST(Poses, TheSameArgumentsGiveTheSameBytes)
{
    const person_owner one = made(person_variant(5)), two = made(person_variant(5));
    scene_mesh reused;
    for (int a = 0; a < PERSON_ACTIVITIES; a++) {
        person_moment at = usual(static_cast<person_activity>(a));
        at.time = 3.3f;
        at.way = 1.9f;
        at.seed = 11;
        person_pose(one.get(), &at, &reused); // memory of another posture
        EXPECT_TRUE(same_bytes(reused, posed(two, at)));
    }
}

TEST(Poses, TrianglesStayTheSameInAllPostures)
{
    const person_owner p = made(person_variant(4));
    const scene_mesh stands = posed(p, usual(PERSON_STAND));
    for (int a = 0; a < PERSON_ACTIVITIES; a++) {
        const scene_mesh m = posed(p, usual(static_cast<person_activity>(a)));
        EXPECT_EQ(m.indices, stands.indices);
        EXPECT_EQ(m.vertices.size(), stands.vertices.size());
    }
}

// Skin and cloth stretch, but nothing tears or is drawn out: edges keep their length within what joints ask for.
TEST(Poses, NoEdgeIsDrawnOut)
{
    for (int variant = 0; variant < PERSON_VARIANTS; variant++) {
        const person_owner p = made(person_variant(variant));
        const scene_mesh rest = posed(p, usual(PERSON_STAND));
        for (int a = 0; a < PERSON_ACTIVITIES; a++) {
            const scene_mesh m = posed(p, usual(static_cast<person_activity>(a)));
            float worst = 0;
            for (size_t t = 0; t + 36 < m.indices.size(); t += 3) // the box is last
                for (int k = 0; k < 3; k++) {
                    const uint32_t i = m.indices[t + static_cast<size_t>(k)],
                                   j = m.indices[t + static_cast<size_t>((k + 1) % 3)];
                    worst = std::max(
                        worst, scene_length(m.vertices[i].position - m.vertices[j].position) -
                                   2 * scene_length(rest.vertices[i].position - rest.vertices[j].position));
                }
            EXPECT_LT(worst, .17f) << variant << " " << person_activity_name(a);
        }
    }
}

TEST(Poses, AnyNumbersGiveAWholeBody)
{
    const person_owner p = made(person_variant(6));
    const float odd[] = {NAN, INFINITY, -INFINITY, 1e30f, -1e30f, std::numeric_limits<float>::denorm_min(),
                         3e7f};
    for (int a = 0; a <= PERSON_ACTIVITIES; a++)
        for (const float v : odd)
            for (int field = 0; field < 15; field++) {
                person_moment at =
                    usual(static_cast<person_activity>(std::min<int>(a, PERSON_ACTIVITIES - 1)));
                at.activity = static_cast<person_activity>(a);
                at.before = static_cast<person_activity>(PERSON_ACTIVITIES - a);
                at.blend = .4f;
                float *const fields[] = {&at.blend,
                                         &at.position.x,
                                         &at.position.y,
                                         &at.position.z,
                                         &at.heading,
                                         &at.before_position.x,
                                         &at.before_position.y,
                                         &at.before_position.z,
                                         &at.before_heading,
                                         &at.way,
                                         &at.speed,
                                         &at.time,
                                         &at.look_pan,
                                         &at.look_tilt};
                if (field < 14)
                    *fields[field] = v;
                else
                    for (float *f : fields)
                        *f = v;
                const scene_mesh m = posed(p, at);
                ASSERT_TRUE(all_finite(m)) << a << " " << v << " " << field;
                const bounds b = bounds_of(m);
                ASSERT_LT(scene_length(b.high - b.low), 5000) << a << " " << v << " " << field;
            }
}

TEST(Poses, BeyondTheBoundsIsAtTheBounds)
{
    const person_owner p = made(person_variant(0));
    person_moment a = usual(PERSON_WALK), b = a;
    a.speed = 12;
    b.speed = 13;
    EXPECT_TRUE(same_bytes(posed(p, a), posed(p, b)));
    a = b = usual(PERSON_STAND);
    a.position.x = 1000;
    b.position.x = 2000;
    EXPECT_TRUE(same_bytes(posed(p, a), posed(p, b)));
    a = b = usual(PERSON_STAND);
    a.heading = 30;
    b.heading = 390;
    EXPECT_TRUE(same_bytes(posed(p, a), posed(p, b)));
    a = b = usual(PERSON_STAND);
    b.activity = static_cast<person_activity>(PERSON_ACTIVITIES);
    EXPECT_TRUE(same_bytes(posed(p, a), posed(p, b)));
}

#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Side by side in one run: posing against copying the vertices. A crowd must leave most of a picture's time to the
// renderer.
TEST(Poses, PosingIsNotMuchSlowerThanCopying)
{
    const person_owner p = made(person_variant(4));
    person_moment at = usual(PERSON_WALK);
    scene_mesh mesh = posed(p, at);
    std::vector<scene_vertex> copy(mesh.vertices.size());
    typedef std::chrono::steady_clock clock;
    double pose = 1e9, copies = 1e9;
    for (int round = 0; round < 60; round++) {
        at.way += .01f;
        const clock::time_point start = clock::now();
        person_pose(p.get(), &at, &mesh);
        const clock::time_point between = clock::now();
        for (int i = 0; i < 20; i++) {
            memcpy(static_cast<void *>(copy.data()), mesh.vertices.data(), copy.size() * sizeof copy[0]);
            asm volatile("" : : "r"(copy.data()) : "memory");
        }
        const clock::time_point end = clock::now();
        pose = std::min(pose, std::chrono::duration<double>(between - start).count());
        copies = std::min(copies, std::chrono::duration<double>(end - between).count() / 20);
    }
    printf("posing %zu vertices takes %.0f times as long as copying them\n", copy.size(), pose / copies);
    EXPECT_LT(pose / copies, 60);
}
#endif
} // namespace
