// Surfaces from numbers. Normals are made from the surface's formula where there is one, so that few
// triangles look round; flat things repeat their corners.
#include "shapes.h"

#include <algorithm>

namespace
{
const float PI = static_cast<float>(M_PI);

// Adds a triangle the way round that makes it face `outward`.
void facing(shape_maker *maker, uint32_t i, uint32_t j, uint32_t k, scene_vec outward)
{
    const std::vector<scene_vertex> &v = maker->mesh->vertices;
    const scene_vec side = scene_cross(v[j].position - v[i].position, v[k].position - v[i].position);
    if (scene_dot(side, outward) < 0)
        std::swap(j, k);
    const uint32_t triangle[3] = {i, j, k};
    maker->mesh->indices.insert(maker->mesh->indices.end(), triangle, triangle + 3);
}

bool same(scene_vec a, scene_vec b)
{
    return a.x == b.x && a.y == b.y && a.z == b.z;
}

// Rows of `around` + 1 vertices each, joined into bands. Where a row is a point, triangles without area are
// left out.
void bands(shape_maker *maker, uint32_t first, int rows, int around)
{
    const std::vector<scene_vertex> &v = maker->mesh->vertices;
    std::vector<uint32_t> &indices = maker->mesh->indices;
    for (int row = 0; row + 1 < rows; row++) {
        for (int i = 0; i < around; i++) {
            const uint32_t a = first + static_cast<uint32_t>(row * (around + 1) + i), b = a + 1,
                           d = a + static_cast<uint32_t>(around + 1), c = d + 1;
            if (!same(v[a].position, v[b].position))
                indices.insert(indices.end(), {a, b, c});
            if (!same(v[c].position, v[d].position))
                indices.insert(indices.end(), {a, c, d});
        }
    }
}

float axis_of(scene_vec v, int axis)
{
    return axis == 0 ? v.x : axis == 1 ? v.y : v.z;
}

float power(float value, float exponent)
{
    const float size = powf(fabsf(value), exponent);
    return value < 0 ? -size : size;
}
} // namespace

uint32_t shape_vertex(shape_maker *maker, scene_vec position, scene_vec normal, float u, float v)
{
    maker->mesh->vertices.push_back(
        {scene_put(maker->place, position), scene_turn(maker->place, normal), u, v, maker->material});
    return static_cast<uint32_t>(maker->mesh->vertices.size() - 1);
}

static void quad(shape_maker *maker, scene_vec a, scene_vec b, scene_vec c, scene_vec d, bool whole)
{
    const scene_vec normal = scene_unit(scene_cross(b - a, d - a));
    float u = whole ? 1 : scene_length(b - a), v = whole ? 1 : scene_length(d - a);
    const bool turned = !whole && v > u; // the grain follows the longer side
    if (turned)
        std::swap(u, v);
    const float corners[4][2] = {{0, 0}, {u, 0}, {u, v}, {0, v}};
    const scene_vec points[4] = {a, b, c, d};
    uint32_t at[4];
    for (int i = 0; i < 4; i++) {
        const float *uv = corners[turned ? (4 - i) % 4 : i]; // u runs from a to d
        at[i] = shape_vertex(maker, points[i], normal, uv[0], uv[1]);
    }
    const uint32_t two[6] = {at[0], at[1], at[2], at[0], at[2], at[3]};
    maker->mesh->indices.insert(maker->mesh->indices.end(), two, two + 6);
}

void shape_quad(shape_maker *maker, scene_vec a, scene_vec b, scene_vec c, scene_vec d)
{
    quad(maker, a, b, c, d, false);
}

void shape_picture(shape_maker *maker, scene_vec a, scene_vec b, scene_vec c, scene_vec d)
{
    quad(maker, a, b, c, d, true);
}

void shape_triangle(shape_maker *maker, scene_vec a, scene_vec b, scene_vec c)
{
    const scene_vec normal = scene_unit(scene_cross(b - a, c - a));
    const uint32_t first = shape_vertex(maker, a, normal, 0, 0);
    shape_vertex(maker, b, normal, scene_length(b - a), 0);
    shape_vertex(maker, c, normal, 0, scene_length(c - a));
    const uint32_t one[3] = {first, first + 1, first + 2};
    maker->mesh->indices.insert(maker->mesh->indices.end(), one, one + 3);
}

