// See the header.
#include "figure.h"

#include <algorithm>

namespace
{
scene_place times(const scene_place &a, const scene_place &b)
{
    return {scene_turn(a, b.x), scene_turn(a, b.y), scene_turn(a, b.z), scene_put(a, b.origin)};
}

float sign_of(int side)
{
    return side == FIGURE_RIGHT ? 1.f : -1.f;
}

// The chain of the trunk: where bone `next` begins and how it is turned, when `last` is placed.
scene_place follow(const figure &f, const scene_place &last, int last_bone, int next_bone, turn by)
{
    scene_place p = times(last, turn_place(by, {0, 0, 0}));
    p.origin = scene_put(last, f.rest[next_bone] - f.rest[last_bone]);
    return p;
}

// Two segments from `from` as far towards `to` as they reach, bent towards `pole`: the middle joint's place and the
// directions of both. The hinge is the axis about which the second is bent.
struct reach {
    scene_vec first, second, hinge;
};
reach reach_for(scene_vec from, scene_vec to, scene_vec pole, float first, float second,
                scene_vec hinge_if_straight)
{
    scene_vec way = to - from;
    const float wanted = scene_length(way), longest = (first + second) * 0.9995f,
                shortest = fabsf(first - second) + 0.15f * second;
    const float length = clamped(wanted, shortest, longest);
    way = wanted > 1e-5f ? way * (1 / wanted) : scene_vec{0, 0, -1};
    scene_vec hinge = scene_cross(way, pole);
    // A pole along the way says nothing: the hinge stays what it was.
    hinge = scene_length(hinge) > 1e-4f ? scene_unit(hinge) : hinge_if_straight;
    const scene_vec out = scene_cross(hinge, way);
    const float c =
        clamped((first * first + length * length - second * second) / (2 * first * length), -1, 1);
    const float s = sqrtf(1 - c * c);
    const scene_vec a = way * c + out * s;
    const scene_vec b = scene_unit(way * length - a * first);
    return {a, b, hinge};
}

// A segment that hangs at rest, now along `down` with its hinge along `hinge`.
scene_place hanging(scene_vec down, scene_vec hinge, scene_vec origin)
{
    const scene_vec z = down * -1;
    return {hinge, scene_cross(z, hinge), z, origin};
}

scene_place half_way(const scene_place &a, const scene_place &b)
{
    return turn_place(turn_mix(turn_of(a), turn_of(b), 0.5f), b.origin);
}

void place_leg(const figure &f, const posture_leg &leg, int side, scene_place bones[BONES])
{
    const int hip = figure_bone_of(side, BONE_HIP), thigh = figure_bone_of(side, BONE_THIGH),
              knee = figure_bone_of(side, BONE_KNEE), shin = figure_bone_of(side, BONE_SHIN),
              foot = figure_bone_of(side, BONE_FOOT), toes = figure_bone_of(side, BONE_TOES);
    const scene_place &pelvis = bones[BONE_PELVIS];
    const scene_vec at = scene_put(pelvis, f.rest[thigh] - f.rest[BONE_PELVIS]);
    const reach r = reach_for(at, leg.ankle, leg.knee, f.thigh, f.shin, pelvis.x);
    bones[thigh] = hanging(r.first, r.hinge, at);
    bones[hip] = half_way(pelvis, bones[thigh]);
    bones[hip].origin = at;
    bones[shin] = hanging(r.second, r.hinge, at + r.first * f.thigh);
    bones[knee] = half_way(bones[thigh], bones[shin]);
    bones[foot] = turn_place(leg.foot, bones[shin].origin + r.second * f.shin);
    bones[toes] = follow(f, bones[foot], foot, toes, turn_x(leg.toes));
}

void place_arm(const figure &f, const posture_arm &arm, int side, float breath, scene_place bones[BONES])
{
    const int shoulder = figure_bone_of(side, BONE_SHOULDER), upper = figure_bone_of(side, BONE_ARM),
              elbow = figure_bone_of(side, BONE_ELBOW), forearm = figure_bone_of(side, BONE_FOREARM),
              hand = figure_bone_of(side, BONE_HAND);
    const scene_place &chest = bones[BONE_CHEST];
    // From the way the arm is held at rest to hanging straight down.
    const turn down = turn_y(sign_of(side) * FIGURE_REST);
    bones[shoulder] = follow(f, chest, BONE_CHEST, shoulder, turn_y(-sign_of(side) * arm.shrug));
    bones[shoulder].origin = bones[shoulder].origin + chest.z * (0.003f * breath);
    const scene_place trunk = times(chest, turn_place(arm.upper, {0, 0, 0}));
    const scene_vec at = scene_put(bones[shoulder], f.rest[upper] - f.rest[shoulder]);
    const scene_place bent_half = times(trunk, turn_place(turn_x(arm.elbow / 2), {0, 0, 0})),
                      bent = times(trunk, turn_place(turn_x(arm.elbow), {0, 0, 0}));
    const scene_place rest = turn_place(down, {0, 0, 0});
    bones[upper] = times(trunk, rest);
    bones[upper].origin = at;
    bones[elbow] = times(bent_half, rest);
    bones[forearm] = times(bent, rest);
    bones[elbow].origin = bones[forearm].origin = at - trunk.z * f.arm;
    bones[hand] = times(times(bent, turn_place(arm.hand, {0, 0, 0})), rest);
    bones[hand].origin = bones[forearm].origin - bent.z * f.forearm;
}
} // namespace

