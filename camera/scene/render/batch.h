// A snapshot as the graphics library takes it: all triangles in the world's coordinates, sorted by pattern.
//
// Everything is put together anew for every picture. That takes under a millisecond for 25,000 triangles (it is one
// pass over the vertices, which the software rasteriser keeps in main memory anyway), and there is no cache of meshes
// that could outlive them: makers may free, move and change meshes as they like.
#ifndef BATCH_H
#define BATCH_H

#include <vector>

#include "scene_types.h"
#include "shaders.h"

struct batch_vertex {
    float position[3], normal[3], surface[2];
    uint32_t material, object; // row of the material; place in the snapshot, from 1
};
struct batch_object {    // what is known of an object besides its triangles
    scene_vec low, high; // its box in the world
};
struct batch {
    std::vector<batch_vertex> vertices;
    std::vector<shader_material> materials;
    std::vector<uint32_t> sorted[PATTERNS]; // triangles by pattern, nearest objects first
    std::vector<uint32_t> casts;            // triangles that throw shadows
    std::vector<batch_object> objects;      // as in the snapshot
    scene_vec low, high;                    // the box of the room: of everything that belongs to no actor
    // Only for this module.
    std::vector<uint32_t> order, pattern;
    std::vector<float> distance;
    struct seen {
        float x, y, ahead;
    };
    std::vector<seen> seen; // vertices on the target
};

// Fills the batch; its memory is used again. `shades_cast`: materials that let light through throw shadows too; lamps'
// shades must not when their lamp stands inside them. Triangles that name vertices or materials which are not there
// are left out. 0, or -1 after saying why: more of something than can be drawn.
int batch_fill(const scene_snapshot *snapshot, bool shades_cast, batch *batch);

// What of the batch can be seen on a target of `width` x `height` texels through `matrix` (world to clip space, by
// columns) is appended to `indices`: triangles that lie inside the target, show the wanted side and cover the middle
// of a texel. The graphics library would find the same, at several times the cost: it first shades all their corners.
// batch_look first, once for every matrix; then the lists.
void batch_look(batch *batch, const float matrix[16], int width, int height);
void batch_visible(const batch *batch, const std::vector<uint32_t> &triangles, int width, int height,
                   bool fronts, std::vector<uint32_t> *indices);

#endif
