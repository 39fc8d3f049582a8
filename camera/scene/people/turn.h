// Rotations: unit quaternions that postures are blended with, and the rotation part of a scene_place that points are
// turned by. Angles in degrees.
#ifndef TURN_H
#define TURN_H

#include "scene_types.h"

struct turn {
    float w = 1, x = 0, y = 0, z = 0;
};

// About one axis, by the right-hand rule: about x lifts what hangs down forwards (a thigh, an arm), about y swings
// what hangs down to the left (of a body that looks along +y), about z turns to the left.
turn turn_x(float degrees);
turn turn_y(float degrees);
turn turn_z(float degrees);
turn operator*(turn a, turn b); // first b, then a
turn turn_back(turn a);         // the other way round
// The short way from a to b: share 0 gives a, 1 gives b.
turn turn_mix(turn a, turn b, float share);
scene_vec turn_apply(turn a, scene_vec v);
scene_place turn_place(turn a, scene_vec origin);
// Columns of unit length at right angles back to a quaternion.
turn turn_of(const scene_place &place);

inline float blend(float a, float b, float share)
{
    return a + (b - a) * share;
}
inline scene_vec blend(scene_vec a, scene_vec b, float share)
{
    return a + (b - a) * share;
}
inline float clamped(float v, float low, float high)
{
    return v > low ? (v < high ? v : high) : low; // not a number: low
}
// 0 at `low`, 1 at `high`, level at both ends.
inline float smooth(float low, float high, float v)
{
    const float t = clamped((v - low) / (high - low), 0, 1);
    return t * t * (3 - 2 * t);
}
inline float radians(float degrees)
{
    return degrees * static_cast<float>(M_PI / 180);
}

#endif
