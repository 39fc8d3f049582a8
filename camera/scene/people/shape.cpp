// See the header.
#include "shape.h"

#include <algorithm>

namespace
{
float hashed(int x, int y, int z, uint32_t seed)
{
    uint32_t h = seed * 0x9e3779b9u + static_cast<uint32_t>(x) * 0x85ebca6bu +
                 static_cast<uint32_t>(y) * 0xc2b2ae35u + static_cast<uint32_t>(z) * 0x27d4eb2fu;
    h ^= h >> 15;
    h *= 0x2c1b3c6du;
    h ^= h >> 12;
    h *= 0x297a2d39u;
    h ^= h >> 15;
    return static_cast<float>(h >> 8) * (2.f / (1 << 24)) - 1;
}

float powered(float v, float power)
{
    return v < 0 ? -powf(-v, power) : powf(v, power);
}

// Normals of the vertices from `first` on: sums of the triangles' that are at the same place, so that a seam where
// only the texture jumps stays smooth.
void set_normals(scene_mesh *m, size_t first, size_t first_index, const std::vector<uint32_t> &same)
{
    std::vector<scene_vec> sum(m->vertices.size() - first, scene_vec{0, 0, 0});
    for (size_t i = first_index; i + 2 < m->indices.size(); i += 3) {
        const uint32_t a = m->indices[i], b = m->indices[i + 1], c = m->indices[i + 2];
        const scene_vec n = scene_cross(m->vertices[b].position - m->vertices[a].position,
                                        m->vertices[c].position - m->vertices[a].position);
        for (const uint32_t v : {a, b, c})
            sum[same[v - first]] = sum[same[v - first]] + n;
    }
    for (size_t i = 0; i < sum.size(); i++)
        m->vertices[first + i].normal = scene_unit(sum[same[i]]);
}

void add_end(shape *s, const shape_loft &loft, size_t first, size_t ring, bool outward_first, shape_end end,
             std::vector<uint32_t> *same)
{
    scene_mesh &m = s->mesh;
    const uint32_t stride = static_cast<uint32_t>(loft.segments) + 1;
    uint32_t row = static_cast<uint32_t>(first + ring * stride);
    scene_vec middle = {0, 0, 0};
    for (int j = 0; j < loft.segments; j++)
        middle = middle + m.vertices[row + static_cast<uint32_t>(j)].position;
    middle = middle * (1.f / static_cast<float>(loft.segments));
    if (end == SHAPE_FLAT) {
        // The edge shows when the disc has vertices, and so normals, of its own.
        const uint32_t begin = static_cast<uint32_t>(m.vertices.size());
        for (uint32_t j = 0; j < stride; j++) {
            m.vertices.push_back(m.vertices[row + j]);
            same->push_back(j == stride - 1 ? static_cast<uint32_t>(begin - first)
                                            : static_cast<uint32_t>(begin - first) + j);
        }
        row = begin;
    }
    scene_vertex tip = m.vertices[row];
    tip.position = middle;
    const uint32_t centre = static_cast<uint32_t>(m.vertices.size());
    m.vertices.push_back(tip);
    same->push_back(static_cast<uint32_t>(centre - first));
    for (uint32_t j = 0; j + 1 < stride; j++) {
        m.indices.push_back(centre);
        m.indices.push_back(outward_first ? row + j + 1 : row + j);
        m.indices.push_back(outward_first ? row + j : row + j + 1);
    }
}
} // namespace

float shape_noise(scene_vec p, uint32_t seed)
{
    const float fx = floorf(p.x), fy = floorf(p.y), fz = floorf(p.z);
    const int x = static_cast<int>(fx), y = static_cast<int>(fy), z = static_cast<int>(fz);
    const float tx = smooth(0, 1, p.x - fx), ty = smooth(0, 1, p.y - fy), tz = smooth(0, 1, p.z - fz);
    float level[2];
    for (int k = 0; k < 2; k++)
        level[k] = blend(blend(hashed(x, y, z + k, seed), hashed(x + 1, y, z + k, seed), tx),
                         blend(hashed(x, y + 1, z + k, seed), hashed(x + 1, y + 1, z + k, seed), tx), ty);
    return blend(level[0], level[1], tz);
}

shape_ring shape_level(scene_vec centre, float across, float front, float back, float square)
{
    return {centre, {across, 0, 0}, {0, front, 0}, {0, back, 0}, square};
}

shape_ring shape_limb(scene_vec centre, scene_vec along, float across, float front, float back)
{
    const scene_vec forward = scene_unit(scene_vec{0, 1, 0} - along * along.y);
    scene_vec side = scene_cross(forward, along);
    if (side.x < 0)
        side = side * -1;
    return {centre, side * across, forward * front, forward * back, 2};
}

scene_vec shape_point(const shape_ring &ring, float round)
{
    const float a = round * static_cast<float>(2 * M_PI);
    const float x = powered(sinf(a), 2 / ring.square), y = -powered(cosf(a), 2 / ring.square);
    return ring.centre + ring.across * x + (y > 0 ? ring.front : ring.back) * y;
}

