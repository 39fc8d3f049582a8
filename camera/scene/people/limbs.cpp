// Arms, hands, legs, feet and the cloth round them. Girths of a body 1.75 m tall, stretched from there.
#include "body.h"

#include <algorithm>

namespace
{
// Along the leg: 0 at the hip joint, 1 at the knee, 2 at the ankle; half breadth, front, back; what weight adds.
const float leg_table[][5] = {{-.20f, .060f, .070f, .085f, .020f}, {-.05f, .082f, .086f, .098f, .030f},
                              {.10f, .087f, .089f, .097f, .034f},  {.30f, .084f, .086f, .086f, .032f},
                              {.55f, .073f, .077f, .071f, .024f},  {.80f, .061f, .065f, .058f, .016f},
                              {.95f, .056f, .061f, .053f, .011f},  {1.05f, .054f, .058f, .052f, .010f},
                              {1.18f, .054f, .050f, .060f, .010f}, {1.32f, .055f, .046f, .070f, .012f},
                              {1.50f, .049f, .042f, .062f, .011f}, {1.70f, .039f, .037f, .044f, .008f},
                              {1.86f, .034f, .036f, .037f, .006f}, {2.00f, .036f, .044f, .040f, .004f}};

// Along the arm: 0 at the shoulder joint, 1 at the elbow, 2 at the wrist; half breadth, front, back; weight.
const float arm_table[][5] = {{-.14f, .018f, .020f, .022f, .004f}, {-.11f, .032f, .036f, .038f, .008f},
                              {-.04f, .050f, .051f, .053f, .012f}, {.06f, .054f, .055f, .057f, .015f},
                              {.22f, .050f, .053f, .054f, .016f},  {.45f, .044f, .049f, .049f, .015f},
                              {.70f, .040f, .044f, .043f, .012f},  {.92f, .037f, .040f, .039f, .009f},
                              {1.05f, .037f, .041f, .039f, .008f}, {1.25f, .036f, .043f, .038f, .008f},
                              {1.55f, .030f, .036f, .033f, .006f}, {1.85f, .022f, .028f, .026f, .003f},
                              {2.05f, .020f, .028f, .026f, .002f}};

scene_vec leg_at(const figure &f, int side, float at)
{
    const scene_vec *rest = f.rest + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
    scene_vec p = rest[BONE_THIGH];
    p.z -= at < 1 ? at * f.thigh : f.thigh + (at - 1) * f.shin;
    return p;
}

shape_ring leg_ring(const body_maker &m, int side, float at, float more)
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

shape_ring arm_ring(const body_maker &m, int side, float at, float more)
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

void add_hand(const body_maker &m, int side)
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
    shape_add(m.s, loft, m.f, side, on_arm);
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
    shape_add(m.s, thumb, m.f, side, on_arm);
}

} // namespace

void limbs_leg(const body_maker &m, int side, float from, float to, int rings, float more, float hem,
               uint32_t material, float folds)
{
    shape_loft loft;
    loft.segments = 12;
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
    shape_add(m.s, loft, m.f, side, on_leg);
}

void limbs_shoe(const body_maker &m, int side)
{
    const figure &f = m.f;
    const float k = f.height / 1.75f, x = (side == FIGURE_RIGHT ? 1.f : -1.f) * f.rest[BONE_THIGH].x;
    const float centre = side == FIGURE_RIGHT ? x : f.rest[BONE_THIGH + BONES_A_SIDE].x;
    // Along the foot from the heel, 0 to 1: half breadth, height; the middle wanders to the inside like a foot's.
    const float outline[][4] = {{0, .014f, .042f, 0},        {.05f, .029f, .068f, 0},
                                {.20f, .037f, .092f, 0},     {.38f, .037f, .086f, 0},
                                {.55f, .042f, .064f, .003f}, {.76f, .048f, .050f, .006f},
                                {.91f, .037f, .038f, .008f}, {1, .010f, .026f, .008f}};
    const float inside = side == FIGURE_RIGHT ? -1.f : 1.f, length = f.toe - f.heel;
    for (int sole = 0; sole < 2; sole++) {
        shape_loft loft;
        loft.segments = sole ? 8 : 10;
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
        shape_add(m.s, loft, m.f, side, on_foot);
    }
}

void limbs_arm(const body_maker &m, int side, float sleeve, float more)
{
    shape_loft skin, cloth;
    skin.segments = cloth.segments = 10;
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
        shape_add(m.s, skin, m.f, side, on_arm);
    }
    if (end > 0.1f) {
        const int rings = 5 + static_cast<int>(end * 4.5f);
        cloth.first = SHAPE_ROUND;
        cloth.last = SHAPE_FLAT;
        for (int i = 0; i < rings; i++) {
            const float at = blend(-.15f, end, static_cast<float>(i) / static_cast<float>(rings - 1));
            // Short sleeves stand off, long ones close round the wrist.
            const float wide =
                end < 1.2f ? 1 + 0.8f * smooth(0.2f, end, at) : 1 - 0.35f * smooth(1.6f, 1.95f, at);
            cloth.rings.push_back(arm_ring(m, side, at, more * wide));
        }
        shape_add(m.s, cloth, m.f, side, on_arm);
    }
    add_hand(m, side);
}
