// Robot vacuum, fan, ball, balloon, parcel, coat, insect, and what throws shadows from outside.
#include "thing.h"

#include <algorithm>

static const float PI = static_cast<float>(M_PI);

void vacuum_dress(thing *thing, scene_random *random)
{
    const float c = scene_chance(random, 0.5f) ? 0.04f : 0.62f;
    thing->materials = {thing_plain(c, c, c, c + 0.05f, .4f), thing_plain(.10f, .10f, .11f, .15f, .6f),
                        thing_plain(.25f, .25f, .26f, .3f, .4f), thing_plain(.1f, .4f, .2f, .3f)};
    thing->materials[3].emission[BAND_GREEN] = 40; // its running light
}

void vacuum_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    (void)thing;
    const float r = 0.165f;
    m->material = 0;
    const shape_ring body[7] = {{0, 0.012f},          {r - 0.012f, 0.012f}, {r, 0.025f}, {r, 0.07f},
                                {r - 0.012f, 0.085f}, {r * 0.5f, 0.088f},   {0, 0.088f}};
    shape_turned(m, {0, 0, 0}, body, 7, 24, true);
    m->material = 1; // the bumper before, the turret
    for (int i = 0; i < 12; i++) {
        const float from = PI * static_cast<float>(i) / 12, to = PI * static_cast<float>(i + 1) / 12,
                    q = r + 0.004f;
        shape_quad(m, {q * cosf(from), q * sinf(from), 0.022f}, {q * cosf(to), q * sinf(to), 0.022f},
                   {q * cosf(to), q * sinf(to), 0.07f}, {q * cosf(from), q * sinf(from), 0.07f});
    }
    const shape_ring turret[4] = {{0.05f, 0.086f}, {0.05f, 0.1f}, {0.042f, 0.105f}, {0, 0.105f}};
    shape_turned(m, {0, -0.04f, 0}, turret, 4, 16, false);
    m->material = 3;
    shape_cylinder(m, {0, 0.07f, 0.0875f}, 0.012f, 0.003f, 10);
    m->material = 2; // the side brush goes round
    const float turn = moment->speed > 0 ? moment->time * 14 : 0;
    for (int i = 0; i < 3; i++) {
        const float a = turn + 2 * PI * static_cast<float>(i) / 3;
        const scene_vec hub = {0.11f, 0.1f, 0.01f};
        shape_rod(m, hub, hub + scene_vec{0.08f * cosf(a), 0.08f * sinf(a), -0.006f}, 0.004f, 4);
    }
    for (int side = -1; side <= 1; side += 2)
        shape_rod(m, {0.11f * static_cast<float>(side), 0, 0.03f},
                  {0.13f * static_cast<float>(side), 0, 0.03f}, 0.03f, 10);
}

void ball_dress(thing *thing, scene_random *random)
{
    static const float colours[4][4] = {{.46f, .06f, .05f, .58f},
                                        {.60f, .48f, .06f, .66f},
                                        {.06f, .18f, .42f, .52f},
                                        {.16f, .40f, .12f, .56f}};
    const float *c = colours[scene_next(random) % 4];
    thing->materials = {thing_plain(c[0], c[1], c[2], c[3], .3f), thing_plain(.68f, .68f, .66f, .74f, .3f)};
    thing->size = scene_uniform(random, 0.09f, 0.13f);
}

// Rolls: turned about its own x axis by way over radius.
void ball_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    const float r = thing->size, turn = fmodf(moment->way / r, 2 * PI), c = cosf(turn), s = sinf(turn);
    const scene_place kept = m->place;
    m->place.origin = scene_put(kept, {0, 0, r});
    m->place.y = kept.y * c - kept.z * s;
    m->place.z = kept.z * c + kept.y * s;
    // Six gores, in turn in one colour and white.
    enum { GORES = 6, AROUND = 4, RINGS = 10 };
    for (int gore = 0; gore < GORES; gore++) {
        m->material = static_cast<uint32_t>(gore % 2);
        for (int i = 0; i < AROUND; i++)
            for (int j = 0; j < RINGS; j++) {
                scene_vec corner[4];
                for (int k = 0; k < 4; k++) {
                    const float a =
                        2 * PI *
                        (static_cast<float>(gore) + static_cast<float>(i + (k == 1 || k == 2)) / AROUND) /
                        GORES;
                    const float up = PI * (static_cast<float>(j + (k >= 2)) / RINGS - 0.5f);
                    corner[k] = {cosf(up) * sinf(up * 0 + a), sinf(up), cosf(up) * cosf(a)};
                }
                uint32_t at[4];
                for (int k = 0; k < 4; k++)
                    at[k] = shape_vertex(m, corner[k] * r, corner[k], 0, 0);
                const uint32_t two[6] = {at[0], at[1], at[2], at[0], at[2], at[3]};
                m->mesh->indices.insert(m->mesh->indices.end(), two, two + 6);
            }
    }
    m->place = kept;
}

