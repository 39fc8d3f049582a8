// Cat and dog: one four-legged body from a table of measures. A spine of elliptic sections, four legs of
// three bones that step in the order of a walk or, faster, a trot; a neck and head, ears, and a tail that
// sways.
#include "thing.h"

#include <algorithm>

namespace
{
const float PI = static_cast<float>(M_PI);

// Metres, for size 1. `shoulder` and `hip` are heights of the joints.
struct animal {
    float shoulder, hip, length; // from shoulder to hip
    float chest_wide, chest_high, waist_wide, waist_high, rump_wide, rump_high;
    float leg, paw; // radii
    float neck, head_wide, head_high, head_long, muzzle_long, muzzle_thick;
    float ear, tail, tail_thick;
    float step; // length of a whole cycle in walking, metres
    bool ears_hang;
};
const animal cat = {0.20f, 0.21f,  0.27f,  0.055f, 0.07f, 0.055f, 0.065f, 0.06f, 0.07f,  0.022f, 0.018f,
                    0.07f, 0.045f, 0.042f, 0.05f,  0.03f, 0.024f, 0.038f, 0.27f, 0.015f, 0.34f,  false};
const animal dog = {0.40f, 0.40f,  0.42f,  0.095f, 0.135f, 0.075f, 0.09f, 0.085f, 0.105f, 0.035f, 0.028f,
                    0.15f, 0.065f, 0.065f, 0.085f, 0.1f,   0.042f, 0.1f,  0.32f,  0.022f, 0.62f,  true};

enum { FUR, FUR_LIGHT, NOSE, EYES };

// How far it has gone from standing to sitting and lying, 0 to 1, by what it does over time when it does not
// walk.
struct posture {
    float sit, lie;
};
float ease(float t)
{
    t = std::max(0.f, std::min(1.f, t));
    return t * t * (3 - 2 * t);
}
posture rests(const thing *pet, const thing_moment *moment)
{
    posture p = {0, 0};
    if (moment->speed > 0.02f)
        return p;
    // Thirty seconds of standing, sitting, lying and back; each pet begins elsewhere.
    const float t = fmodf(fabsf(moment->time) + static_cast<float>(pet->seed % 7) * 4, 40);
    p.sit = ease((t - 3) / 1.2f) * (1 - ease((t - 36) / 1.2f));
    p.lie = ease((t - 16) / 1.5f) * (1 - ease((t - 30) / 1.5f));
    return p;
}

// The foot's place before (+) or behind (-) the joint and its lift, at a phase of the cycle from 0 to 1: on
// the ground, it goes back evenly with the body's way, then swings ahead.
void foot(float phase, float stride, float ground_share, float *ahead, float *lift)
{
    phase -= floorf(phase);
    if (phase < ground_share) {
        *ahead = stride * ground_share * (0.5f - phase / ground_share);
        *lift = 0;
        return;
    }
    const float t = (phase - ground_share) / (1 - ground_share);
    *ahead = stride * ground_share * (ease(t) - 0.5f);
    *lift = sinf(PI * t);
}

// Two bones of given length from the joint to the foot; the bend goes the way of `bend` (+1 ahead).
scene_vec knee(scene_vec joint, scene_vec end, float upper, float lower, float bend)
{
    scene_vec way = end - joint;
    float far = scene_length(way);
    far = std::max(1e-4f, std::min(far, (upper + lower) * 0.999f));
    way = scene_unit(way);
    const float along = (upper * upper - lower * lower + far * far) / (2 * far);
    const float off = sqrtf(std::max(0.f, upper * upper - along * along));
    const scene_vec side = scene_unit(scene_cross({1, 0, 0}, way)); // in the plane of y and z
    return joint + way * along + side * (off * (side.y > 0 ? bend : -bend));
}

void leg(shape_maker *m, scene_vec joint, scene_vec end, float reach, float radius, float paw, float bend,
         bool hind)
{
    // Drawn up when it rests, but never shorter than the way to the ground.
    reach = std::max(reach, scene_length(end - joint) * 0.95f);
    const float upper = reach * (hind ? 0.56f : 0.51f), lower = reach * (hind ? 0.54f : 0.52f);
    const scene_vec middle = knee(joint, end, upper, lower, bend);
    scene_vec ankle = end + scene_vec{0, hind ? -0.02f : 0, paw * 1.6f};
    const shape_section parts[6] = {{joint + scene_vec{0, 0, radius}, radius * 1.5f, radius * 2.2f},
                                    {joint + (middle - joint) * 0.5f, radius * 1.3f, radius * 1.7f},
                                    {middle, radius * 0.95f, radius * 1.05f},
                                    {ankle, paw * 0.8f, paw * 0.85f},
                                    {end + scene_vec{0, paw * 0.4f, paw * 0.7f}, paw * 1.1f, paw * 0.75f},
                                    {end + scene_vec{0, paw * 1.6f, paw * 0.45f}, paw * 0.9f, paw * 0.45f}};
    m->material = FUR;
    shape_tube(m, parts, 4, {0, 1, 0}, 8);
    m->material = FUR_LIGHT;
    shape_cushion(m, end + scene_vec{0, paw * 0.5f, paw * 0.6f}, {paw * 1.1f, paw * 1.6f, paw * 0.65f}, 0.9f,
                  8, 4);
}
} // namespace

