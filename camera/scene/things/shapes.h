// Building blocks of rooms and things: each function adds a closed or open surface to a mesh, with outward
// normals, counter-clockwise triangles, and texture places in metres (u along the longer side of a face,
// where wood's grain runs). Pure: the maker is all the state there is.
#ifndef THINGS_SHAPES_H
#define THINGS_SHAPES_H

#include "scene_types.h"

struct shape_maker {
    scene_mesh *mesh;
    scene_place place;     // from the caller's own axes to the mesh's
    uint32_t material = 0; // of what is added next
};

uint32_t shape_vertex(shape_maker *maker, scene_vec position, scene_vec normal, float u, float v);
// a, b, c, d counter-clockwise as seen from outside.
void shape_quad(shape_maker *maker, scene_vec a, scene_vec b, scene_vec c, scene_vec d);
// The same with u from 0 (a, d) to 1 (b, c) and v from 0 (a, b) to 1 (d, c): pictures and screens.
void shape_picture(shape_maker *maker, scene_vec a, scene_vec b, scene_vec c, scene_vec d);
void shape_triangle(shape_maker *maker, scene_vec a, scene_vec b, scene_vec c);
// A box from corner to corner with edges rounded by `bevel` metres (cut to what the box allows); 44
// triangles, or 12 where bevel is 0.
void shape_box(shape_maker *maker, scene_vec low, scene_vec high, float bevel = 0);
// A box whose bottom and back (low z, low y) nobody sees: books, plinths, notes.
void shape_board(shape_maker *maker, scene_vec low, scene_vec high);
// A cushion: between a ball (square 1) and a box (square 0), `half` its half sizes.
void shape_cushion(shape_maker *maker, scene_vec centre, scene_vec half, float square, int around, int rings);
inline void shape_ball(shape_maker *maker, scene_vec centre, scene_vec half, int around, int rings)
{
    shape_cushion(maker, centre, half, 1, around, rings);
}
// A profile of radii and heights, from the bottom up, turned about the z axis through `centre`. Smooth: one
// normal a point, else each piece of the profile has its own. Ends of radius above 0 stay open.
struct shape_ring {
    float radius, z;
};
void shape_turned(shape_maker *maker, scene_vec centre, const shape_ring *rings, int count, int around,
                  bool smooth);
// An upright cylinder with both ends.
void shape_cylinder(shape_maker *maker, scene_vec bottom, float radius, float height, int around);
// A tube of elliptic sections along a bent line: `wide` is the half width across, `high` the half height in
// the direction that `up` shows. Ends are closed by a point.
struct shape_section {
    scene_vec centre;
    float wide, high;
};
void shape_tube(shape_maker *maker, const shape_section *sections, int count, scene_vec up, int around);
// A straight round rod, its ends closed.
void shape_rod(shape_maker *maker, scene_vec from, scene_vec to, float radius, int around);

int shape_triangles(const scene_mesh *mesh);

#endif