void balloon_dress(thing *thing, scene_random *random)
{
    static const float colours[3][4] = {
        {.50f, .06f, .06f, .60f}, {.08f, .20f, .46f, .56f}, {.62f, .50f, .08f, .66f}};
    const float *c = colours[scene_next(random) % 3];
    thing->materials = {thing_plain(c[0], c[1], c[2], c[3], .6f), thing_plain(.6f, .6f, .58f, .66f)};
    thing->materials[0].through = 0.3f;
}

void balloon_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    const float r = 0.14f * thing->size, t = moment->time;
    const scene_vec at = {0.05f * sinf(t * 0.7f), 0.05f * sinf(t * 0.9f + 1), 0.02f * sinf(t * 1.3f)};
    m->material = 0;
    const shape_ring skin[9] = {
        {0.012f, 0},    {0.006f, 0.02f},        {r * 0.35f, 0.05f},    {r * 0.75f, r * 0.75f},
        {r, r * 1.45f}, {r * 0.93f, r * 1.95f}, {r * 0.66f, r * 2.3f}, {r * 0.3f, r * 2.46f},
        {0, r * 2.5f}};
    shape_turned(m, at, skin, 9, 18, true);
    m->material = 1;
    shape_section string[7];
    for (int i = 0; i < 7; i++) {
        const float down = static_cast<float>(i) / 6;
        string[i] = {at * (1 - down) + scene_vec{0.02f * sinf(t * 1.1f + 4 * down), 0, -0.6f * down}, 0.0015f,
                     0.0015f};
    }
    shape_tube(m, string, 7, {0, 1, 0}, 4);
}

void box_dress(thing *thing, scene_random *random)
{
    scene_material card = thing_plain(.42f, .30f, .18f, .62f);
    card.pattern = PATTERN_NOISE;
    card.size = 0.3f;
    thing->materials = {card, thing_plain(.34f, .24f, .13f, .5f, .5f), thing_plain(.72f, .72f, .7f, .76f),
                        thing_plain(.05f, .05f, .05f, .1f)};
    thing->size = scene_uniform(random, 0.85f, 1.1f);
}

void box_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    (void)moment;
    const float w = 0.2f * thing->size, d = 0.15f * thing->size, h = 0.26f * thing->size;
    m->material = 0;
    shape_box(m, {-w, -d, 0}, {w, d, h}, 0.006f);
    m->material = 1;
    shape_box(m, {-w - 0.001f, -0.025f, h * 0.7f}, {w + 0.001f, 0.025f, h + 0.0015f});
    m->material = 2;
    shape_box(m, {-w * 0.5f, d, h * 0.35f}, {w * 0.3f, d + 0.001f, h * 0.8f});
    m->material = 3;
    for (int i = 0; i < 5; i++) {
        const float z = h * (0.42f + 0.07f * static_cast<float>(i));
        shape_box(m, {-w * 0.45f, d + 0.001f, z}, {w * (i % 2 ? 0.05f : 0.22f), d + 0.002f, z + 0.006f});
    }
    m->material = 0; // flaps do not close quite
    for (int side = -1; side <= 1; side += 2)
        shape_quad(m, {-w + 0.005f, static_cast<float>(side) * 0.004f, h + 0.002f},
                   {w - 0.005f, static_cast<float>(side) * 0.004f, h + 0.002f},
                   {w - 0.005f, static_cast<float>(side) * 0.004f + 0.003f, h + 0.003f},
                   {-w + 0.005f, static_cast<float>(side) * 0.004f + 0.003f, h + 0.003f});
}

void insect_dress(thing *thing, scene_random *)
{
    thing->materials = {thing_plain(.05f, .045f, .04f, .12f, .3f), thing_plain(.4f, .4f, .4f, .45f, .4f)};
    thing->materials[1].through = 0.6f;
}

