// Things: sound and small meshes at any moment, and that each moves as its kind does.
#include "thing.h"

#include "mesh_checks.h"

#include <set>
#include <string>
#include <time.h>

namespace
{
struct held {
    thing *t;
    explicit held(thing_kind kind, uint32_t seed = 1) : t(thing_make(kind, seed)) {}
    ~held() { thing_free(t); }
};
scene_mesh posed(const thing *thing, const thing_moment &moment)
{
    scene_mesh mesh;
    thing_pose(thing, &moment, &mesh);
    return mesh;
}
float lowest(const scene_mesh &mesh)
{
    return box_of(mesh).low.z;
}
} // namespace

TEST(things, names_are_those_of_scene_files)
{
    const char *names[] = {"cat",    "dog",  "vacuum",  "fan", "ball",
                           "insect", "coat", "balloon", "box", "shadow"};
    for (int i = 0; i < THING_KINDS; i++)
        EXPECT_STREQ(thing_kind_name(i), names[i]);
    EXPECT_EQ(thing_kind_name(THING_KINDS), nullptr);
    EXPECT_EQ(thing_kind_name(-1), nullptr);
    EXPECT_EQ(thing_make(THING_KINDS, 1), nullptr);
}

TEST(things, are_sound_at_many_moments)
{
    for (int kind = 0; kind < THING_KINDS; kind++)
        for (uint32_t seed = 0; seed < 6; seed++) {
            held made(static_cast<thing_kind>(kind), seed);
            for (int i = 0; i < 60; i++) {
                thing_moment moment;
                moment.position = {1, 2, 0};
                moment.heading = 37.f * static_cast<float>(i);
                moment.speed = i % 3 == 0 ? 0.f : 0.3f * static_cast<float>(i % 7);
                moment.time = 0.7f * static_cast<float>(i);
                moment.way = moment.time * moment.speed;
                const scene_mesh mesh = posed(made.t, moment);
                expect_sound(mesh, thing_materials(made.t)->size(), thing_kind_name(kind));
                expect_facing(mesh, 0.03f, thing_kind_name(kind));
                EXPECT_GE(mesh.indices.size() / 3, kind == THING_BOX ? 100u : 300u) << thing_kind_name(kind);
                EXPECT_LE(mesh.indices.size() / 3, 2500u) << thing_kind_name(kind);
            }
        }
}

TEST(things, any_numbers_are_taken)
{
    const float odd[] = {NAN, INFINITY, -INFINITY, 1e38f, -1e38f, 1e-40f, 12345.678f};
    for (int kind = 0; kind < THING_KINDS; kind++) {
        held made(static_cast<thing_kind>(kind), UINT32_MAX);
        for (float one : odd)
            for (int field = 0; field < 7; field++) {
                thing_moment moment;
                float *fields[7] = {&moment.position.x, &moment.position.y, &moment.position.z,
                                    &moment.heading,    &moment.way,        &moment.speed,
                                    &moment.time};
                *fields[field] = one;
                expect_sound(posed(made.t, moment), thing_materials(made.t)->size(), thing_kind_name(kind));
            }
    }
}

TEST(things, the_same_moment_gives_the_same_mesh_and_a_seed_its_own_kind)
{
    for (int kind = 0; kind < THING_KINDS; kind++) {
        held one(static_cast<thing_kind>(kind), 3), same(static_cast<thing_kind>(kind), 3);
        thing_moment moment;
        moment.time = 5.5f;
        moment.speed = 0.4f;
        moment.way = 2.2f;
        scene_mesh used; // memory of another pose, used again
        thing_moment other;
        other.heading = 77;
        thing_pose(one.t, &other, &used);
        thing_pose(one.t, &moment, &used);
        EXPECT_TRUE(same_mesh(used, posed(same.t, moment))) << thing_kind_name(kind);
        std::set<float> colours;
        for (uint32_t seed = 0; seed < 12; seed++)
            colours.insert((*thing_materials(held(static_cast<thing_kind>(kind), seed).t))[0].first[0]);
        if (kind == THING_CAT || kind == THING_DOG || kind == THING_BALL || kind == THING_COAT) {
            EXPECT_GT(colours.size(), 1u) << thing_kind_name(kind);
        }
    }
}

