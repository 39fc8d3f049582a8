// Postures that stay where they are: standing, waving, crouching, sitting, working at a desk, lying, fallen. Nobody
// is ever quite still: weight shifts, heads turn, chests rise.
#include "moves.h"

#include <algorithm>

namespace
{
float sign_of(int side)
{
    return side == FIGURE_RIGHT ? 1.f : -1.f;
}

// 0 to 1, this person's own.
float own(const person_moment &at, uint32_t which)
{
    scene_random r = {at.seed * UINT64_C(1000003) + which};
    return scene_uniform(&r, 0, 1);
}

posture standing(const figure &f, const person_moment &at)
{
    posture p = moves_upright(f, at);
    const float k = f.scale;
    // Most of the weight is on one leg, after a while on the other.
    const float shift = clamped(1.6f * moves_drift(at, 1, 11), -1, 1), sway = moves_drift(at, 2, 3.1f);
    p.pelvis = {0.034f * k * shift + 0.003f * sway, 0.005f * moves_drift(at, 3, 2.7f),
                f.rest[BONE_THIGH].z - 0.013f * k};
    p.hips = turn_z(3 * moves_drift(at, 4, 13)) * turn_y(-3.5f * shift);
    p.waist = turn_y(4.5f * shift) * turn_x(1.5f * moves_drift(at, 5, 9) - 1);
    p.chest = turn_y(-1.5f * shift) * turn_z(4 * moves_drift(at, 6, 8)) * p.chest;
    const float stagger = (own(at, 40) - .5f) * .12f * k;
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const float s = sign_of(side);
        const float idle = smooth(0.1f, 1, -s * shift); // the leg that bears nothing bends
        p.leg[side].ankle = {s * (f.rest[BONE_THIGH].x + (.012f + .03f * own(at, 41)) * k), s * stagger,
                             f.ankle};
        p.leg[side].knee = {s * (.12f + .15f * idle), 1, 0};
        p.leg[side].foot = turn_z(-s * (6 + 8 * own(at, 42)));
        p.arm[side].upper = turn_x(2 + 5 * moves_drift(at, 7 + static_cast<uint32_t>(side), 7)) *
                            turn_y(-s * (6 + 3 * own(at, 43)));
        p.arm[side].elbow = 12 + 6 * moves_drift(at, 10 + static_cast<uint32_t>(side), 6);
        p.arm[side].hand = turn_x(6);
    }
    const float habit = own(at, 44);
    if (habit > .85f) { // hands folded before the belly
        for (int side = 0; side < FIGURE_SIDES; side++)
            figure_reach(f, &p, side, p.pelvis + scene_vec{sign_of(side) * .035f, .175f * k, .05f * k},
                         {sign_of(side), -.6f, -.3f});
    } else if (habit > .70f) { // a hand on the hip
        const int side = own(at, 45) > .5f;
        const float s = sign_of(side);
        figure_reach(f, &p, side, p.pelvis + scene_vec{s * .205f * k, -.01f, .075f * k}, {s, -.75f, 0});
        p.arm[side].hand = turn_y(s * 60);
    }
    return p;
}

posture waving(const figure &f, const person_moment &at)
{
    posture p = standing(f, at);
    const int side = own(at, 46) > .7f;
    const float s = sign_of(side);
    const float swing = sinf(at.time * static_cast<float>(2 * M_PI) * (1.3f + .5f * own(at, 47)));
    p.arm[side].upper = turn_z(s * 18) * turn_y(-s * (92 + 6 * swing)) * turn_z(-s * 90);
    p.arm[side].elbow = 78 + 24 * swing;
    p.arm[side].hand = turn_x(-10 * swing);
    p.arm[side].shrug = 16;
    return p;
}