void insect_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    const float s = 0.004f * thing->size;
    m->material = 0;
    shape_ball(m, {0, 0, 0}, {s * 0.5f, s * 1.2f, s * 0.5f}, 10, 6);
    shape_ball(m, {0, s * 1.4f, 0}, {s * 0.4f, s * 0.4f, s * 0.4f}, 8, 5);
    for (int i = 0; i < 6; i++) {
        const float side = i % 2 ? 1.f : -1.f, y = s * (0.6f - 0.5f * static_cast<float>(i / 2));
        const scene_vec bend = {side * s * 1.2f, y, s * 0.1f};
        shape_rod(m, {side * s * 0.4f, y, -s * 0.2f}, bend, s * 0.06f, 4);
        shape_rod(m, bend, {side * s * 1.7f, y + s * 0.2f, -s * 0.8f}, s * 0.05f, 4);
    }
    m->material = 1;
    const float beat = 0.6f * sinf(fmodf(moment->time, 100.f) * 180);
    for (int side = -1; side <= 1; side += 2) {
        const float x = static_cast<float>(side), up = s * 1.5f * beat;
        const shape_section wing[4] = {{{x * s * 0.3f, s * 0.4f, s * 0.4f}, s * 0.2f, s * 0.03f},
                                       {{x * s * 1.2f, s * 0.2f, s * 0.4f + up * 0.4f}, s * 0.6f, s * 0.03f},
                                       {{x * s * 2.2f, -s * 0.2f, s * 0.4f + up * 0.8f}, s * 0.6f, s * 0.03f},
                                       {{x * s * 2.8f, -s * 0.5f, s * 0.4f + up}, s * 0.2f, s * 0.02f}};
        shape_tube(m, wing, 4, {0, 0, 1}, 6);
    }
}

void fan_dress(thing *thing, scene_random *random)
{
    const float c = scene_chance(random, 0.5f) ? 0.05f : 0.66f;
    thing->materials = {thing_plain(c, c, c, c + 0.06f, .4f), thing_plain(.35f, .36f, .38f, .45f, .4f),
                        thing_plain(.5f, .5f, .5f, .52f, .7f)};
    thing->materials[1].through = 0.3f;
}

void fan_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    const float high = 1.05f + 0.15f * thing->legs, t = moment->time, r = 0.2f;
    m->material = 0;
    shape_cylinder(m, {0, 0, 0}, 0.18f, 0.02f, 18);
    shape_rod(m, {0, 0, 0.015f}, {0, 0, high - 0.05f}, 0.013f, 8);
    shape_ball(m, {0, 0, 0.03f}, {0.04f, 0.04f, 0.03f}, 10, 5);
    const bool runs = moment->speed > 0;
    const float turn = runs ? 45 * sinf(t * 0.55f) : 0;
    const scene_place kept = m->place, own = scene_standing({0, 0, high}, turn);
    m->place = {scene_turn(kept, own.x), scene_turn(kept, own.y), own.z, scene_put(kept, own.origin)};
    const shape_section motor[5] = {{{0, -0.13f, 0}, 0.03f, 0.03f},
                                    {{0, -0.1f, 0}, 0.055f, 0.06f},
                                    {{0, -0.03f, 0}, 0.065f, 0.07f},
                                    {{0, 0.02f, 0}, 0.05f, 0.05f},
                                    {{0, 0.045f, 0}, 0.03f, 0.03f}};
    shape_tube(m, motor, 5, {0, 0, 1}, 12);
    m->material = 1;
    const float spin = runs ? fmodf(t, 1000) * 41 : 0.4f;
    for (int i = 0; i < 4; i++) {
        const float a = spin + PI / 2 * static_cast<float>(i);
        const auto at = [a](float out, float round, float ahead) {
            return scene_vec{out * cosf(a + round), 0.07f + ahead, out * sinf(a + round)};
        };
        const scene_vec net[4] = {at(0.03f, -0.3f, -0.012f), at(r * 0.9f, -0.28f, -0.02f),
                                  at(r * 0.9f, 0.55f, 0.02f), at(0.03f, 0.6f, 0.012f)};
        shape_quad(m, net[0], net[1], net[2], net[3]);
        shape_quad(m, net[3], net[2], net[1], net[0]);
    }
    m->material = 2; // the cage: rings and ribs before and behind
    for (int face = 0; face < 2; face++) {
        const float y = face ? 0.125f : 0.02f;
        for (int i = 0; i < 20; i++) {
            const float a = 2 * PI * static_cast<float>(i) / 20;
            const scene_vec rim = {r * cosf(a), 0.075f, r * sinf(a)};
            shape_rod(m, {0.035f * cosf(a), y, 0.035f * sinf(a)}, {r * 0.9f * cosf(a), y, r * 0.9f * sinf(a)},
                      0.0018f, 3);
            shape_rod(m, {r * 0.9f * cosf(a), y, r * 0.9f * sinf(a)}, rim, 0.0018f, 3);
        }
        shape_rod(m, {0, y - 0.005f, 0}, {0, y + 0.005f, 0}, 0.04f, 12);
    }
    for (int i = 0; i < 24; i++) {
        const float a = 2 * PI * static_cast<float>(i) / 24, b = 2 * PI * static_cast<float>(i + 1) / 24;
        shape_rod(m, {r * cosf(a), 0.075f, r * sinf(a)}, {r * cosf(b), 0.075f, r * sinf(b)}, 0.006f, 4);
    }
    m->place = kept;
}

