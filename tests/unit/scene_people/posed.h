// A person, made and posed, for tests.
#ifndef POSED_H
#define POSED_H

#include <algorithm>
#include <memory>
#include <string.h>

#include "body.h"
#include "moves.h"

typedef std::unique_ptr<person, void (*)(person *)> person_owner;

inline person_owner made(const person_look &look)
{
    return person_owner(person_make(&look), person_free);
}

inline scene_mesh posed(const person_owner &p, const person_moment &at)
{
    scene_mesh mesh;
    person_pose(p.get(), &at, &mesh);
    return mesh;
}

// Where somebody who does this belongs: on a seat, on a bed, else on the floor.
inline person_moment usual(person_activity activity)
{
    person_moment m;
    m.activity = m.before = activity;
    m.speed = activity == PERSON_RUN ? 2.8f : 1.2f;
    if (activity == PERSON_SIT || activity == PERSON_DESK)
        m.position.z = 0.45f;
    if (activity == PERSON_LIE)
        m.position.z = 0.5f;
    m.before_position = m.position;
    return m;
}

// The corners of all that belongs to the body: the box too when it is carried.
struct bounds {
    scene_vec low = {1e9f, 1e9f, 1e9f}, high = {-1e9f, -1e9f, -1e9f};
};
inline void take(bounds *b, scene_vec p)
{
    b->low = {std::min(b->low.x, p.x), std::min(b->low.y, p.y), std::min(b->low.z, p.z)};
    b->high = {std::max(b->high.x, p.x), std::max(b->high.y, p.y), std::max(b->high.z, p.z)};
}
inline bounds bounds_of(const scene_mesh &mesh)
{
    bounds b;
    for (const scene_vertex &v : mesh.vertices)
        take(&b, v.position);
    return b;
}
inline bounds bounds_of(const scene_mesh &mesh, uint32_t material)
{
    bounds b;
    for (const scene_vertex &v : mesh.vertices)
        if (v.material == material)
            take(&b, v.position);
    return b;
}
inline scene_vec middle_of(const scene_mesh &mesh, uint32_t material)
{
    const bounds b = bounds_of(mesh, material);
    return (b.low + b.high) * 0.5f;
}

inline bool same_bytes(const scene_mesh &a, const scene_mesh &b)
{
    return a.vertices.size() == b.vertices.size() && a.indices == b.indices &&
           memcmp(a.vertices.data(), b.vertices.data(), a.vertices.size() * sizeof(scene_vertex)) == 0;
}

// How far the vertex that moved most went.
inline float farthest(const scene_mesh &a, const scene_mesh &b, size_t leave_out = BODY_BOX_VERTICES)
{
    float most = 0;
    for (size_t i = 0; i + leave_out < a.vertices.size(); i++)
        most = std::max(most, scene_length(a.vertices[i].position - b.vertices[i].position));
    return most;
}

inline bool all_finite(const scene_mesh &mesh)
{
    return std::all_of(mesh.vertices.begin(), mesh.vertices.end(), [](const scene_vertex &v) {
        return std::isfinite(v.position.x) && std::isfinite(v.position.y) && std::isfinite(v.position.z) &&
               std::isfinite(v.normal.x) && std::isfinite(v.normal.y) && std::isfinite(v.normal.z);
    });
}

#endif