posture crouching(const figure &f, const person_moment &at)
{
    posture p = moves_upright(f, at);
    const float k = f.scale, nod = moves_drift(at, 1, 6);
    p.pelvis = {0.02f * moves_drift(at, 2, 5), -0.16f * k, 0.36f * k};
    p.hips = turn_x(-26);
    p.waist = turn_x(-18 - 3 * nod);
    p.chest = turn_x(-10) * p.chest;
    p.neck = turn_x(20) * p.neck;
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const float s = sign_of(side);
        const bool flat = side == FIGURE_RIGHT;
        posture_leg &leg = p.leg[side];
        leg.foot = turn_z(-s * 8) * turn_x(flat ? 0.f : -48.f);
        leg.toes = flat ? 0.f : 42.f;
        leg.ankle = {s * .11f * k, flat ? .06f * k : -.16f * k, 0};
        leg.ankle.z = -figure_lowest(f, leg);
        leg.knee = {s * .35f, 1, flat ? .5f : .1f};
        const float busy = moves_drift(at, 5 + static_cast<uint32_t>(side), 1.9f);
        figure_reach(f, &p, side, {s * .16f * k, (.40f + .05f * busy) * k, (.33f + .06f * busy) * k},
                     {s, -.3f, -.2f});
    }
    return p;
}

// `floor`: its height against the seat's.
posture sitting(const figure &f, const person_moment &at, float floor, bool desk)
{
    posture p = moves_upright(f, at);
    const float k = f.scale, rock = moves_drift(at, 1, 17), lean = desk ? -7 + 3 * rock : 13 + 2 * rock;
    p.pelvis = {0.008f * moves_drift(at, 2, 23), desk ? -.03f * k : -.07f * k, .132f * k};
    p.hips = turn_x(lean);
    p.waist = turn_x(desk ? -6.f : -5.f);
    p.chest = turn_z(2 * moves_drift(at, 3, 15)) * turn_x(desk ? -7.f : -6.f) * p.chest;
    p.neck = turn_x(desk ? -4.f : 0.f) * p.neck;
    const float high = clamped(-floor / .45f, 0, 1.2f); // legs reach further on a low seat
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const float s = sign_of(side);
        posture_leg &leg = p.leg[side];
        const float own_way = own(at, 50 + static_cast<uint32_t>(side));
        leg.ankle = {s * (.09f + .05f * own_way) * k,
                     p.pelvis.y + blend(.80f, .47f + (desk ? -.05f : .08f) * own_way, high) * k,
                     floor + f.ankle};
        leg.knee = {s * .12f, .55f, .8f};
        leg.foot = turn_z(-s * 7);
        if (desk) {
            // Types for a while, then holds still.
            const float types = smooth(-.1f, .2f, moves_drift(at, 4, 9));
            const float tap = types * sinf(at.time * (17 + 3 * s)) * .012f,
                        reach = types * moves_drift(at, 5 + static_cast<uint32_t>(side), 2.3f);
            const float table = floor + .73f;
            figure_reach(f, &p, side,
                         {s * (.13f + .03f * reach) * k, .33f * k + .03f * reach, table + .045f + tap},
                         {s * .8f, -.8f, -.5f});
            p.arm[side].hand = turn_x(-18 - tap * 700) * turn_z(s * 70);
        } else {
            figure_reach(
                f, &p, side,
                p.pelvis + scene_vec{s * (.11f + .02f * own_way) * k, (.30f + .06f * own_way) * k, .075f * k},
                {s * .7f, -.9f, -.2f});
            p.arm[side].hand = turn_x(-12) * turn_z(s * 80);
        }
    }
    return p;
}

posture lying(const figure &f, const person_moment &at)
{
    posture p = moves_upright(f, at);
    const float k = f.scale, roll = 3 * moves_drift(at, 1, 29);
    const turn back = turn_z(180) * turn_x(90);
    p.pelvis = {0, -.06f * k, .118f * k};
    p.hips = back * turn_z(roll);
    p.waist = turn_x(-2);
    p.chest = turn_x(-2);
    p.neck = turn_x(-14);
    p.head = turn_z(30 * (own(at, 60) - .5f) + 8 * moves_drift(at, 2, 31)) * turn_x(4);
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const float s = sign_of(side);
        const float bent = own(at, 61 + static_cast<uint32_t>(side)) > .75f ? .80f : .985f;
        posture_leg &leg = p.leg[side];
        leg.foot = turn_z(180 + s * 14) * turn_x(bent < .9f ? 30.f : 62.f);
        leg.ankle = {-s * .12f * k, p.pelvis.y - (f.thigh + f.shin) * bent, .072f * k};
        leg.knee = {-s * .25f, 0, 1};
        if (own(at, 63 + static_cast<uint32_t>(side)) > .5f)
            figure_reach(f, &p, side, p.pelvis + scene_vec{-s * .05f * k, .17f * k, .135f * k},
                         {-s, -.3f, -.3f});
        else
            p.arm[side] = {turn_x(4) * turn_y(-s * 17), 14, turn_x(0), 0};
    }
    return p;
}