void coat_dress(thing *thing, scene_random *random)
{
    thing->materials = {stuff_material(STUFF_COAT, static_cast<uint32_t>(scene_next(random))),
                        thing_plain(.02f, .02f, .02f, .2f), thing_plain(.5f, .5f, .5f, .5f, .6f)};
}

// Hangs by its collar at the position, its back to the wall (y looks into the room); sways a little.
void coat_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    const float s = thing->size, t = moment->time,
                sway = 0.012f * sinf(t * 0.8f) + 0.005f * sinf(t * 1.9f + 1);
    m->material = 0;
    const auto at = [&](float down, float x, float y) {
        return scene_vec{x + sway * down, y + 0.09f + 0.4f * sway * down, -down};
    };
    const shape_section body[9] = {
        {at(0.02f, 0, 0), 0.05f, 0.04f},         {at(0.08f, 0, 0), 0.14f, 0.055f},
        {at(0.16f, 0, 0.005f), 0.2f, 0.07f},     {at(0.3f * s, 0, 0.005f), 0.205f, 0.075f},
        {at(0.5f * s, 0.01f, 0), 0.19f, 0.08f},  {at(0.7f * s, 0.01f, 0.01f), 0.2f, 0.085f},
        {at(0.9f * s, 0, 0.01f), 0.225f, 0.09f}, {at(1.05f * s, 0, 0.015f), 0.24f, 0.09f},
        {at(1.08f * s, 0, 0.015f), 0.23f, 0.08f}};
    shape_tube(m, body, 9, {0, 1, 0}, 16);
    for (int side = -1; side <= 1; side += 2) {
        const float x = static_cast<float>(side);
        const shape_section sleeve[5] = {{at(0.12f, x * 0.17f, 0), 0.07f, 0.06f},
                                         {at(0.25f, x * 0.225f, 0.01f), 0.062f, 0.06f},
                                         {at(0.42f * s, x * 0.245f, 0.02f), 0.055f, 0.055f},
                                         {at(0.58f * s, x * 0.245f, 0.03f), 0.05f, 0.052f},
                                         {at(0.68f * s, x * 0.24f, 0.04f), 0.052f, 0.05f}};
        shape_tube(m, sleeve, 5, {0, 1, 0}, 10);
        const shape_section lapel[3] = {{at(0.03f, x * 0.04f, 0.035f), 0.03f, 0.012f},
                                        {at(0.16f, x * 0.06f, 0.075f), 0.045f, 0.012f},
                                        {at(0.34f, x * 0.015f, 0.088f), 0.012f, 0.008f}};
        shape_tube(m, lapel, 3, {0, 1, 0}, 6);
    }
    m->material = 1; // where it opens, and the pockets' edges
    shape_box(m, at(1.04f * s, -0.006f, 0.088f), at(0.34f, 0.006f, 0.096f) + scene_vec{0.001f, 0.002f, 0});
    m->material = 2;
    for (int i = 0; i < 4; i++)
        shape_ball(m, at(0.38f + 0.13f * static_cast<float>(i), 0.03f, 0.092f), {0.011f, 0.006f, 0.011f}, 6,
                   4);
}

void shadow_dress(thing *thing, scene_random *)
{
    thing->materials = {thing_plain(.05f, .1f, .03f, .5f), thing_plain(.1f, .07f, .05f, .3f)};
}

// A branch in the wind, in the air around the position.
void shadow_shape(const thing *thing, const thing_moment *moment, shape_maker *m)
{
    scene_random random = {thing->seed + UINT64_C(5)};
    const float t = moment->time;
    const float sway = 0.06f * sinf(t * 0.9f) + 0.03f * sinf(t * 2.1f + 1);
    m->material = 1;
    shape_section bough[5];
    for (int i = 0; i < 5; i++) {
        const float s = static_cast<float>(i) / 4;
        bough[i] = {{-0.9f + 1.8f * s, 0.1f * sinf(3 * s), -0.3f + 0.5f * s + sway * s * s},
                    0.035f * (1.1f - s),
                    0.035f * (1.1f - s)};
    }
    shape_tube(m, bough, 5, {0, 0, 1}, 6);
    m->material = 0;
    for (int i = 0; i < 70; i++) {
        const float s = scene_uniform(&random, 0.1f, 1), out = scene_uniform(&random, 0.05f, 0.5f),
                    round = scene_uniform(&random, 0, 2 * PI), size = scene_uniform(&random, 0.04f, 0.09f),
                    own = 0.03f * sinf(t * 3 + round * 5);
        const scene_vec centre = {-0.9f + 1.8f * s, out * cosf(round) * 0.5f,
                                  -0.3f + 0.5f * s + out * sinf(round) + sway * s * s + own};
        shape_ball(m, centre, {size, size * 0.4f, size * 0.6f}, 6, 3);
    }
}
