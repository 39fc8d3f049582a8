// Trunk, limbs, clothes: lofts along the figure at rest. Tables are metres of a body 1.75 m tall; their shapes follow
// common anthropometric breadths and girths (shoulder breadth over the deltoids 0.49 m, hip breadth 0.35 m, thigh
// girth 0.57 m, calf girth 0.37 m) and are stretched from there.
#include "body.h"

#include <algorithm>

namespace
{
// Height (share of the stature of an adult), half breadth, front, back; then what is added to the three by weight and
// by curves.
const float trunk_table[][10] = {{.440f, .060f, .045f, .060f, .02f, .02f, .02f, .005f, 0, .005f},
                                 {.458f, .128f, .074f, .092f, .03f, .02f, .02f, .006f, 0, .010f},
                                 {.480f, .158f, .092f, .116f, .04f, .03f, .03f, .010f, 0, .016f},
                                 {.505f, .169f, .099f, .128f, .045f, .04f, .03f, .014f, 0, .018f},
                                 {.530f, .171f, .102f, .126f, .05f, .06f, .03f, .014f, 0, .014f},
                                 {.565f, .160f, .104f, .110f, .055f, .085f, .03f, .004f, 0, .004f},
                                 {.600f, .147f, .103f, .096f, .06f, .10f, .03f, -.014f, -.006f, -.004f},
                                 {.640f, .146f, .105f, .094f, .06f, .10f, .03f, -.020f, -.006f, 0},
                                 {.680f, .154f, .111f, .102f, .05f, .075f, .03f, -.016f, .006f, 0},
                                 {.715f, .164f, .117f, .110f, .04f, .05f, .03f, -.014f, .032f, 0},
                                 {.745f, .171f, .117f, .114f, .035f, .04f, .03f, -.012f, .024f, 0},
                                 {.775f, .176f, .104f, .113f, .03f, .03f, .03f, -.012f, .006f, 0},
                                 {.800f, .172f, .086f, .104f, .02f, .02f, .025f, -.010f, 0, 0},
                                 {.818f, .146f, .068f, .092f, .015f, .01f, .02f, -.008f, 0, 0},
                                 {.832f, .108f, .056f, .080f, .012f, .01f, .015f, -.006f, 0, 0},
                                 {.844f, .076f, .050f, .070f, .01f, .01f, .012f, -.006f, 0, 0},
                                 {.856f, .061f, .047f, .064f, .01f, .01f, .01f, -.006f, 0, 0},
                                 {.880f, .056f, .046f, .060f, .01f, .01f, .01f, -.006f, 0, 0}};

// Along the leg: 0 at the hip joint, 1 at the knee, 2 at the ankle; half breadth, front, back; what weight adds.
const float leg_table[][5] = {{-.20f, .060f, .070f, .085f, .020f}, {-.05f, .082f, .086f, .098f, .030f},
                              {.10f, .087f, .089f, .097f, .034f},  {.30f, .084f, .086f, .086f, .032f},
                              {.55f, .073f, .077f, .071f, .024f},  {.80f, .061f, .065f, .058f, .016f},
                              {.95f, .056f, .061f, .053f, .011f},  {1.05f, .054f, .058f, .052f, .010f},
                              {1.18f, .054f, .050f, .060f, .010f}, {1.32f, .055f, .046f, .070f, .012f},
                              {1.50f, .049f, .042f, .062f, .011f}, {1.70f, .039f, .037f, .044f, .008f},
                              {1.86f, .034f, .036f, .037f, .006f}, {2.00f, .036f, .044f, .040f, .004f}};

// Along the arm: 0 at the shoulder joint, 1 at the elbow, 2 at the wrist; half breadth, front, back; weight.
const float arm_table[][5] = {{-.15f, .020f, .020f, .022f, .004f}, {-.11f, .037f, .038f, .040f, .008f},
                              {-.04f, .050f, .051f, .053f, .012f}, {.06f, .054f, .055f, .057f, .015f},
                              {.22f, .050f, .053f, .054f, .016f},  {.45f, .044f, .049f, .049f, .015f},
                              {.70f, .040f, .044f, .043f, .012f},  {.92f, .037f, .040f, .039f, .009f},
                              {1.05f, .037f, .041f, .039f, .008f}, {1.25f, .036f, .043f, .038f, .008f},
                              {1.55f, .030f, .036f, .033f, .006f}, {1.85f, .022f, .028f, .026f, .003f},
                              {2.05f, .020f, .028f, .026f, .002f}};

struct maker {
    const person_look &look;
    const figure &f;
    shape *s;
    float scale;  // of breadths and girths
    float weight; // what a table's column of weight is taken by
    uint32_t seed;
};

// A height of the trunk table on this figure: hip, shoulder and chin fall where they are.
float trunk_height(const figure &f, float at)
{
    const float hip = f.rest[BONE_THIGH].z, shoulder = f.rest[BONE_SHOULDER].z, chin = f.height - f.head;
    if (at < .53f)
        return hip + (at - .53f) * f.height;
    if (at < .804f)
        return blend(hip, shoulder, (at - .53f) / (.804f - .53f));
    return blend(shoulder, chin, (at - .804f) / (.870f - .804f));
}

shape_ring trunk_ring(const maker &m, float at, float more)
{
    float v[9];
    body_between(trunk_table[0], sizeof trunk_table / sizeof trunk_table[0], 10, at, v);
    const float k = m.weight, c = m.look.curves;
    // Broad shoulders widen the chest, most at the arms.
    const float broad =
        (m.look.shoulders - 0.5f) * 0.03f * smooth(.66f, .79f, at) * (1 - smooth(.80f, .85f, at));
    const float neck = smooth(.80f, .88f, at) * 0.016f; // it leans forward
    return shape_level({0, neck * m.scale, trunk_height(m.f, at)},
                       m.scale * (v[0] + k * v[3] + c * v[6] + broad) + more,
                       m.scale * (v[1] + k * v[4] + c * v[7]) + more,
                       m.scale * (v[2] + k * v[5] + c * v[8]) + more, at > .62f && at < .81f ? 2.35f : 2.15f);
}

scene_vec leg_at(const figure &f, int side, float at)
{
    const scene_vec *rest = f.rest + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
    scene_vec p = rest[BONE_THIGH];
    p.z -= at < 1 ? at * f.thigh : f.thigh + (at - 1) * f.shin;
    return p;
}

shape_ring leg_ring(const maker &m, int side, float at, float more)
{
    float v[4];
    body_between(leg_table[0], sizeof leg_table / sizeof leg_table[0], 5, at, v);
    const float k = m.weight * v[3];
    const scene_vec centre = leg_at(m.f, side, at);
    return shape_level(centre, m.scale * (v[0] + k) + more, m.scale * (v[1] + k) + more,
                       m.scale * (v[2] + k) + more, 2);
}

scene_vec arm_along(int side)
{
    const float s = side == FIGURE_RIGHT ? 1.f : -1.f;
    return {s * sinf(radians(FIGURE_REST)), 0, -cosf(radians(FIGURE_REST))};
}

shape_ring arm_ring(const maker &m, int side, float at, float more)
{
    float v[4];
    body_between(arm_table[0], sizeof arm_table / sizeof arm_table[0], 5, at, v);
    const float k = m.weight * v[3] + (m.look.shoulders - 0.5f) * 0.008f - m.look.curves * 0.004f;
    const scene_vec along = arm_along(side);
    const scene_vec *rest = m.f.rest + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
    const scene_vec centre =
        rest[BONE_ARM] + along * (at < 1 ? at * m.f.arm : m.f.arm + (at - 1) * m.f.forearm);
    return shape_limb(centre, along, m.scale * (v[0] + k) + more, m.scale * (v[1] + k) + more,
                      m.scale * (v[2] + k) + more);
}

void hang_joint(shape_mixer *mix, int before, int half, int after, float distance, float reach)
{
    const float near = clamped(1 - fabsf(distance) / reach, 0, 1);
    shape_hang(mix, half, near);
    shape_hang(mix, distance < 0 ? before : after, 1 - near);
}

shape_hold on_arm(const figure &f, int side, scene_vec p)
{
    const scene_vec *rest = f.rest + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
    const float along = scene_dot(p - rest[BONE_ARM], arm_along(side));
    shape_mixer m;
    if (along < 0.08f * f.scale) {
        const float part = smooth(-0.07f * f.scale, 0.06f * f.scale, along);
        shape_hang(&m, figure_bone_of(side, BONE_SHOULDER), 1 - part);
        shape_hang(&m, figure_bone_of(side, BONE_ARM), part);
    } else if (along < f.arm + 0.5f * f.forearm) {
        hang_joint(&m, figure_bone_of(side, BONE_ARM), figure_bone_of(side, BONE_ELBOW),
                   figure_bone_of(side, BONE_FOREARM), along - f.arm, 0.06f * f.scale);
    } else {
        const float hand = smooth(f.arm + f.forearm - 0.02f, f.arm + f.forearm + 0.02f, along);
        shape_hang(&m, figure_bone_of(side, BONE_FOREARM), 1 - hand);
        shape_hang(&m, figure_bone_of(side, BONE_HAND), hand);
    }
    return shape_held(m);
}

shape_hold on_leg(const figure &f, int side, scene_vec p)
{
    const scene_vec *rest = f.rest + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
    shape_mixer m;
    const float below = rest[BONE_THIGH].z - p.z;
    if (below < 0.5f * f.thigh) {
        const float part = smooth(-0.03f * f.scale, 0.10f * f.scale, below);
        shape_hang(&m, figure_bone_of(side, BONE_HIP), 1 - part);
        shape_hang(&m, figure_bone_of(side, BONE_THIGH), part);
    } else {
        hang_joint(&m, figure_bone_of(side, BONE_THIGH), figure_bone_of(side, BONE_KNEE),
                   figure_bone_of(side, BONE_SHIN), below - f.thigh, 0.085f * f.scale);
    }
    return shape_held(m);
}

shape_hold on_foot(const figure &f, int side, scene_vec p)
{
    shape_mixer m;
    const float shaft = smooth(f.ankle + 0.005f, f.ankle + 0.04f, p.z);
    const float toes = smooth(f.ball - 0.025f, f.ball + 0.025f, p.y);
    shape_hang(&m, figure_bone_of(side, BONE_SHIN), shaft);
    shape_hang(&m, figure_bone_of(side, BONE_FOOT), (1 - shaft) * (1 - toes));
    shape_hang(&m, figure_bone_of(side, BONE_TOES), (1 - shaft) * toes);
    return shape_held(m);
}

// Cloth that hangs round both legs: each thigh takes its half along, the middle goes with both.
shape_hold on_skirt(const figure &f, int side, scene_vec p)
{
    (void)side;
    shape_mixer m;
    const float hip = f.rest[BONE_THIGH].z, knee = hip - f.thigh, wide = 0.11f * f.scale;
    const float down = smooth(hip + 0.05f, hip - 0.10f * f.scale, p.z);
    if (down <= 0)
        return body_on_trunk(f, FIGURE_RIGHT, p);
    shape_hang(&m, BONE_PELVIS, 1 - down);
    const float right = smooth(-wide, wide, p.x);
    const float low = smooth(knee + 0.04f, knee - 0.16f, p.z), whole = smooth(hip, hip - 0.16f, p.z);
    for (int s = 0; s < FIGURE_SIDES; s++) {
        const float part = down * (s == FIGURE_RIGHT ? right : 1 - right);
        if (low > 0.3f) {
            shape_hang(&m, figure_bone_of(s, BONE_KNEE), part * low);
            shape_hang(&m, figure_bone_of(s, BONE_THIGH), part * (1 - low));
        } else {
            shape_hang(&m, figure_bone_of(s, BONE_THIGH), part * whole);
            shape_hang(&m, figure_bone_of(s, BONE_HIP), part * (1 - whole));
        }
    }
    return shape_held(m);
}

void add(const maker &m, const shape_loft &loft, int side, shape_weigher weigh)
{
    shape_add(m.s, loft, m.f, side, weigh);
}

// The trunk's surface from height `low` to `high`, both of the table.
shape_loft trunk(const maker &m, float low, float high, int rings, float more, uint32_t material)
{
    shape_loft loft;
    loft.segments = 20;
    loft.material = material;
    for (int i = 0; i < rings; i++)
        loft.rings.push_back(
            trunk_ring(m, blend(low, high, static_cast<float>(i) / static_cast<float>(rings - 1)), more));
    loft.seed = m.seed;
    return loft;
}

void add_skirt(const maker &m, float waist, float hem, float flare, float more, uint32_t material)
{
    const float top = trunk_height(m.f, waist), hip = m.f.rest[BONE_THIGH].z;
    shape_loft loft;
    loft.segments = 20;
    loft.material = material;
    loft.folds = 0.006f + 0.012f * flare;
    loft.seed = m.seed + 9;
    loft.first = SHAPE_FLAT;
    const shape_ring widest = trunk_ring(m, .505f, more);
    const float bottom = hip - hem * m.f.height;
    const int below = 8, above = 6;
    for (int i = 0; i < below; i++) {
        const float z = blend(bottom, trunk_height(m.f, .505f), static_cast<float>(i) / below);
        const float out = flare * (trunk_height(m.f, .505f) - z) * 0.42f - 0.02f * smooth(hip, hip - 0.3f, z);
        shape_ring r = widest;
        r.centre.z = z;
        r.across = r.across + scene_vec{out, 0, 0};
        r.front = r.front + scene_vec{0, out * 0.9f + 0.012f, 0};
        r.back = r.back + scene_vec{0, out * 0.8f, 0};
        loft.rings.push_back(r);
    }
    for (int i = 0; i <= above; i++)
        loft.rings.push_back(trunk_ring(m, blend(.505f, waist, static_cast<float>(i) / above), more));
    (void)top;
    add(m, loft, FIGURE_RIGHT, on_skirt);
}

void add_leg(const maker &m, int side, float from, float to, int rings, float more, float hem,
             uint32_t material, float folds)
{
    shape_loft loft;
    loft.segments = 14;
    loft.material = material;
    loft.folds = folds;
    loft.seed = m.seed + 20 + static_cast<uint32_t>(side);
    loft.first = SHAPE_ROUND;
    loft.last = SHAPE_FLAT;
    for (int i = 0; i < rings; i++) {
        const float at = blend(from, to, static_cast<float>(i) / static_cast<float>(rings - 1));
        shape_ring r = leg_ring(m, side, at, more * smooth(-.1f, .3f, at));
        // A trouser leg falls straight from the knee, wider than what is in it.
        const float least = hem * smooth(.5f, 1.3f, at) * m.scale;
        r.across.x = std::max(r.across.x, least);
        r.front.y = std::max(r.front.y, least);
        r.back.y = std::max(r.back.y, least * 1.1f);
        loft.rings.push_back(r);
    }
    add(m, loft, side, on_leg);
}

void add_shoe(const maker &m, int side)
{
    const figure &f = m.f;
    const float k = f.height / 1.75f, x = (side == FIGURE_RIGHT ? 1.f : -1.f) * f.rest[BONE_THIGH].x;
    const float centre = side == FIGURE_RIGHT ? x : f.rest[BONE_THIGH + BONES_A_SIDE].x;
    // Along the foot from the heel, 0 to 1: half breadth, height; the middle wanders to the inside like a foot's.
    const float outline[][4] = {
        {0, .012f, .040f, 0},        {.03f, .026f, .062f, 0},     {.10f, .034f, .080f, 0},
        {.22f, .037f, .092f, 0},     {.36f, .037f, .088f, 0},     {.50f, .040f, .068f, .002f},
        {.66f, .047f, .056f, .004f}, {.80f, .048f, .047f, .006f}, {.92f, .036f, .037f, .008f},
        {.98f, .020f, .030f, .008f}, {1, .008f, .024f, .008f}};
    const float inside = side == FIGURE_RIGHT ? -1.f : 1.f, length = f.toe - f.heel;
    for (int sole = 0; sole < 2; sole++) {
        shape_loft loft;
        loft.segments = sole ? 10 : 12;
        loft.material = sole ? BODY_SOLES : BODY_SHOES;
        loft.first = loft.last = SHAPE_ROUND;
        for (const float *o : outline) {
            const float thick = sole ? 0.024f * k : o[2] * k, low = sole ? 0 : 0.006f * k;
            shape_ring r;
            r.centre = {centre + inside * o[3] * k, f.heel + o[0] * length, low + (thick - low) / 2};
            r.across = {(o[1] + (sole ? 0.003f : 0)) * k, 0, 0};
            r.front = r.back = {0, 0, (thick - low) / 2};
            r.square = sole ? 5.f : 2.6f;
            loft.rings.push_back(r);
        }
        add(m, loft, side, on_foot);
    }
}

void add_hand(const maker &m, int side)
{
    const figure &f = m.f;
    const scene_vec along = arm_along(side);
    const scene_vec *rest = f.rest + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
    const scene_vec wrist = rest[BONE_HAND];
    const scene_vec palm = scene_cross(along, scene_vec{0, 1, 0}) * (side == FIGURE_RIGHT ? 1.f : -1.f);
    const float k = m.scale * 1.05f;
    // Along the hand, 0 to 1: half thickness, half breadth, bend of the fingers towards the palm.
    const float outline[][4] = {{-.1f, .019f, .025f, 0},     {.1f, .017f, .031f, 0},
                                {.30f, .017f, .040f, .002f}, {.48f, .015f, .042f, .005f},
                                {.64f, .013f, .039f, .013f}, {.80f, .011f, .034f, .024f},
                                {.93f, .009f, .027f, .034f}, {1, .004f, .014f, .038f}};
    shape_loft loft;
    loft.segments = 8;
    loft.material = BODY_SKIN;
    loft.last = SHAPE_ROUND;
    for (const float *o : outline)
        loft.rings.push_back(shape_limb(wrist + along * (o[0] * f.hand) + palm * (o[3] * k), along, o[1] * k,
                                        o[2] * k, o[2] * k));
    add(m, loft, side, on_arm);
    shape_loft thumb;
    thumb.segments = 6;
    thumb.material = BODY_SKIN;
    thumb.last = SHAPE_ROUND;
    const scene_vec way = scene_unit(along * 0.85f + scene_vec{0, 0.5f, 0} + palm * 0.25f);
    const scene_vec root = wrist + along * (0.14f * f.hand) + scene_vec{0, 0.018f * k, 0};
    const float thick[] = {.013f, .014f, .012f, .010f, .004f};
    for (int i = 0; i < 5; i++)
        thumb.rings.push_back(shape_limb(root + way * (f.hand * 0.11f * static_cast<float>(i)), way,
                                         thick[i] * k, thick[i] * k, thick[i] * k));
    add(m, thumb, side, on_arm);
}

void add_arm(const maker &m, int side, float sleeve, float more)
{
    shape_loft skin, cloth;
    skin.segments = cloth.segments = 12;
    skin.material = BODY_SKIN;
    cloth.material = BODY_TOP;
    cloth.folds = 0.004f + 0.004f * m.look.width;
    cloth.seed = m.seed + 30 + static_cast<uint32_t>(side);
    const float end = sleeve * 1.97f;
    if (end < 1.9f) {
        const int rings = end > 1 ? 7 : 14;
        const float from = end > 0.1f ? end - 0.08f : -.15f;
        skin.first = SHAPE_ROUND;
        for (int i = 0; i < rings; i++)
            skin.rings.push_back(arm_ring(
                m, side, blend(from, 2.05f, static_cast<float>(i) / static_cast<float>(rings - 1)), 0));
        add(m, skin, side, on_arm);
    }
    if (end > 0.1f) {
        const int rings = 5 + static_cast<int>(end * 5.5f);
        cloth.first = SHAPE_ROUND;
        cloth.last = SHAPE_FLAT;
        for (int i = 0; i < rings; i++) {
            const float at = blend(-.15f, end, static_cast<float>(i) / static_cast<float>(rings - 1));
            // Short sleeves stand off, long ones close round the wrist.
            const float wide =
                end < 1.2f ? 1 + 0.8f * smooth(0.2f, end, at) : 1 - 0.35f * smooth(1.6f, 1.95f, at);
            cloth.rings.push_back(arm_ring(m, side, at, more * wide));
        }
        add(m, cloth, side, on_arm);
    }
    add_hand(m, side);
}

// A strip of the trunk in front, over what lies below: an open coat's inside, a row of buttons, a belt's buckle.
void add_strip(const maker &m, float low, float high, float half_round, float more, uint32_t material)
{
    shape_loft loft = trunk(m, low, high, 14, more, material);
    loft.segments = 4;
    loft.from = 0.5f - half_round;
    loft.to = 0.5f + half_round;
    add(m, loft, FIGURE_RIGHT, body_on_trunk);
}

void add_top(const maker &m, float low, float more, bool open_hem)
{
    const float collar = m.look.clothes == CLOTHES_COAT || m.look.clothes == CLOTHES_HOOD ? .868f : .850f;
    shape_loft loft = trunk(m, low, collar, 20, more, BODY_TOP);
    // Towards the neck the cloth lies on.
    for (shape_ring &r : loft.rings) {
        const float slack =
            more * 0.7f * smooth(trunk_height(m.f, .79f), trunk_height(m.f, .84f), r.centre.z);
        r.across.x -= slack;
        r.front.y -= slack;
        r.back.y -= slack;
    }
    loft.folds = 0.004f + 0.005f * m.look.width;
    loft.first = open_hem ? SHAPE_FLAT : SHAPE_OPEN;
    add(m, loft, FIGURE_RIGHT, body_on_trunk);
    // A collar or a rib: a ring about the neck's root.
    shape_loft rib = trunk(m, collar - .014f, collar + .008f, 3, more * 0.3f + 0.004f,
                           m.look.clothes == CLOTHES_COAT ? BODY_TOP : BODY_TOP);
    rib.last = SHAPE_FLAT;
    rib.rings[1].across.x += 0.004f;
    add(m, rib, FIGURE_RIGHT, body_on_trunk);
}
} // namespace