void shape_hang(shape_mixer *m, int bone, float share)
{
    if (!(share > 0.004f))
        return;
    for (int i = 0; i < m->used; i++)
        if (m->hold.bone[i] == bone) {
            m->hold.share[i] += share;
            return;
        }
    if (m->used == SHAPE_BONES) {
        int least = 0;
        for (int i = 1; i < SHAPE_BONES; i++)
            if (m->hold.share[i] < m->hold.share[least])
                least = i;
        if (m->hold.share[least] >= share)
            return;
        m->hold.bone[least] = bone;
        m->hold.share[least] = share;
        return;
    }
    if (m->used == 0)
        m->hold.share[0] = 0;
    m->hold.bone[m->used] = bone;
    m->hold.share[m->used++] = share;
}

shape_hold shape_held(const shape_mixer &m)
{
    shape_hold h = m.hold;
    float sum = 0;
    for (const float share : h.share)
        sum += share;
    for (float &share : h.share)
        share /= sum;
    return h;
}

void shape_add(shape *s, const shape_loft &loft, const figure &f, int side, shape_weigher weigh)
{
    scene_mesh &m = s->mesh;
    const size_t first = m.vertices.size(), first_index = m.indices.size();
    const size_t rings = loft.rings.size();
    const uint32_t stride = static_cast<uint32_t>(loft.segments) + 1;
    const bool whole = loft.from <= 0 && loft.to >= 1;
    // The mean way round: patterns run straight along a part that narrows, as cloth does.
    float about = 0;
    for (const shape_ring &r : loft.rings)
        about += (scene_length(r.across) + (scene_length(r.front) + scene_length(r.back)) / 2) *
                 static_cast<float>(M_PI);
    about /= static_cast<float>(rings);
    std::vector<uint32_t> same;
    float along = 0;
    for (size_t i = 0; i < rings; i++) {
        const shape_ring &r = loft.rings[i];
        if (i > 0)
            along += scene_length(shape_point(r, 0.5f) - shape_point(loft.rings[i - 1], 0.5f));
        for (uint32_t j = 0; j < stride; j++) {
            const float round =
                blend(loft.from, loft.to, static_cast<float>(j) / static_cast<float>(loft.segments));
            scene_vertex v = {};
            v.position = shape_point(r, whole && j == stride - 1 ? loft.from : round);
            if (loft.folds > 0) {
                // Creases run rather round the body than along it: noise that changes faster upwards.
                const scene_vec p = v.position;
                const float crease = shape_noise({p.x * 9, p.y * 9, p.z * 17 + p.x * 5}, loft.seed) +
                                     0.5f * shape_noise({p.x * 21, p.y * 21, p.z * 32}, loft.seed + 1);
                v.position = v.position + scene_unit(p - r.centre) * (loft.folds * crease);
            }
            v.u = (round - 0.5f) * about;
            v.v = along;
            v.material = loft.material;
            m.vertices.push_back(v);
            same.push_back(static_cast<uint32_t>(i) * stride + (whole && j == stride - 1 ? 0 : j));
        }
    }
    // Outwards is to the right of the way round, when the rings follow each other upwards of it.
    const scene_vec up = scene_cross(loft.rings[0].across, loft.rings[0].front);
    const bool upward = scene_dot(up, loft.rings[rings - 1].centre - loft.rings[0].centre) >= 0;
    for (size_t i = 0; i + 1 < rings; i++)
        for (uint32_t j = 0; j + 1 < stride; j++) {
            const uint32_t a = static_cast<uint32_t>(first + i * stride) + j, b = a + 1, c = a + stride,
                           d = c + 1;
            const uint32_t quad[2][6] = {{a, c, b, b, c, d}, {a, b, c, b, d, c}};
            m.indices.insert(m.indices.end(), quad[upward], quad[upward] + 6);
        }
    if (loft.first != SHAPE_OPEN)
        add_end(s, loft, first, 0, upward, loft.first, &same);
    if (loft.last != SHAPE_OPEN)
        add_end(s, loft, first, rings - 1, !upward, loft.last, &same);
    set_normals(&m, first, first_index, same);
    for (size_t i = first; i < m.vertices.size(); i++)
        s->holds.push_back(weigh(f, side, m.vertices[i].position));
}

void shape_add_triangles(shape *s, const std::vector<scene_vec> &points, const std::vector<uint32_t> &indices,
                         uint32_t material, const figure &f, int side, shape_weigher weigh)
{
    scene_mesh &m = s->mesh;
    const size_t first = m.vertices.size(), first_index = m.indices.size();
    std::vector<uint32_t> same;
    for (const scene_vec &p : points) {
        m.vertices.push_back({p, {0, 0, 1}, p.x, p.z, material});
        same.push_back(static_cast<uint32_t>(same.size()));
        s->holds.push_back(weigh(f, side, p));
    }
    for (const uint32_t i : indices)
        m.indices.push_back(static_cast<uint32_t>(first) + i);
    set_normals(&m, first, first_index, same);
}
