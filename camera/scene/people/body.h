// Bodies and what they wear, at rest: from a look to surfaces. The head is made in head.cpp.
#ifndef BODY_H
#define BODY_H

#include "../people.h"
#include "shape.h"

enum body_material {
    BODY_SKIN,
    BODY_HAIR,
    BODY_TOP,
    BODY_BOTTOM,
    BODY_SHOES,
    BODY_ACCENT,
    BODY_SOLES,
    BODY_SHADE, // skin where light hardly comes: eye sockets
    BODY_EYES,
    BODY_LIPS,
    BODY_FRAMES, // of glasses
    BODY_PARCEL, // what is carried
    BODY_MATERIALS
};
const scene_vec BODY_BOX = {0.40f, 0.30f, 0.28f}; // what is carried, metres
std::vector<scene_material> body_materials(const person_look &look);

// What is needed while a body is made.
struct body_maker {
    const person_look &look;
    const figure &f;
    shape *s;
    float scale;  // of breadths and girths
    float weight; // what a table's column of weight is taken by
    uint32_t seed;
};
// From `from` to `to` along the leg (0 at the hip joint, 1 at the knee, 2 at the ankle), `more` outside the skin and
// no narrower than `hem` below the knee.
void limbs_leg(const body_maker &m, int side, float from, float to, int rings, float more, float hem,
               uint32_t material, float folds);
void limbs_shoe(const body_maker &m, int side);
// With its hand; `sleeve`: 0 none to 1 as far as the wrist.
void limbs_arm(const body_maker &m, int side, float sleeve, float more);

// A box on the origin, the last vertices of a body; nothing holds it.
enum { BODY_BOX_VERTICES = 24 };
void body_box(shape *s);

// All of the body; look's numbers are inside their bounds.
void body_make(const person_look &look, const figure &f, shape *s);
void head_make(const person_look &look, const figure &f, shape *s);

// Values between the rows of a table whose first column rises: a smooth curve through all rows (Catmull and Rom).
void body_between(const float *table, int rows, int columns, float at, float *values);

shape_hold body_on_head(const figure &f, int side, scene_vec p);
shape_hold body_on_trunk(const figure &f, int side, scene_vec p);

#endif
