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
                                 {.800f, .180f, .086f, .104f, .02f, .02f, .025f, -.010f, 0, 0},
                                 {.818f, .163f, .068f, .092f, .015f, .01f, .02f, -.008f, 0, 0},
                                 {.832f, .122f, .057f, .080f, .012f, .01f, .015f, -.006f, 0, 0},
                                 {.844f, .082f, .050f, .070f, .01f, .01f, .012f, -.006f, 0, 0},
                                 {.856f, .061f, .047f, .064f, .01f, .01f, .01f, -.006f, 0, 0},
                                 {.880f, .056f, .046f, .060f, .01f, .01f, .01f, -.006f, 0, 0}};

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

shape_ring trunk_ring(const body_maker &m, float at, float more)
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

// The trunk's surface from height `low` to `high`, both of the table.
shape_loft trunk(const body_maker &m, float low, float high, int rings, float more, uint32_t material)
{
    shape_loft loft;
    loft.segments = 16;
    loft.material = material;
    for (int i = 0; i < rings; i++)
        loft.rings.push_back(
            trunk_ring(m, blend(low, high, static_cast<float>(i) / static_cast<float>(rings - 1)), more));
    loft.seed = m.seed;
    return loft;
}

void add_skirt(const body_maker &m, float waist, float hem, float flare, float more, uint32_t material)
{
    const float top = trunk_height(m.f, waist), hip = m.f.rest[BONE_THIGH].z;
    shape_loft loft;
    loft.segments = 16;
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
    shape_add(m.s, loft, m.f, FIGURE_RIGHT, on_skirt);
}

// A strip of the trunk in front, over what lies below: an open coat's inside, a neckline, a row of buttons.
void add_strip(const body_maker &m, float low, float high, float half_round, float more, float folds,
               uint32_t material)
{
    shape_loft loft = trunk(m, low, high, 8, more, material);
    loft.segments = 4;
    loft.folds = folds;
    loft.from = 0.5f - half_round;
    loft.to = 0.5f + half_round;
    shape_add(m.s, loft, m.f, FIGURE_RIGHT, body_on_trunk);
}