TEST(things, stand_at_their_place_and_look_along_their_heading)
{
    for (thing_kind kind : {THING_CAT, THING_DOG}) {
        held pet(kind);
        thing_moment moment;
        moment.position = {3, 4, 0};
        moment.heading = 90; // along x
        const mesh_box box = box_of(posed(pet.t, moment));
        EXPECT_GT(box.high.x - box.low.x, 2 * (box.high.y - box.low.y)) << kind;
        EXPECT_NEAR((box.high.y + box.low.y) / 2, 4, 0.08) << kind;
        EXPECT_NEAR(box.low.z, 0, 0.02) << kind;
        EXPECT_LT(box.low.x, 3) << kind;
        EXPECT_GT(box.high.x, 3) << kind;
    }
}

TEST(things, a_dog_is_larger_than_a_cat)
{
    thing_moment moment;
    const mesh_box cat = box_of(posed(held(THING_CAT, 2).t, moment)),
                   dog = box_of(posed(held(THING_DOG, 2).t, moment));
    EXPECT_GT(dog.high.z, 1.5f * cat.high.z);
    EXPECT_GT(cat.high.z, 0.2f);
    EXPECT_LT(cat.high.z, 0.45f);
    EXPECT_LT(dog.high.z, 0.9f);
}

// A paw on the ground does not slide: among points near the floor some stay where they are in the world while
// the animal goes on.
TEST(things, paws_stay_where_they_stand_while_the_animal_walks)
{
    for (thing_kind kind : {THING_CAT, THING_DOG}) {
        held pet(kind);
        for (float speed : {0.4f, 0.8f}) {
            for (float way = 1; way < 2; way += 0.083f) {
                thing_moment now, next;
                now.speed = next.speed = speed;
                now.position = {0, way, 0};
                now.way = way;
                next.position = {0, way + 0.01f, 0};
                next.way = way + 0.01f;
                const scene_mesh a = posed(pet.t, now), b = posed(pet.t, next);
                ASSERT_EQ(a.vertices.size(), b.vertices.size());
                int on_ground = 0, still = 0;
                for (size_t i = 0; i < a.vertices.size(); i++)
                    if (a.vertices[i].position.z < 0.012f && a.vertices[i].material == 1) {
                        on_ground++;
                        still += scene_length(a.vertices[i].position - b.vertices[i].position) < 0.002f;
                    }
                EXPECT_GT(on_ground, 0) << kind;
                EXPECT_GE(still * 10, on_ground * 5) << kind << " way " << way;
            }
        }
    }
}

TEST(things, a_resting_cat_stands_sits_and_lies_in_turn)
{
    held cat(THING_CAT, 7); // its turn begins at time 0
    const auto high = [&](float time) {
        thing_moment moment;
        moment.time = time;
        return box_of(posed(cat.t, moment)).high.z;
    };
    const auto rump = [&](float time) { // of the hindmost tenth of the body
        thing_moment moment;
        moment.time = time;
        const scene_mesh mesh = posed(cat.t, moment);
        float most = 0;
        for (const scene_vertex &v : mesh.vertices)
            if (v.position.y < -0.05f && v.position.y > -0.2f && v.material == 0)
                most = std::max(most, v.position.z);
        return most;
    };
    EXPECT_LT(rump(10), rump(1) * 0.75f);  // sits
    EXPECT_GT(high(10), high(25) * 1.25f); // lies
    EXPECT_GT(rump(39.5f), rump(10));      // stands again
}

TEST(things, the_robot_is_round_flat_and_turns_its_brush)
{
    held vacuum(THING_VACUUM);
    thing_moment moment;
    const mesh_box box = box_of(posed(vacuum.t, moment));
    EXPECT_LT(box.high.z, 0.12f);
    EXPECT_NEAR(box.high.x - box.low.x, 0.35, 0.04);
    EXPECT_GE(lowest(posed(vacuum.t, moment)), -0.001f);
    moment.speed = 0.3f;
    const scene_mesh before = posed(vacuum.t, moment);
    moment.time = 0.05f;
    EXPECT_FALSE(same_mesh(before, posed(vacuum.t, moment)));
}

