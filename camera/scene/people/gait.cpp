// Walking and running. A foot that is down stays where it is while the body goes over it: it is put from the metres
// walked, and hip and knee follow from foot and pelvis. What the foot and the pelvis do is shaped after published
// gait curves: foot to ground angle, pelvis rise, sway, turn and list and the arms' swing as in Winter, The
// Biomechanics and Motor Control of Human Gait (1991), and Murray, Drought & Kory, Walking Patterns of Normal Men
// (1964); running after Novacheck, The Biomechanics of Running (1998).
#include "moves.h"

#include <algorithm>

#include "body.h"

namespace
{
struct gait {
    float down;                 // share of the cycle (two steps) in which a foot is down
    float ahead;                // how far before the hip it is put down, in steps
    float clearance;            // of the sole above the floor in mid-swing, metres
    float lean;                 // of the trunk, degrees
    float elbow, arm, arm_back; // degrees: bend, swing, where its middle is
    const float (*pitch)[2];    // of the foot over the cycle, toes up positive
    int pitches;
};
const float walk_pitch[][2] = {{0, 21},     {.05f, 6},   {.09f, 0},   {.16f, 0},   {.34f, 0},
                               {.42f, -5},  {.50f, -20}, {.57f, -42}, {.63f, -62}, {.70f, -60},
                               {.78f, -36}, {.86f, -8},  {.93f, 15},  {1, 21}};
const float run_pitch[][2] = {{0, 6},      {.06f, 0},   {.12f, 0},   {.20f, -4},  {.28f, -26}, {.36f, -54},
                              {.46f, -84}, {.58f, -96}, {.70f, -72}, {.82f, -28}, {.92f, 2},   {1, 6}};
const gait walking = {
    .62f, .455f, .022f, 3, 22, 20, -6, walk_pitch, sizeof walk_pitch / sizeof walk_pitch[0]};
const gait running = {.36f, .27f, .11f, 10, 88, 30, -8, run_pitch, sizeof run_pitch / sizeof run_pitch[0]};

float part_of(float v)
{
    return v - floorf(v);
}

float wave(float cycle)
{
    return cosf(cycle * static_cast<float>(2 * M_PI));
}

// The foot at `cycle` (0: put down), its ankle at height 0 so far. `y`: of the ankle when the foot is flat.
posture_leg foot_at(const figure &f, const gait &g, float cycle, float y)
{
    float pitch;
    body_between(g.pitch[0], g.pitches, 2, cycle, &pitch);
    posture_leg leg = {};
    leg.foot = turn_x(pitch);
    leg.toes = clamped(-pitch, 0, 40) * smooth(g.down + .14f, g.down, cycle);
    // Rolls over the heel first, over the ball in the end.
    const float pivot = pitch > 0 ? f.heel : f.ball;
    const scene_vec roll = turn_apply(leg.foot, {0, -pivot, f.ankle});
    leg.ankle = {0, y + pivot + roll.y, 0};
    return leg;
}

posture_leg leg_at(const figure &f, const gait &g, float cycle, float step)
{
    const float strike = g.ahead * step;
    posture_leg leg;
    float clear = 0;
    if (cycle < g.down) {
        leg = foot_at(f, g, cycle, strike - cycle * 2 * step);
    } else {
        const float t = (cycle - g.down) / (1 - g.down);
        leg = foot_at(f, g, cycle, 0);
        // From where it left the floor to where it will come down, with the speed of the floor at both ends.
        const float off = foot_at(f, g, g.down, strike - g.down * 2 * step).ankle.y,
                    on = foot_at(f, g, 0, strike).ankle.y;
        const float out = -.3f * step * (1 - g.down), into = -1.2f * step * (1 - g.down);
        const float t2 = t * t, t3 = t2 * t;
        leg.ankle.y =
            (2 * t3 - 3 * t2 + 1) * off + (t3 - 2 * t2 + t) * out + (3 * t2 - 2 * t3) * on + (t3 - t2) * into;
        clear = g.clearance * f.scale * sinf(t * static_cast<float>(M_PI));
    }
    leg.ankle.z = clear - figure_lowest(f, leg);
    return leg;
}
} // namespace

float moves_step(const figure &f, bool runs, float speed)
{
    const float leg = f.thigh + f.shin + f.ankle;
    if (runs) {
        // Runners keep about 2.75 steps a second, shorter legs a little more.
        const float cadence = 2.75f * sqrtf(0.93f / leg);
        return clamped(clamped(speed, 1.2f, 7) / cadence, 0.5f * leg, 1.9f * leg);
    }
    // Step length over steps a minute stays the same at all speeds, 0.0065 m min for an adult (Sekiya & Nagasaki,
    // 1998); for other legs in proportion to them at the same Froude number.
    const float froude = clamped(speed, 0.25f, 2.3f) / sqrtf(9.81f * leg);
    return std::min(1.18f * leg * sqrtf(froude), 1.0f * leg);
}

