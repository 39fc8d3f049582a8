// What every mesh of ours has to be, whatever it shows.
#ifndef MESH_CHECKS_H
#define MESH_CHECKS_H

#include <algorithm>
#include <gtest/gtest.h>

#include "scene_types.h"

inline void expect_sound(const scene_mesh &mesh, size_t materials, const char *what)
{
    ASSERT_FALSE(mesh.indices.empty()) << what;
    ASSERT_EQ(mesh.indices.size() % 3, 0u) << what;
    for (uint32_t index : mesh.indices)
        ASSERT_LT(index, mesh.vertices.size()) << what;
    for (const scene_vertex &v : mesh.vertices) {
        ASSERT_TRUE(isfinite(v.position.x) && isfinite(v.position.y) && isfinite(v.position.z)) << what;
        ASSERT_TRUE(isfinite(v.u) && isfinite(v.v)) << what;
        ASSERT_NEAR(scene_length(v.normal), 1, 1e-3) << what;
        ASSERT_LT(v.material, materials) << what;
    }
}

// Normals look to the side from which a triangle is counter-clockwise; slivers may lean.
inline void expect_facing(const scene_mesh &mesh, float share, const char *what)
{
    float area = 0, wrong = 0;
    for (size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const scene_vertex &a = mesh.vertices[mesh.indices[i]], &b = mesh.vertices[mesh.indices[i + 1]],
                           &c = mesh.vertices[mesh.indices[i + 2]];
        const scene_vec side = scene_cross(b.position - a.position, c.position - a.position);
        area += scene_length(side);
        if (scene_dot(side, a.normal + b.normal + c.normal) < 0)
            wrong += scene_length(side);
    }
    EXPECT_LE(wrong, area * share) << what;
}

// Six times the volume that a closed mesh encloses; negative when it is inside out.
inline float six_volumes(const scene_mesh &mesh)
{
    float sum = 0;
    for (size_t i = 0; i + 2 < mesh.indices.size(); i += 3)
        sum += scene_dot(mesh.vertices[mesh.indices[i]].position,
                         scene_cross(mesh.vertices[mesh.indices[i + 1]].position,
                                     mesh.vertices[mesh.indices[i + 2]].position));
    return sum;
}

struct mesh_box {
    scene_vec low, high;
};
inline mesh_box box_of(const scene_mesh &mesh)
{
    mesh_box box = {{1e9f, 1e9f, 1e9f}, {-1e9f, -1e9f, -1e9f}};
    for (const scene_vertex &v : mesh.vertices) {
        box.low = {std::min(box.low.x, v.position.x), std::min(box.low.y, v.position.y),
                   std::min(box.low.z, v.position.z)};
        box.high = {std::max(box.high.x, v.position.x), std::max(box.high.y, v.position.y),
                    std::max(box.high.z, v.position.z)};
    }
    return box;
}

inline bool same_mesh(const scene_mesh &a, const scene_mesh &b)
{
    if (a.indices != b.indices || a.vertices.size() != b.vertices.size())
        return false;
    for (size_t i = 0; i < a.vertices.size(); i++) {
        const scene_vertex &p = a.vertices[i], &q = b.vertices[i];
        if (p.position.x != q.position.x || p.position.y != q.position.y || p.position.z != q.position.z ||
            p.material != q.material)
            return false;
    }
    return true;
}

#endif
