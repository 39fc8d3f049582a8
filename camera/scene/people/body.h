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
    BODY_MATERIALS
};
std::vector<scene_material> body_materials(const person_look &look);

// All of the body; look's numbers are inside their bounds.
void body_make(const person_look &look, const figure &f, shape *s);
void head_make(const person_look &look, const figure &f, shape *s);

// Values between the rows of a table whose first column rises: a smooth curve through all rows (Catmull and Rom).
void body_between(const float *table, int rows, int columns, float at, float *values);

shape_hold body_on_head(const figure &f, int side, scene_vec p);
shape_hold body_on_trunk(const figure &f, int side, scene_vec p);

#endif
