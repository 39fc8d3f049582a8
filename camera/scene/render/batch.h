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
    uint32_t material, object, actor;
};
struct batch_object {    // what is known of an object besides its triangles
    scene_vec low, high; // its box in the world
    uint32_t actor;
    bool shadow, moves;
    size_t first, count; // of its triangles in `casts`
};
struct batch {
    std::vector<batch_vertex> vertices;
    std::vector<shader_material> materials;
    std::vector<uint32_t> indices;           // by pattern, nearest objects first
    size_t first[PATTERNS], count[PATTERNS]; // of `indices`
    std::vector<uint32_t> casts;             // what throws shadows
    std::vector<batch_object> objects;
    scene_vec low, high; // the box of the room: of everything that belongs to no actor
    // Only for batch_fill.
    std::vector<uint32_t> order, pattern;
    std::vector<uint32_t> sorted[PATTERNS];
};

// Fills the batch; its memory is used again. `shaded`: lamps' shades (materials that let light through) throw no
// shadow, for their lamp stands inside them. Triangles that name vertices or materials which are not there are left
// out. 0, or -1 after saying why: more vertices than fit into a 32 bit index.
int batch_fill(const scene_snapshot *snapshot, bool shades_cast, batch *batch);

#endif
