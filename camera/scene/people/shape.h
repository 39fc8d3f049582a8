// Surfaces of a body at rest: lofts over cross sections, with weights that tie each vertex to the bones that carry
// it.
#ifndef SHAPE_H
#define SHAPE_H

#include <vector>

#include "figure.h"

enum { SHAPE_BONES = 4 }; // that one vertex hangs on, at most

struct shape_hold {
    int bone[SHAPE_BONES] = {0, 0, 0, 0};
    float share[SHAPE_BONES] = {1, 0, 0, 0};
};

struct shape {
    scene_mesh mesh; // at rest
    std::vector<shape_hold> holds;
};

// One cross section: an oval about `centre`, half as wide as `across` is long; `front` and `back` are its half axes
// to the two other sides. `square`: 2 an ellipse, more: towards a rectangle.
struct shape_ring {
    scene_vec centre, across, front, back;
    float square;
};

enum shape_end {
    SHAPE_OPEN,
    SHAPE_ROUND, // closed by a point, the surface goes on over it
    SHAPE_FLAT,  // closed by a disc with an edge
};

// Which bones carry a point at rest.
typedef shape_hold (*shape_weigher)(const figure &f, int side, scene_vec point);

// Joins rings, two or more, by quads round `segments`. `from` and `to`: the part of the way round that is covered, 0
// and 1 at the back, 0.25 at +across, 0.5 in front. Texture: u metres round, v metres along, both from the middle of
// the front of the first ring.
struct shape_loft {
    std::vector<shape_ring> rings;
    int segments = 12;
    uint32_t material = 0;
    shape_end first = SHAPE_OPEN, last = SHAPE_OPEN;
    float from = 0, to = 1;
    float folds = 0;   // metres: how deep cloth creases
    uint32_t seed = 0; // of the folds
};
void shape_add(shape *s, const shape_loft &loft, const figure &f, int side, shape_weigher weigh);

// Points and triangles as they are; normals follow from the triangles.
void shape_add_triangles(shape *s, const std::vector<scene_vec> &points, const std::vector<uint32_t> &indices,
                         uint32_t material, const figure &f, int side, shape_weigher weigh);

// Cross section with axes along the room's: across x, front y.
shape_ring shape_level(scene_vec centre, float across, float front, float back, float square);
// Cross section of a limb that goes along `along` (unit): front is as near to +y as can be.
shape_ring shape_limb(scene_vec centre, scene_vec along, float across, float front, float back);
scene_vec shape_point(const shape_ring &ring, float round);
// Smooth noise in space, -1 to 1, changes over about one unit.
float shape_noise(scene_vec p, uint32_t seed);

// A hold from shares of bones; the four largest stay and are made to add up to one.
struct shape_mixer {
    shape_hold hold;
    int used = 0;
};
void shape_hang(shape_mixer *m, int bone, float share);
shape_hold shape_held(const shape_mixer &m);

#endif
