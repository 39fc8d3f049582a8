// What people do: the posture of each activity at a moment, and the way from one to the next. In the coordinates of
// the person: standing or sitting at the origin, looking along +y.
#ifndef MOVES_H
#define MOVES_H

#include "../people.h"
#include "figure.h"

// `at`: a moment whose numbers are finite and inside their bounds.
posture moves_still(const figure &f, person_activity activity, const person_moment &at, float floor);
posture moves_gait(const figure &f, person_activity activity, const person_moment &at);
// All of it, in the room's coordinates.
posture moves_posture(const figure &f, const person_moment &at);

// A slow wandering between -1 and 1, about once in `period` seconds; another one for every seed and `which`.
float moves_drift(const person_moment &at, uint32_t which, float period);
// Upright with arms hanging, nothing yet done: what others start from.
posture moves_upright(const figure &f, const person_moment &at);

// Where the underside's middle is of a box that is carried, BODY_BOX large.
scene_vec moves_box_at(const figure &f, const posture &p);

// Length of a step in metres, walking or running; `speed` in metres a second.
float moves_step(const figure &f, bool runs, float speed);

#endif