static void dress(thing *pet, const float furs[][8], int count, scene_random *random)
{
    const float *fur = furs[scene_next(random) % static_cast<uint64_t>(count)];
    scene_material coat = thing_plain(fur[0], fur[1], fur[2], fur[3]);
    coat.pattern = PATTERN_NOISE;
    coat.size = 0.06f;
    for (int band = 0; band < BANDS; band++)
        coat.second[band] = fur[band] * 0.6f;
    pet->materials = {coat, thing_plain(fur[4], fur[5], fur[6], fur[7]),
                      thing_plain(.04f, .03f, .03f, .08f, .4f), thing_plain(.02f, .03f, .015f, .05f, .9f)};
}

// Coat and its light parts (paws, muzzle): red, green, blue, infrared.
void cat_dress(thing *pet, scene_random *random)
{
    static const float furs[][8] = {{.05f, .045f, .045f, .22f, .06f, .055f, .05f, .25f},
                                    {.42f, .22f, .09f, .55f, .62f, .55f, .45f, .68f},
                                    {.22f, .20f, .17f, .45f, .55f, .52f, .47f, .64f},
                                    {.62f, .60f, .55f, .68f, .66f, .63f, .58f, .70f}};
    dress(pet, furs, 4, random);
}

void dog_dress(thing *pet, scene_random *random)
{
    static const float furs[][8] = {{.34f, .21f, .10f, .52f, .50f, .38f, .25f, .62f},
                                    {.05f, .04f, .04f, .20f, .30f, .16f, .07f, .45f},
                                    {.58f, .50f, .38f, .66f, .64f, .58f, .48f, .70f},
                                    {.16f, .09f, .05f, .38f, .20f, .12f, .07f, .42f}};
    dress(pet, furs, 4, random);
}