void body_between(const float *table, int rows, int columns, float at, float *values)
{
    int i = 0;
    while (i + 2 < rows && at >= table[(i + 1) * columns])
        i++;
    const float *b = table + i * columns, *c = b + columns;
    const float *a = i > 0 ? b - columns : b, *d = i + 2 < rows ? c + columns : c;
    const float t = clamped((at - b[0]) / (c[0] - b[0]), 0, 1), width = c[0] - b[0];
    for (int k = 1; k < columns; k++) {
        // Slopes over both neighbours, each to its own distance.
        const float into = (c[k] - a[k]) / (c[0] - a[0]) * width, out = (d[k] - b[k]) / (d[0] - b[0]) * width;
        const float t2 = t * t, t3 = t2 * t;
        values[k - 1] = (2 * t3 - 3 * t2 + 1) * b[k] + (t3 - 2 * t2 + t) * into + (3 * t2 - 2 * t3) * c[k] +
                        (t3 - t2) * out;
    }
}

shape_hold body_on_head(const figure &f, int side, scene_vec p)
{
    (void)side;
    // Long hair lies on the shoulders and moves with them.
    shape_mixer m;
    const float chin = f.height - f.head;
    const float head = smooth(chin - 0.10f, chin + 0.03f, p.z),
                chest = 1 - smooth(chin - 0.22f, chin - 0.08f, p.z);
    shape_hang(&m, BONE_HEAD, head);
    shape_hang(&m, BONE_NECK, (1 - head) * (1 - chest));
    shape_hang(&m, BONE_CHEST, (1 - head) * chest);
    return shape_held(m);
}