// Boards of wood meet where v is a whole number of the pattern's period: with half a metre on top, not in the
// middle of a table. Every corner has three vertices, one for each face it belongs to, moved back from the
// edge by the bevel. Faces, the strips between two faces and the triangle between three share them, so the
// strips' normals turn smoothly.
void shape_box(shape_maker *maker, scene_vec low, scene_vec high, float bevel)
{
    const float size[3] = {high.x - low.x, high.y - low.y, high.z - low.z};
    const float least = std::min(size[0], std::min(size[1], size[2]));
    const float r = std::max(0.f, std::min(bevel, least * 0.49f));
    const uint32_t first = static_cast<uint32_t>(maker->mesh->vertices.size());
    for (int corner = 0; corner < 8; corner++) {
        for (int axis = 0; axis < 3; axis++) {
            float p[3], n[3] = {0, 0, 0};
            for (int k = 0; k < 3; k++) {
                const bool far = corner & (1 << k);
                p[k] = axis_of(far ? high : low, k) + (k == axis ? 0 : far ? -r : r);
            }
            n[axis] = corner & (1 << axis) ? 1.f : -1.f;
            const int b = (axis + 1) % 3, c = (axis + 2) % 3, longer = size[b] >= size[c] ? b : c,
                      other = longer == b ? c : b;
            shape_vertex(maker, {p[0], p[1], p[2]}, {n[0], n[1], n[2]}, p[longer], p[other] + 0.5f);
        }
    }
    const auto at = [first](int corner, int axis) {
        return first + static_cast<uint32_t>(corner * 3 + axis);
    };
    const auto outward = [maker](scene_vec v) { return scene_turn(maker->place, v); };
    for (int axis = 0; axis < 3; axis++) {
        const int b = 1 << (axis + 1) % 3, c = 1 << (axis + 2) % 3;
        for (int side = 0; side < 2; side++) {
            const int k = side << axis;
            const float s = side ? 1.f : -1.f;
            const scene_vec out = outward({axis == 0 ? s : 0.f, axis == 1 ? s : 0.f, axis == 2 ? s : 0.f});
            facing(maker, at(k, axis), at(k | b, axis), at(k | b | c, axis), out);
            facing(maker, at(k, axis), at(k | b | c, axis), at(k | c, axis), out);
        }
    }
    if (r == 0)
        return;
    for (int edge = 0; edge < 3; edge++) {
        const int b = (edge + 1) % 3, c = (edge + 2) % 3;
        for (int signs = 0; signs < 4; signs++) {
            const int k = (signs & 1) << b | (signs >> 1) << c;
            float o[3] = {0, 0, 0};
            o[b] = signs & 1 ? 1.f : -1.f;
            o[c] = signs & 2 ? 1.f : -1.f;
            const scene_vec out = outward({o[0], o[1], o[2]});
            facing(maker, at(k, b), at(k | 1 << edge, b), at(k | 1 << edge, c), out);
            facing(maker, at(k, b), at(k | 1 << edge, c), at(k, c), out);
        }
    }
    for (int corner = 0; corner < 8; corner++) {
        const scene_vec out =
            outward({corner & 1 ? 1.f : -1.f, corner & 2 ? 1.f : -1.f, corner & 4 ? 1.f : -1.f});
        facing(maker, at(corner, 0), at(corner, 1), at(corner, 2), out);
    }
}

void shape_board(shape_maker *maker, scene_vec low, scene_vec high)
{
    const scene_vec a = low, b = {high.x, low.y, low.z}, c = {high.x, high.y, low.z},
                    d = {low.x, high.y, low.z}, e = {low.x, low.y, high.z}, f = {high.x, low.y, high.z},
                    g = high, h = {low.x, high.y, high.z};
    shape_quad(maker, b, c, g, f);
    shape_quad(maker, d, a, e, h);
    shape_quad(maker, c, d, h, g);
    shape_quad(maker, e, f, g, h);
}

// Superellipsoid (Barr 1981): powers of sine and cosine, here the same power in both directions.
void shape_cushion(shape_maker *maker, scene_vec centre, scene_vec half, float square, int around, int rings)
{
    const float e = std::max(0.1f, square), back = 2 - e;
    const uint32_t first = static_cast<uint32_t>(maker->mesh->vertices.size());
    for (int row = 0; row <= rings; row++) {
        const float up = -PI / 2 + PI * static_cast<float>(row) / static_cast<float>(rings);
        const bool pole = row == 0 || row == rings;
        const float cu = pole ? 0 : cosf(up), su = row == 0 ? -1 : row == rings ? 1 : sinf(up);
        for (int i = 0; i <= around; i++) {
            const float turn = 2 * PI * static_cast<float>(i % around) / static_cast<float>(around);
            const float ct = cosf(turn), st = sinf(turn);
            const scene_vec p = {half.x * power(cu, e) * power(ct, e), half.y * power(cu, e) * power(st, e),
                                 half.z * power(su, e)};
            const scene_vec n = {power(cu, back) * power(ct, back) / half.x,
                                 power(cu, back) * power(st, back) / half.y, power(su, back) / half.z};
            shape_vertex(maker, centre + p, scene_unit(n), turn * std::max(half.x, half.y), up * half.z);
        }
    }
    bands(maker, first, rings + 1, around);
}