// On the right or the left side, by the person; the pelvis `down` the way from where the feet stood.
posture fallen(const figure &f, const person_moment &at)
{
    posture p = moves_upright(f, at);
    const float k = f.scale, twitch = moves_drift(at, 1, 5);
    const int low = own(at, 70) > .5f, high = 1 - low;
    const float s = sign_of(low);
    // Up goes to +y, the low side down, the front to -x (or +x), rolled a little onto the front.
    const turn side = turn_of({{0, 0, -s}, {-s, 0, 0}, {0, 1, 0}, {0, 0, 0}});
    p.pelvis = {0, .50f * k, .190f * k};
    p.hips = turn_y(-s * 12) * side;
    p.waist = turn_y(-s * 9) * turn_z(-s * 8) * turn_x(-10);
    p.chest = turn_z(-s * 10) * turn_x(-8);
    p.neck = turn_x(-12) * turn_y(s * 20);
    p.head = turn_x(-6 + 2 * twitch) * turn_y(s * 8);
    posture_leg &under = p.leg[low], &over = p.leg[high];
    under.ankle = {-s * .20f * k, -.16f * k, .055f * k};
    under.knee = {-s, 0, .05f};
    under.foot = side * turn_x(-25);
    over.ankle = {-s * (.06f + .01f * twitch) * k, -.28f * k, .12f * k};
    over.knee = {-s, 0, .25f};
    over.foot = side * turn_x(-35);
    // The lower arm lies stretched out before the body, the upper one over the hip.
    figure_reach(f, &p, low, {-s * .50f * k, 1.00f * k, .075f * k}, {-s * .1f, -1, .25f});
    figure_reach(f, &p, high, {-s * (.17f + .01f * twitch) * k, .52f * k, .335f * k}, {s * .1f, 0, 1});
    return p;
}
} // namespace

float moves_drift(const person_moment &at, uint32_t which, float period)
{
    const float a = own(at, 2 * which + 100) * 6.2832f, b = own(at, 2 * which + 101) * 6.2832f;
    const float t = at.time * 6.2832f / period;
    return .6f * sinf(t + a) + .4f * sinf(t * 2.37f + b);
}

posture moves_upright(const figure &f, const person_moment &at)
{
    posture p = {};
    p.pelvis = {0, 0, f.rest[BONE_THIGH].z - 0.013f * f.scale};
    // About fifteen breaths a minute.
    p.breath = sinf(at.time * 6.2832f / (3.6f + .9f * own(at, 30)) + 6.28f * own(at, 31));
    p.chest = turn_x(.5f * p.breath);
    const float pan = at.look_pan + 7 * moves_drift(at, 20, 9),
                tilt = at.look_tilt + 3 * moves_drift(at, 21, 8);
    p.neck = turn_z(-pan * .4f) * turn_x(tilt * .4f - 2);
    p.head = turn_z(-pan * .6f) * turn_x(tilt * .6f);
    for (int side = 0; side < FIGURE_SIDES; side++) {
        p.leg[side].ankle = {sign_of(side) * f.rest[BONE_THIGH].x, 0, f.ankle};
        p.leg[side].knee = {0, 1, 0};
    }
    return p;
}

posture moves_still(const figure &f, person_activity activity, const person_moment &at, float floor)
{
    switch (activity) {
    case PERSON_SIT:
    case PERSON_DESK:
        return sitting(f, at, floor, activity == PERSON_DESK);
    case PERSON_LIE:
        return lying(f, at);
    case PERSON_CROUCH:
        return crouching(f, at);
    case PERSON_WAVE:
        return waving(f, at);
    case PERSON_FALLEN:
        return fallen(f, at);
    default:
        return standing(f, at);
    }
}