void add_top(const body_maker &m, float low, float more, bool open_hem)
{
    const person_look &look = m.look;
    const bool thick = look.clothes == CLOTHES_COAT || look.clothes == CLOTHES_HOOD;
    const float folds = 0.004f + 0.005f * look.width;
    // Thick things close high; a light top leaves the neck's root bare, most so without sleeves.
    const float collar = thick ? .866f : look.sleeves < .6f ? .838f - .006f * look.curves : .850f;
    shape_loft loft = trunk(m, low, collar, 15, more, BODY_TOP);
    // Towards the neck the cloth lies on.
    for (shape_ring &r : loft.rings) {
        const float slack =
            more * 0.7f * smooth(trunk_height(m.f, .79f), trunk_height(m.f, .84f), r.centre.z);
        r.across.x -= slack;
        r.front.y -= slack;
        r.back.y -= slack;
    }
    loft.folds = folds;
    loft.first = open_hem ? SHAPE_FLAT : SHAPE_OPEN;
    shape_add(m.s, loft, m.f, FIGURE_RIGHT, body_on_trunk);
    // A collar or a rib: a ring about the neck's root.
    shape_loft rib = trunk(m, collar - .012f, collar + .008f, 3, more * 0.3f + 0.004f, BODY_TOP);
    rib.last = SHAPE_FLAT;
    shape_add(m.s, rib, m.f, FIGURE_RIGHT, body_on_trunk);
    if (look.clothes == CLOTHES_COAT)
        add_strip(m, .66f, .862f, .050f, more + 0.004f, folds, BODY_ACCENT);
    else if (look.clothes != CLOTHES_HOOD && look.curves > .45f)
        add_strip(m, .785f, collar + .010f, .075f, more * .7f + 0.004f, folds, BODY_SKIN); // a low neckline
    else if (look.clothes != CLOTHES_HOOD && look.sleeves > .9f && look.hem < .85f)
        add_strip(m, .815f, collar + .010f, .045f, more * .7f + 0.005f, folds,
                  BODY_SKIN); // a shirt's open button
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
    body_maker m = {look, f, s, powf(f.scale, 0.92f), (look.build - 0.35f) * 1.35f, 0};
    m.seed = look.top.seed * 31 + look.bottom.seed * 7 + 1;
    const bool skirted = look.clothes == CLOTHES_SKIRT || look.clothes == CLOTHES_DRESS;
    const bool coat = look.clothes == CLOTHES_COAT;
    const float more =
        (coat ? 0.016f : 0.007f) + 0.020f * look.width + (look.clothes == CLOTHES_HOOD ? 0.006f : 0);
    const float under = 0.006f;

    // Legs: cloth as far as it goes, skin below.
    const float cloth_end = look.clothes == CLOTHES_SHORTS ? .86f : 2.03f;
    for (int side = 0; side < FIGURE_SIDES; side++) {
        if (skirted) {
            limbs_leg(m, side, .35f, 2.0f, 14, 0, 0, BODY_SKIN, 0);
        } else {
            const bool shorts = look.clothes == CLOTHES_SHORTS;
            limbs_leg(m, side, coat ? .45f : -.2f, cloth_end, shorts ? 9 : 15,
                      under + 0.012f * look.width + (shorts ? 0.012f : 0),
                      shorts ? .085f : .058f + 0.026f * look.width, BODY_BOTTOM,
                      0.003f + 0.004f * look.width);
            limbs_leg(m, side, shorts ? .75f : 1.75f, 2.0f, shorts ? 11 : 4, 0, 0, BODY_SKIN, 0);
        }
        limbs_shoe(m, side);
    }
    if (look.clothes == CLOTHES_SKIRT)
        add_skirt(m, .615f, .22f + 0.06f * look.width, .25f + .5f * look.width, 0.008f, BODY_BOTTOM);
    else if (look.clothes == CLOTHES_DRESS)
        add_skirt(m, .62f, .25f + 0.06f * look.width, .30f + .5f * look.width, more * 0.8f, BODY_TOP);
    else if (!coat) {
        shape_loft pelvis = trunk(m, .440f, .625f, 9, under, BODY_BOTTOM);
        pelvis.first = SHAPE_ROUND;
        shape_add(m.s, pelvis, m.f, FIGURE_RIGHT, body_on_trunk);
    }
    if (coat)
        add_skirt(m, .62f, .20f + 0.08f * look.hem, .22f, more + 0.004f, BODY_TOP);

    // The top, from its hem to the collar.
    const float hem = coat || look.clothes == CLOTHES_DRESS ? .60f : blend(.60f, .492f, look.hem);
    add_top(m, hem, more, !coat && look.clothes != CLOTHES_DRESS);
    if (!coat && look.hem < 0.1f && look.clothes != CLOTHES_DRESS) {
        const shape_loft belt = trunk(m, .594f, .612f, 3, more + 0.003f, BODY_ACCENT);
        shape_add(m.s, belt, m.f, FIGURE_RIGHT, body_on_trunk);
    }
    for (int side = 0; side < FIGURE_SIDES; side++)
        limbs_arm(m, side, coat || look.clothes == CLOTHES_HOOD ? 1 : look.sleeves, more * 0.8f);
    shape_loft neck = trunk(m, .818f, .895f, 6, -0.002f, BODY_SKIN);
    neck.segments = 12;
    shape_add(m.s, neck, m.f, FIGURE_RIGHT, body_on_trunk);
    head_make(look, f, s);
}

void body_box(shape *s)
{
    // Each side has corners of its own: edges are sharp.
    scene_mesh &m = s->mesh;
    for (int axis = 0; axis < 3; axis++)
        for (int end = -1; end <= 1; end += 2) {
            const float e = static_cast<float>(end);
            const scene_vec n = {axis == 0 ? e : 0, axis == 1 ? e : 0, axis == 2 ? e : 0};
            const scene_vec a = axis == 0 ? scene_vec{0, 1, 0} : scene_vec{1, 0, 0}, b = scene_cross(n, a);
            const uint32_t first = static_cast<uint32_t>(m.vertices.size());
            for (int corner = 0; corner < 4; corner++) {
                const scene_vec p = n + a * (corner & 1 ? 1.f : -1.f) + b * (corner & 2 ? 1.f : -1.f);
                const scene_vec at = {p.x * BODY_BOX.x / 2, p.y * BODY_BOX.y / 2, (p.z + 1) * BODY_BOX.z / 2};
                m.vertices.push_back({at, n, scene_dot(at, a), scene_dot(at, b), BODY_PARCEL});
                s->holds.push_back(shape_hold());
            }
            for (const uint32_t i : {0, 1, 2, 1, 3, 2})
                m.indices.push_back(first + i);
        }
}