figure figure_make(float height, float shoulders, float curves)
{
    figure f = {};
    const float h = f.height = height;
    f.scale = h / 1.75f;
    const float child = 1 - smooth(1.0f, 1.55f, h);
    const float leg = blend(0.530f, 0.500f, child), knee = blend(0.285f, 0.272f, child);
    const float hips = h * blend(0.049f, 0.055f, curves);
    f.ankle = 0.046f * h; // 0.039 to the ankle and a shoe's sole
    f.thigh = (leg - knee) * h;
    f.shin = knee * h - f.ankle;
    f.heel = -0.040f * h;
    f.ball = 0.074f * h;
    f.toe = 0.112f * h;
    f.arm = 0.186f * h;
    f.forearm = 0.146f * h;
    f.hand = 0.108f * h;
    f.head = h * blend(0.130f, 0.185f, child);
    const float neck = h - f.head; // the chin's height
    const float shoulder = neck - blend(0.066f, 0.055f, child) * h;
    const float across = blend(0.098f, 0.116f, shoulders) * h; // of the joint, inside the shoulder's 0.129
    f.rest[BONE_PELVIS] = {0, 0, leg * h};
    f.rest[BONE_WAIST] = {0, 0.004f, blend(leg, shoulder / h, 0.28f) * h};
    f.rest[BONE_CHEST] = {0, 0.0f, blend(leg, shoulder / h, 0.58f) * h};
    f.rest[BONE_NECK] = {0, 0.0f, neck - 0.030f * h};
    f.rest[BONE_HEAD] = {0, 0.012f * h, neck + 0.018f * h};
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const float s = sign_of(side);
        const scene_vec out = {s * sinf(radians(FIGURE_REST)), 0, -cosf(radians(FIGURE_REST))};
        scene_vec *rest = f.rest + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
        rest[BONE_SHOULDER] = {s * 0.02f * h, 0, shoulder};
        rest[BONE_ARM] = {s * across, -0.006f * h, shoulder - 0.020f * h};
        rest[BONE_ELBOW] = rest[BONE_FOREARM] = rest[BONE_ARM] + out * f.arm;
        rest[BONE_HAND] = rest[BONE_FOREARM] + out * f.forearm;
        rest[BONE_HIP] = rest[BONE_THIGH] = {s * hips, 0, leg * h};
        rest[BONE_KNEE] = rest[BONE_SHIN] = {s * hips, 0, leg * h - f.thigh};
        rest[BONE_FOOT] = {s * hips, 0, f.ankle};
        rest[BONE_TOES] = {s * hips, f.ball, 0.012f * h};
    }
    return f;
}