void pet_shape(const thing *pet, const thing_moment *moment, shape_maker *m)
{
    const animal *a = pet->kind == THING_CAT ? &cat : &dog;
    const float size = pet->size, t = moment->time;
    const posture rest = rests(pet, moment);
    const float walking = std::min(1.f, moment->speed / 0.3f);
    const float fast = std::min(1.f, std::max(0.f, moment->speed - 0.9f)); // walk to trot
    const float step = a->step * size * (1 + 0.35f * fast);
    const float cycle = moment->way / step;
    const scene_place kept = m->place;
    m->place.x = m->place.x * size; // the whole animal grows; normals are put right below
    m->place.y = m->place.y * size;
    m->place.z = m->place.z * size;
    const size_t first = m->mesh->vertices.size();

    // Where shoulders and hips are. Sitting lowers the hips to the ground and brings them ahead; lying lowers
    // both.
    const float bob = walking * 0.012f * a->shoulder / 0.2f * cosf(4 * PI * cycle),
                breath = 0.004f * sinf(t * 2.6f);
    const float low = a->chest_high * 0.95f;
    scene_vec shoulder = {0, a->length / 2, a->shoulder + bob}, hip = {0, -a->length / 2, a->hip - bob};
    shoulder.y -= rest.sit * (1 - rest.lie) * a->length * 0.1f;
    shoulder.z += rest.sit * (1 - rest.lie) * a->shoulder * 0.12f;
    hip.y += rest.sit * (1 - rest.lie) * a->length * 0.2f;
    hip.z += (a->rump_high * 1.05f - hip.z) * rest.sit;
    shoulder.z += (low - shoulder.z) * rest.lie;
    const float sway = walking * 0.01f * sinf(2 * PI * cycle);
    const scene_vec middle = (shoulder + hip) * 0.5f + scene_vec{sway, 0, -a->chest_high * 0.12f + breath};

    m->material = FUR;
    const shape_section spine[8] = {
        {hip + scene_vec{0, -a->rump_high * 0.75f, a->rump_high * 0.1f}, a->rump_wide * 0.5f,
         a->rump_high * 0.5f},
        {hip + scene_vec{0, -a->rump_high * 0.35f, 0}, a->rump_wide * 0.92f, a->rump_high * 0.92f},
        {hip + scene_vec{0, a->length * 0.1f, 0}, a->rump_wide, a->rump_high},
        {middle + scene_vec{0, -a->length * 0.08f, a->waist_high * 0.25f}, a->waist_wide,
         a->waist_high + breath},
        {middle + scene_vec{0, a->length * 0.16f, 0}, a->chest_wide * 0.96f, a->chest_high * 0.96f + breath},
        {shoulder + scene_vec{0, -a->length * 0.06f, -a->chest_high * 0.1f}, a->chest_wide, a->chest_high},
        {shoulder + scene_vec{0, a->length * 0.12f, 0}, a->chest_wide * 0.85f, a->chest_high * 0.8f},
        {shoulder + scene_vec{0, a->length * 0.22f, a->chest_high * 0.1f}, a->chest_wide * 0.45f,
         a->chest_high * 0.45f}};
    shape_tube(m, spine, 8, {0, 0, 1}, 12);

    // Legs: left and right half a cycle apart, the hind one a quarter (walk) to a half (trot) before the
    // front one.
    const float ground = 0.62f - 0.12f * fast;
    for (int i = 0; i < 4; i++) {
        const bool hind = i >= 2, left = i % 2;
        const float side = left ? -1.f : 1.f;
        const scene_vec from = hind ? hip : shoulder;
        const float offset = (left ? 0.5f : 0.f) + (hind ? 0.25f + 0.25f * fast : 0.f);
        float ahead, lift;
        foot(cycle + offset, a->step * (1 + 0.35f * fast), ground, &ahead, &lift);
        ahead *= walking;
        lift *= walking * a->shoulder * 0.16f;
        const scene_vec joint = from + scene_vec{side * (hind ? a->rump_wide : a->chest_wide) * 0.62f,
                                                 hind ? 0.f : a->length * 0.04f, -a->chest_high * 0.15f};
        scene_vec end = {joint.x * 1.05f, joint.y + ahead, a->paw * 0.1f + lift};
        if (!hind)
            end.y += rest.lie * a->shoulder * 0.45f;
        else
            end.y += rest.sit * a->hip * 0.4f;
        end.x += side * rest.sit * (hind ? a->rump_wide * 0.35f : 0);
        const float drawn = 1 - (hind ? 0.3f * rest.sit + 0.15f * rest.lie : 0.5f * rest.lie);
        leg(m, joint, end, (hind ? a->hip : a->shoulder) * drawn, a->leg, a->paw, hind ? 1.f : -1.f, hind);
    }

    // Neck and head: looks about when it rests, nods when it walks.
    const float look = (1 - walking) * 35 * sinf(t * 0.5f + pet->tail * 3) * sinf(t * 0.23f + 1),
                nod = walking * 0.01f * sinf(4 * PI * cycle + 1);
    const float rise =
        (pet->kind == THING_CAT ? 0.75f : 1.0f) + 0.35f * rest.sit * (1 - rest.lie) - 0.15f * rest.lie;
    const scene_vec neck = shoulder + scene_vec{0, a->length * 0.12f, a->chest_high * 0.3f};
    const scene_vec nape = neck + scene_vec{0, a->neck * 0.8f, a->neck * rise + nod};
    m->material = FUR;
    const shape_section throat[3] = {{neck + scene_vec{0, -a->neck * 0.3f, -a->chest_high * 0.2f},
                                      a->chest_wide * 0.7f, a->chest_high * 0.6f},
                                     {(neck + nape) * 0.5f, a->head_wide * 0.85f, a->head_high * 1.05f},
                                     {nape, a->head_wide * 0.75f, a->head_high * 0.85f}};
    shape_tube(m, throat, 3, {0, -0.5f, 0.8f}, 9);
    const scene_place body = m->place;
    const float turn = look * PI / 180, c = cosf(turn), s = sinf(turn);
    m->place.x = body.x * c - body.y * s;
    m->place.y = body.y * c + body.x * s;
    m->place.origin = scene_put(body, nape + scene_vec{0, 0, 0});
    const float headway = a->head_long * 0.55f;
    shape_ball(m, {0, headway, a->head_high * 0.25f}, {a->head_wide, a->head_long, a->head_high}, 12, 8);
    m->material = FUR_LIGHT;
    const float front = headway + a->head_long * 0.8f;
    const shape_section muzzle[3] = {
        {{0, front - a->head_long * 0.3f, 0}, a->muzzle_thick * 1.25f, a->muzzle_thick * 1.15f},
        {{0, front + a->muzzle_long * 0.5f, -a->muzzle_thick * 0.15f},
         a->muzzle_thick,
         a->muzzle_thick * 0.9f},
        {{0, front + a->muzzle_long, -a->muzzle_thick * 0.2f},
         a->muzzle_thick * 0.7f,
         a->muzzle_thick * 0.65f}};
    shape_tube(m, muzzle, 3, {0, 0, 1}, 8);
    m->material = NOSE;
    shape_ball(m, {0, front + a->muzzle_long * 1.02f, a->muzzle_thick * 0.3f},
               {a->muzzle_thick * 0.4f, a->muzzle_thick * 0.3f, a->muzzle_thick * 0.3f}, 6, 4);
    for (int side = -1; side <= 1; side += 2) {
        const float x = static_cast<float>(side);
        m->material = EYES;
        shape_ball(m, {x * a->head_wide * 0.5f, headway + a->head_long * 0.78f, a->head_high * 0.5f},
                   {a->head_wide * 0.16f, a->head_wide * 0.16f, a->head_wide * 0.16f}, 6, 4);
        m->material = FUR;
        const scene_vec root = {x * a->head_wide * 0.62f, headway - a->head_long * 0.15f,
                                a->head_high * 0.95f};
        const scene_vec tip = a->ears_hang ? root + scene_vec{x * a->ear * 0.55f, 0, -a->ear * 0.75f}
                                           : root + scene_vec{x * a->ear * 0.2f, 0, a->ear};
        const shape_section ear[3] = {
            {root + scene_vec{0, 0, -0.01f}, a->ear * (a->ears_hang ? 0.42f : 0.6f), a->ear * 0.16f},
            {root + (tip - root) * 0.5f + scene_vec{a->ears_hang ? x * 0.02f : 0, 0, 0}, a->ear * 0.34f,
             a->ear * 0.12f},
            {tip, a->ear * 0.08f, a->ear * 0.05f}};
        shape_tube(m, ear, 3, {0, 1, 0}, 7);
    }
    m->place = body;

    // The tail: from carried high to hanging, swaying; round the body when it sits.
    m->material = FUR;
    shape_section tail[8];
    const scene_vec base = hip + scene_vec{0, -a->rump_high * 0.5f, a->rump_high * 0.4f};
    const float wag = pet->kind == THING_DOG ? 0.35f * sinf(t * 9) * (1 - rest.lie) : 0.18f * sinf(t * 1.7f);
    const float carried = (0.6f + 0.35f * pet->tail) * (1 - rest.sit);
    scene_vec at = base;
    for (int i = 0; i < 8; i++) {
        const float along = static_cast<float>(i) / 7;
        tail[i] = {at, a->tail_thick * (1.15f - 0.6f * along), a->tail_thick * (1.15f - 0.6f * along)};
        const float up = carried * (0.3f + 1.1f * along) - rest.sit * 0.5f * (1 - along),
                    bent = wag * (0.5f + along) + rest.sit * 1.6f * along;
        scene_vec way = {sinf(bent) * cosf(up), -cosf(bent) * cosf(up), sinf(up)};
        if (at.z < a->tail_thick * 1.2f)
            way.z = std::max(0.f, way.z);
        at = at + scene_unit(way) * (a->tail / 7);
        at.z = std::max(a->tail_thick, at.z);
    }
    shape_tube(m, tail, 8, {0, 0, 1}, 7);

    m->place = kept;
    for (size_t i = first; i < m->mesh->vertices.size(); i++)
        m->mesh->vertices[i].normal = scene_unit(m->mesh->vertices[i].normal);
}