TEST(things, a_ball_rolls_by_its_way)
{
    held ball(THING_BALL);
    thing_moment moment;
    const mesh_box box = box_of(posed(ball.t, moment));
    const float r = (box.high.z - box.low.z) / 2;
    EXPECT_NEAR(box.low.z, 0, 1e-3);
    moment.way = r * static_cast<float>(M_PI) / 2; // a quarter turn: what was on top is ahead
    const scene_mesh start = posed(ball.t, thing_moment()), turned = posed(ball.t, moment);
    for (size_t i = 0; i < start.vertices.size(); i++) {
        const scene_vec a = start.vertices[i].position - scene_vec{0, 0, r},
                        b = turned.vertices[i].position - scene_vec{0, 0, r};
        EXPECT_NEAR(b.y, a.z, 1e-3);
        EXPECT_NEAR(b.z, -a.y, 1e-3);
        EXPECT_NEAR(b.x, a.x, 1e-3);
    }
}

TEST(things, a_fan_turns_its_head_and_runs_only_when_it_is_on)
{
    held fan(THING_FAN);
    thing_moment moment;
    const scene_mesh off = posed(fan.t, moment);
    moment.time = 2;
    EXPECT_TRUE(same_mesh(off, posed(fan.t, moment)));
    moment.speed = 1;
    const mesh_box box = box_of(posed(fan.t, moment));
    EXPECT_FALSE(same_mesh(off, posed(fan.t, moment)));
    EXPECT_GT(box.high.z, 1.0f);
    EXPECT_LT(box.high.z, 1.6f);
}

TEST(things, a_coat_hangs_down_from_its_hook_and_hardly_sways)
{
    held coat(THING_COAT);
    thing_moment moment;
    moment.position = {1, 5, 1.7f};
    moment.heading = 180;
    const scene_mesh now = posed(coat.t, moment);
    const mesh_box box = box_of(now);
    EXPECT_LT(box.high.z, 1.72f);
    EXPECT_GT(box.low.z, 0.3f);
    EXPECT_LT(box.low.z, 0.9f);
    EXPECT_LT(box.high.y, 5.02f); // its back to the wall
    moment.time = 2;
    const scene_mesh later = posed(coat.t, moment);
    float most = 0;
    for (size_t i = 0; i < now.vertices.size(); i++)
        most = std::max(most, scene_length(now.vertices[i].position - later.vertices[i].position));
    EXPECT_GT(most, 0.001f);
    EXPECT_LT(most, 0.06f);
}

TEST(things, sizes_are_those_of_the_real_ones)
{
    const auto size = [](thing_kind kind) {
        const mesh_box box = box_of(posed(held(kind, 4).t, thing_moment()));
        return box.high - box.low;
    };
    EXPECT_LT(size(THING_INSECT).y, 0.02f);
    EXPECT_GT(size(THING_INSECT).y, 0.003f);
    EXPECT_NEAR(size(THING_BOX).x, 0.4, 0.08);
    EXPECT_NEAR(size(THING_BALL).x, 0.22, 0.06);
    EXPECT_NEAR(size(THING_BALLOON).x, 0.3, 0.1);
    EXPECT_GT(size(THING_SHADOW).x, 1.2f);
}

TEST(things, the_branch_moves_in_the_wind_and_so_does_its_shadow)
{
    held branch(THING_SHADOW);
    thing_moment moment;
    const scene_mesh now = posed(branch.t, moment);
    moment.time = 1.5f;
    const scene_mesh later = posed(branch.t, moment);
    float most = 0;
    for (size_t i = 0; i < now.vertices.size(); i++)
        most = std::max(most, scene_length(now.vertices[i].position - later.vertices[i].position));
    EXPECT_GT(most, 0.03f);
    EXPECT_LT(most, 0.4f);
}