shape_hold body_on_trunk(const figure &f, int side, scene_vec p)
{
    (void)side;
    shape_mixer m;
    const float hip = f.rest[BONE_THIGH].z, shoulder = f.rest[BONE_SHOULDER].z, across = f.rest[BONE_ARM].x;
    const float waist = smooth(blend(hip, shoulder, .12f), blend(hip, shoulder, .42f), p.z),
                chest = smooth(blend(hip, shoulder, .45f), blend(hip, shoulder, .74f), p.z);
    const float neck = smooth(trunk_height(f, .835f), trunk_height(f, .865f), p.z),
                head = smooth(trunk_height(f, .868f), trunk_height(f, .905f), p.z);
    // Seats and laps go with the thighs.
    const float leg = 0.75f * smooth(hip + 0.03f, hip - 0.09f * f.scale, p.z);
    const float right = smooth(-0.10f * f.scale, 0.10f * f.scale, p.x);
    const float lifted =
        0.7f * smooth(across * 0.45f, across, fabsf(p.x)) * smooth(shoulder - 0.12f, shoulder, p.z);
    shape_hang(&m, BONE_PELVIS, (1 - waist) * (1 - leg));
    shape_hang(&m, figure_bone_of(FIGURE_RIGHT, BONE_HIP), (1 - waist) * leg * right);
    shape_hang(&m, figure_bone_of(FIGURE_LEFT, BONE_HIP), (1 - waist) * leg * (1 - right));
    shape_hang(&m, BONE_WAIST, waist * (1 - chest));
    shape_hang(&m, figure_bone_of(p.x > 0 ? FIGURE_RIGHT : FIGURE_LEFT, BONE_SHOULDER), chest * lifted);
    shape_hang(&m, BONE_CHEST, chest * (1 - neck) * (1 - lifted));
    shape_hang(&m, BONE_NECK, chest * neck * (1 - head) * (1 - lifted));
    shape_hang(&m, BONE_HEAD, chest * neck * head);
    return shape_held(m);
}