posture posture_mix(const posture &a, const posture &b, float share)
{
    posture p;
    p.pelvis = blend(a.pelvis, b.pelvis, share);
    p.hips = turn_mix(a.hips, b.hips, share);
    p.waist = turn_mix(a.waist, b.waist, share);
    p.chest = turn_mix(a.chest, b.chest, share);
    p.neck = turn_mix(a.neck, b.neck, share);
    p.head = turn_mix(a.head, b.head, share);
    p.breath = blend(a.breath, b.breath, share);
    p.holds = blend(a.holds, b.holds, share);
    const posture &holder = a.holds > b.holds ? a : b;
    p.held = holder.held;
    p.held_turn = holder.held_turn;
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const posture_leg &la = a.leg[side], &lb = b.leg[side];
        p.leg[side] = {blend(la.ankle, lb.ankle, share), blend(la.knee, lb.knee, share),
                       turn_mix(la.foot, lb.foot, share), blend(la.toes, lb.toes, share)};
        const posture_arm &aa = a.arm[side], &ab = b.arm[side];
        p.arm[side] = {turn_mix(aa.upper, ab.upper, share), blend(aa.elbow, ab.elbow, share),
                       turn_mix(aa.hand, ab.hand, share), blend(aa.shrug, ab.shrug, share)};
    }
    return p;
}

posture posture_moved(const posture &p, float left_degrees, scene_vec by)
{
    posture q = p;
    const turn t = turn_z(left_degrees);
    q.pelvis = turn_apply(t, p.pelvis) + by;
    q.hips = t * p.hips;
    q.held = turn_apply(t, p.held) + by;
    q.held_turn = t * p.held_turn;
    for (posture_leg &leg : q.leg) {
        leg.ankle = turn_apply(t, leg.ankle) + by;
        leg.knee = turn_apply(t, leg.knee);
        leg.foot = t * leg.foot;
    }
    return q;
}

void figure_place(const figure &f, const posture &p, scene_place bones[BONES])
{
    bones[BONE_PELVIS] = turn_place(p.hips, p.pelvis);
    bones[BONE_WAIST] = follow(f, bones[BONE_PELVIS], BONE_PELVIS, BONE_WAIST, p.waist);
    bones[BONE_CHEST] = follow(f, bones[BONE_WAIST], BONE_WAIST, BONE_CHEST, p.chest);
    bones[BONE_CHEST].origin = bones[BONE_CHEST].origin + bones[BONE_CHEST].y * (0.003f * p.breath);
    bones[BONE_NECK] = follow(f, bones[BONE_CHEST], BONE_CHEST, BONE_NECK, p.neck);
    bones[BONE_HEAD] = follow(f, bones[BONE_NECK], BONE_NECK, BONE_HEAD, p.head);
    for (int side = 0; side < FIGURE_SIDES; side++) {
        place_arm(f, p.arm[side], side, p.breath, bones);
        place_leg(f, p.leg[side], side, bones);
    }
}

void figure_reach(const figure &f, posture *p, int side, scene_vec wrist, scene_vec elbow)
{
    scene_place bones[BONES];
    figure_place(f, *p, bones);
    const scene_place &chest = bones[BONE_CHEST];
    const scene_vec at = bones[figure_bone_of(side, BONE_ARM)].origin;
    // An elbow bends the other way than a knee: the hinge that lifts the forearm forwards is turned round.
    reach r = reach_for(at, wrist, elbow, f.arm, f.forearm, chest.x * -1);
    const scene_vec hinge = r.hinge * -1;
    const scene_place upper = hanging(r.first, hinge, at);
    p->arm[side].upper = turn_back(turn_of(chest)) * turn_of(upper);
    p->arm[side].elbow = acosf(clamped(scene_dot(r.first, r.second), -1, 1)) * static_cast<float>(180 / M_PI);
}

float figure_lowest(const figure &f, const posture_leg &leg)
{
    // Toes turn about the root of their bone, not about the sole.
    const scene_vec root = f.rest[BONE_TOES] - f.rest[BONE_FOOT], under = {0, 0, -f.rest[BONE_TOES].z};
    const turn toes = leg.foot * turn_x(leg.toes);
    const float heel = turn_apply(leg.foot, {0, f.heel, -f.ankle}).z,
                ball = turn_apply(leg.foot, {0, f.ball, -f.ankle}).z,
                tip = turn_apply(leg.foot, root).z +
                      turn_apply(toes, scene_vec{0, f.toe - f.ball, 0} + under).z;
    return leg.ankle.z + std::min(heel, std::min(ball, tip));
}