posture moves_gait(const figure &f, person_activity activity, const person_moment &at)
{
    const bool runs = activity == PERSON_RUN;
    const gait &g = runs ? running : walking;
    const float speed = at.speed > 0 ? at.speed : runs ? 2.8f : 1.2f;
    const float step = moves_step(f, runs, speed), k = f.scale;
    // An own starting foot, so that two who walk together are not in step.
    const float cycles[FIGURE_SIDES] = {
        part_of(at.way / (2 * step) + part_of(static_cast<float>(at.seed % 1024) * .618f)),
        part_of(at.way / (2 * step) + .5f + part_of(static_cast<float>(at.seed % 1024) * .618f))};
    const float right = cycles[FIGURE_RIGHT], vigour = runs ? 1 : clamped(speed / 1.3f, .45f, 1.4f);
    posture p = moves_upright(f, at);
    for (int side = 0; side < FIGURE_SIDES; side++) {
        posture_leg leg = leg_at(f, g, cycles[side], step);
        const float s = side == FIGURE_RIGHT ? 1.f : -1.f;
        leg.ankle.x = s * (runs ? 0.045f : 0.062f) * k;
        leg.knee = {s * 0.06f, 1, 0.1f};
        leg.foot = turn_z(-s * (runs ? 2.f : 6.f)) * leg.foot;
        p.leg[side] = leg;
    }
    const float straight = (f.thigh + f.shin) * .996f, strike = leg_at(f, g, 0, step).ankle.y,
                height = leg_at(f, g, 0, step).ankle.z;
    const float lowest = sqrtf(std::max(straight * straight - strike * strike, .25f * straight * straight)) +
                         height,
                standing = f.rest[BONE_THIGH].z;
    if (runs) {
        // Lowest in the middle of the stance, highest in flight; knees stay bent.
        p.pelvis.z = standing - 0.042f * k - 0.030f * k * wave(2 * (right - g.down / 2));
    } else {
        const float highest = standing - 0.016f * k;
        const float low = std::min(lowest, highest - 0.02f * k);
        p.pelvis.z = blend(low, highest, .5f - .5f * wave(2 * (right - .03f)));
    }
    p.pelvis.y = runs ? 0.03f * k : 0;
    const float loaded = wave(right - .31f); // 1 in the right stance's middle, -1 in the left one's
    p.pelvis.x = (runs ? 0.008f : 0.022f) * k * loaded;
    const float turn = (runs ? 7.f : 4.5f * vigour) * wave(right),
                list = -(runs ? 4.f : 3.5f) * wave(right - .14f);
    p.hips = turn_z(turn) * turn_y(list) * turn_x(-(g.lean * .5f * (runs ? 1 : vigour)));
    p.waist = turn_z(-turn) * turn_y(-list * .8f) * turn_x(-g.lean * .4f);
    p.chest = turn_z(-turn * .9f) * turn_y(-list * .25f) * turn_x(-g.lean * .1f);
    p.neck = turn_z(turn * .9f) * turn_x(g.lean * .35f) * p.neck;
    for (int side = 0; side < FIGURE_SIDES; side++) {
        const float s = side == FIGURE_RIGHT ? 1.f : -1.f, forward = -wave(cycles[side] - .02f);
        const float own = 1 + .25f * sinf(static_cast<float>(at.seed % 997) + static_cast<float>(side));
        posture_arm &arm = p.arm[side];
        arm.upper = turn_z(runs ? s * 12 : 0) * turn_x(g.arm_back + g.arm * vigour * own * forward) *
                    turn_y(-s * (runs ? 12.f : 7.f));
        arm.elbow = g.elbow + (runs ? 8.f : 10 * vigour) * (forward + .3f);
        arm.hand = turn_x(runs ? 0.f : 8.f);
    }
    if (activity == PERSON_CARRY) {
        p.waist = p.waist * turn_x(6);
        const scene_vec box = p.held = moves_box_at(f, p);
        p.holds = 1;
        for (int side = 0; side < FIGURE_SIDES; side++) {
            const float s = side == FIGURE_RIGHT ? 1.f : -1.f;
            figure_reach(f, &p, side, box + scene_vec{s * (BODY_BOX.x / 2 + .01f), -.07f, .05f},
                         {s * .5f, -1, -.5f});
            p.arm[side].hand = turn_x(10);
        }
    }
    return p;
}

scene_vec moves_box_at(const figure &f, const posture &p)
{
    // Before the belly, carried along by the pelvis without its list and sway.
    return {p.pelvis.x * .5f, p.pelvis.y + 0.17f * f.scale + BODY_BOX.y / 2, p.pelvis.z + 0.04f * f.height};
}