void body_make(const person_look &look, const figure &f, shape *s)
{
    maker m = {look, f, s, powf(f.scale, 0.92f), (look.build - 0.35f) * 1.35f, 0};
    m.seed = look.top.seed * 31 + look.bottom.seed * 7 + 1;
    const bool skirted = look.clothes == CLOTHES_SKIRT || look.clothes == CLOTHES_DRESS;
    const bool coat = look.clothes == CLOTHES_COAT;
    const float more =
        (coat ? 0.016f : 0.007f) + 0.020f * look.width + (look.clothes == CLOTHES_HOOD ? 0.006f : 0);
    const float under = 0.006f;

    // Legs: cloth as far as it goes, skin below.
    const float cloth_end = look.clothes == CLOTHES_SHORTS ? .86f : 1.94f;
    for (int side = 0; side < FIGURE_SIDES; side++) {
        if (skirted) {
            add_leg(m, side, -.2f, 2.0f, 20, 0, 0, BODY_SKIN, 0);
        } else {
            const bool shorts = look.clothes == CLOTHES_SHORTS;
            add_leg(m, side, -.2f, cloth_end, shorts ? 10 : 20,
                    under + 0.012f * look.width + (shorts ? 0.012f : 0),
                    shorts ? .085f : .058f + 0.026f * look.width, BODY_BOTTOM, 0.003f + 0.004f * look.width);
            add_leg(m, side, shorts ? .75f : 1.75f, 2.0f, shorts ? 13 : 4, 0, 0, BODY_SKIN, 0);
        }
        add_shoe(m, side);
    }
    if (look.clothes == CLOTHES_SKIRT)
        add_skirt(m, .615f, .22f + 0.06f * look.width, .25f + .5f * look.width, 0.008f, BODY_BOTTOM);
    else if (look.clothes == CLOTHES_DRESS)
        add_skirt(m, .62f, .25f + 0.06f * look.width, .30f + .5f * look.width, more * 0.8f, BODY_TOP);
    else {
        shape_loft pelvis = trunk(m, .440f, .625f, 10, under, BODY_BOTTOM);
        pelvis.first = SHAPE_ROUND;
        add(m, pelvis, FIGURE_RIGHT, body_on_trunk);
    }
    if (coat)
        add_skirt(m, .62f, .20f + 0.08f * look.hem, .22f, more + 0.004f, BODY_TOP);

    // The top, from its hem to the collar.
    const float hem = coat || look.clothes == CLOTHES_DRESS ? .60f : blend(.60f, .492f, look.hem);
    add_top(m, hem, more, !coat && look.clothes != CLOTHES_DRESS);
    if (coat) {
        add_strip(m, .72f, .866f, .055f, more * 0.75f + 0.004f, BODY_ACCENT);
    } else if (look.hem < 0.1f && look.clothes != CLOTHES_DRESS) {
        shape_loft belt = trunk(m, .594f, .612f, 3, more + 0.003f, BODY_ACCENT);
        add(m, belt, FIGURE_RIGHT, body_on_trunk);
    }
    for (int side = 0; side < FIGURE_SIDES; side++)
        add_arm(m, side, coat || look.clothes == CLOTHES_HOOD ? 1 : look.sleeves, more * 0.8f);
    shape_loft neck = trunk(m, .835f, .895f, 6, -0.002f, BODY_SKIN);
    neck.segments = 14;
    add(m, neck, FIGURE_RIGHT, body_on_trunk);
    head_make(look, f, s);
}
