// A figure: the lengths of a body's segments, its bones, and how a posture puts them. The body stands at the origin,
// looks along +y, its right side is +x; at rest the arms hang FIGURE_REST degrees away from the body.
#ifndef FIGURE_H
#define FIGURE_H

#include "turn.h"

enum { FIGURE_RIGHT, FIGURE_LEFT, FIGURE_SIDES };

// Each joint that bends far has a bone of its own that bends by half: cross sections keep their size there.
enum figure_bone {
    BONE_PELVIS,
    BONE_WAIST,
    BONE_CHEST,
    BONE_NECK,
    BONE_HEAD,
    BONE_PAIRED, // the first of the right side; those of the left side follow after BONES_A_SIDE
    BONE_SHOULDER = BONE_PAIRED, // collar bone
    BONE_ARM,
    BONE_ELBOW, // half-way
    BONE_FOREARM,
    BONE_HAND,
    BONE_HIP, // half-way
    BONE_THIGH,
    BONE_KNEE, // half-way
    BONE_SHIN,
    BONE_FOOT,
    BONE_TOES,
    BONES_A_SIDE = BONE_TOES - BONE_PAIRED + 1,
    BONES = BONE_PAIRED + FIGURE_SIDES * BONES_A_SIDE
};
inline int figure_bone_of(int side, int bone)
{
    return bone + (side == FIGURE_LEFT ? BONES_A_SIDE : 0);
}

const float FIGURE_REST = 28; // degrees

struct figure {
    float height;             // metres
    float scale;              // against the body of 1.75 m that tables are written for
    float thigh, shin, ankle; // ankle: its height over the sole's underside
    float heel, ball, toe;    // along the foot from the ankle: the heel's end (negative), ball, tip
    float arm, forearm, hand; // lengths
    float head;               // chin to crown
    scene_vec rest[BONES];    // where each bone begins at rest
};

// Segment lengths as shares of the height: Drillis & Contini (1966), as in Winter, Biomechanics and Motor Control of
// Human Movement, figure 4.1. Below 1.5 m they go over to a child's: a larger head, shorter legs.
// `shoulders`: 0 narrow to 1 broad; `curves`: 0 straight to 1 wide hips.
figure figure_make(float height, float shoulders, float curves);

// What a body does at a moment, in its own coordinates. Turns are against the bone before, but for the feet.
struct posture_leg {
    scene_vec ankle; // where the ankle is to be; the hip and the knee follow from it
    scene_vec knee;  // the direction in which the knee points
    turn foot;       // against the room; none: flat on the floor, ahead
    float toes;      // degrees, upwards positive
};
struct posture_arm {
    turn upper;  // against the chest; none: hangs straight down
    float elbow; // degrees, 0 straight
    turn hand;   // against the forearm
    float shrug; // degrees, the shoulder's lift
};
struct posture {
    scene_vec pelvis; // its middle, between the hip joints
    turn hips, waist, chest, neck, head;
    posture_leg leg[FIGURE_SIDES];
    posture_arm arm[FIGURE_SIDES];
    float breath;   // -1 out to 1 in
    float holds;    // above a half: something is carried,
    scene_vec held; // whose underside's middle is here
    turn held_turn; // and which is turned like this
};

posture posture_mix(const posture &a, const posture &b, float share);
// The posture as a whole turned about the vertical axis, then moved.
posture posture_moved(const posture &p, float left_degrees, scene_vec by);

// Places of all bones: a point of the body at rest goes to scene_put(bones[b], point - figure.rest[b]).
void figure_place(const figure &f, const posture &p, scene_place bones[BONES]);

// Puts a posture's arm so that the wrist comes as near as it can to `wrist` (in the body's coordinates) with the
// elbow towards `elbow`. Uses the pelvis and the turns of the trunk that are set in `p`.
void figure_reach(const figure &f, posture *p, int side, scene_vec wrist, scene_vec elbow);
// The lowest point of a sole, in the body's coordinates.
float figure_lowest(const figure &f, const posture_leg &leg);

#endif