void shape_turned(shape_maker *maker, scene_vec centre, const shape_ring *rings, int count, int around,
                  bool smooth)
{
    std::vector<scene_vec> slopes; // of each piece: radial and upward part of the normal
    for (int i = 0; i + 1 < count; i++)
        slopes.push_back(scene_unit({rings[i + 1].z - rings[i].z, 0, rings[i].radius - rings[i + 1].radius}));
    const auto row = [&](int ring, scene_vec slope) {
        for (int i = 0; i <= around; i++) {
            const float turn = 2 * PI * static_cast<float>(i % around) / static_cast<float>(around);
            const float c = cosf(turn), s = sinf(turn);
            shape_vertex(maker,
                         centre + scene_vec{c * rings[ring].radius, s * rings[ring].radius, rings[ring].z},
                         {c * slope.x, s * slope.x, slope.z}, turn * rings[ring].radius, rings[ring].z);
        }
    };
    if (smooth) {
        const uint32_t first = static_cast<uint32_t>(maker->mesh->vertices.size());
        for (int i = 0; i < count; i++) {
            const scene_vec below = slopes[static_cast<size_t>(std::max(0, i - 1))],
                            above = slopes[static_cast<size_t>(std::min(count - 2, i))];
            row(i, scene_unit(below + above));
        }
        bands(maker, first, count, around);
        return;
    }
    for (int i = 0; i + 1 < count; i++) {
        const uint32_t first = static_cast<uint32_t>(maker->mesh->vertices.size());
        row(i, slopes[static_cast<size_t>(i)]);
        row(i + 1, slopes[static_cast<size_t>(i)]);
        bands(maker, first, 2, around);
    }
}

void shape_cylinder(shape_maker *maker, scene_vec bottom, float radius, float height, int around)
{
    const shape_ring rings[4] = {{0, 0}, {radius, 0}, {radius, height}, {0, height}};
    shape_turned(maker, bottom, rings, 4, around, false);
}

void shape_tube(shape_maker *maker, const shape_section *sections, int count, scene_vec up, int around)
{
    const uint32_t first = static_cast<uint32_t>(maker->mesh->vertices.size());
    float along = 0;
    // Two more rows close the ends: a point each, as a row of its own so that bands joins it too.
    for (int row = -1; row <= count; row++) {
        const int i = std::max(0, std::min(count - 1, row)), before = std::max(0, i - 1),
                  after = std::min(count - 1, i + 1);
        const scene_vec ahead = scene_unit(sections[after].centre - sections[before].centre);
        const scene_vec side = scene_unit(scene_cross(ahead, up)), top = scene_cross(side, ahead);
        const bool end = row < 0 || row == count;
        if (i > 0 && !end)
            along += scene_length(sections[i].centre - sections[i - 1].centre);
        // A swelling tube's normals lean back: the slope of the radius along the way.
        const float way = std::max(1e-6f, scene_length(sections[after].centre - sections[before].centre));
        const float lean =
            (sections[before].wide + sections[before].high - sections[after].wide - sections[after].high) /
            2 / way;
        for (int k = 0; k <= around; k++) {
            const float turn = 2 * PI * static_cast<float>(k % around) / static_cast<float>(around);
            const float c = cosf(turn), s = sinf(turn);
            const scene_vec flat = side * c + top * s;
            if (end) {
                shape_vertex(maker, sections[i].centre, row < 0 ? ahead * -1 : ahead, turn, along);
                continue;
            }
            const scene_vec p = side * (c * sections[i].wide) + top * (s * sections[i].high);
            const float girth = std::max(sections[i].wide, sections[i].high);
            shape_vertex(maker, sections[i].centre + p, scene_unit(flat + ahead * lean), turn * girth, along);
        }
    }
    // side x top looks back along the tube, so bands of rows that go ahead face outwards the other way round.
    const size_t start = maker->mesh->indices.size();
    bands(maker, first, count + 2, around);
    std::vector<uint32_t> &indices = maker->mesh->indices;
    for (size_t i = start; i < indices.size(); i += 3)
        std::swap(indices[i + 1], indices[i + 2]);
}

void shape_rod(shape_maker *maker, scene_vec from, scene_vec to, float radius, int around)
{
    const scene_vec way = to - from;
    const scene_vec up = fabsf(way.z) > 0.9f * scene_length(way) ? scene_vec{0, 1, 0} : scene_vec{0, 0, 1};
    const shape_section ends[2] = {{from, radius, radius}, {to, radius, radius}};
    shape_tube(maker, ends, 2, up, around);
}

int shape_triangles(const scene_mesh *mesh)
{
    return static_cast<int>(mesh->indices.size() / 3);
}
