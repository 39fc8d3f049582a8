// A snapshot's triangles, put into the world's coordinates and sorted by pattern.
#include "batch.h"

#include <algorithm>
#include <math.h>

#include "desk.h"

static void widen(scene_vec *low, scene_vec *high, scene_vec at)
{
    low->x = std::min(low->x, at.x), high->x = std::max(high->x, at.x);
    low->y = std::min(low->y, at.y), high->y = std::max(high->y, at.y);
    low->z = std::min(low->z, at.z), high->z = std::max(high->z, at.z);
}

static shader_vec4 bands_of(const float *bands)
{
    return {bands[BAND_RED], bands[BAND_GREEN], bands[BAND_BLUE], bands[BAND_INFRARED]};
}

static float share(float x)
{
    return x > 0 ? std::min(x, 1.f) : 0;
}

static void add_materials(const std::vector<scene_material> &materials, batch *batch)
{
    for (const scene_material &m : materials) {
        const bool known = m.pattern >= 0 && m.pattern < PATTERNS;
        batch->pattern.push_back(known ? m.pattern : PATTERN_PLAIN);
        batch->materials.push_back({bands_of(m.first),
                                    bands_of(m.second),
                                    bands_of(m.emission),
                                    {std::max(m.size, 1e-4f), share(m.gloss), share(m.through),
                                     static_cast<float>(m.seed & 0xffffff)}}); // whole numbers of a float
    }
}

static void add_vertices(const scene_object &object, uint32_t number, uint32_t material, float side,
                         batch *batch, batch_object *about)
{
    const scene_place &place = object.place;
    for (const scene_vertex &v : object.mesh->vertices) {
        const scene_vec at = scene_put(place, v.position), normal = scene_turn(place, v.normal) * side;
        widen(&about->low, &about->high, at);
        const uint32_t row = v.material < object.materials->size() ? v.material : 0;
        batch->vertices.push_back(
            {{at.x, at.y, at.z}, {normal.x, normal.y, normal.z}, {v.u, v.v}, material + row, number + 1});
    }
}

// The shadow map is drawn from the sides that lamps do not see; a sheet has two.
static void cast(batch *batch, uint32_t front, uint32_t a, uint32_t b, uint32_t c, bool two_sided)
{
    batch->casts.insert(batch->casts.end(), {front + a, front + b, front + c});
    if (two_sided)
        batch->casts.insert(batch->casts.end(), {front + a, front + c, front + b});
}

// `front`: where the object's vertices begin; `back`: those with turned normals, or 0.
static void add_triangles(const scene_object &object, bool shades_cast, uint32_t front, uint32_t back,
                          batch *batch)
{
    const std::vector<uint32_t> &indices = object.mesh->indices;
    const size_t vertices = object.mesh->vertices.size();
    for (size_t i = 0; i + 2 < indices.size(); i += 3) {
        const uint32_t a = indices[i], b = indices[i + 1], c = indices[i + 2];
        if (a >= vertices || b >= vertices || c >= vertices)
            continue;
        const uint32_t material = batch->vertices[front + a].material;
        std::vector<uint32_t> &sorted = batch->sorted[batch->pattern[material]];
        sorted.insert(sorted.end(), {front + a, front + b, front + c});
        if (back)
            sorted.insert(sorted.end(), {back + a, back + c, back + b});
        if (object.shadow && (shades_cast || batch->materials[material].ways.z < 0.05f))
            cast(batch, front, a, b, c, object.two_sided);
    }
}

static float farthest(const scene_snapshot *snapshot, const scene_object &object)
{
    // Of the mesh's own box, in the object's place: near enough for an order of drawing.
    float most = 0;
    const std::vector<scene_vertex> &vertices = object.mesh->vertices;
    const size_t step = vertices.size() / 16 + 1;
    for (size_t i = 0; i < vertices.size(); i += step) {
        const scene_vec d = scene_put(object.place, vertices[i].position) - snapshot->view.position;
        most = std::max(most, scene_dot(d, d));
    }
    return most;
}

static void sort_objects(const scene_snapshot *snapshot, batch *batch)
{
    std::vector<float> &distance = batch->distance;
    distance.clear();
    batch->order.clear();
    for (const scene_object &object : snapshot->objects) {
        const bool whole = object.mesh && object.materials && !object.materials->empty();
        if (whole)
            batch->order.push_back(static_cast<uint32_t>(distance.size()));
        distance.push_back(whole ? farthest(snapshot, object) : 0);
    }
    std::stable_sort(batch->order.begin(), batch->order.end(),
                     [&](uint32_t a, uint32_t b) { return distance[a] < distance[b]; });
}

int batch_fill(const scene_snapshot *snapshot, bool shades_cast, batch *batch)
{
    batch->vertices.clear();
    batch->materials.clear();
    batch->pattern.clear();
    batch->casts.clear();
    batch->objects.assign(snapshot->objects.size(), {});
    for (std::vector<uint32_t> &sorted : batch->sorted)
        sorted.clear();
    batch->low = {1e9f, 1e9f, 1e9f};
    batch->high = {-1e9f, -1e9f, -1e9f};

    if (snapshot->objects.size() > SHADER_OBJECTS_MAX) {
        desk_say("the scene has %zu objects, more than the %d that can be drawn", snapshot->objects.size(),
                 SHADER_OBJECTS_MAX);
        return -1;
    }
    sort_objects(snapshot, batch);
    for (uint32_t number : batch->order) {
        const scene_object &object = snapshot->objects[number];
        batch_object &about = batch->objects[number];
        about = {{1e9f, 1e9f, 1e9f}, {-1e9f, -1e9f, -1e9f}};
        const uint32_t material = static_cast<uint32_t>(batch->materials.size());
        add_materials(*object.materials, batch);
        const size_t points = batch->vertices.size() + 2 * object.mesh->vertices.size();
        if (batch->materials.size() > SHADER_MATERIALS_MAX || points > UINT32_MAX) {
            desk_say("the scene has too many %s to be drawn", points > UINT32_MAX ? "points" : "materials");
            return -1;
        }
        const uint32_t front = static_cast<uint32_t>(batch->vertices.size());
        add_vertices(object, number, material, 1, batch, &about);
        const uint32_t back = object.two_sided ? static_cast<uint32_t>(batch->vertices.size()) : 0;
        if (object.two_sided)
            add_vertices(object, number, material, -1, batch, &about);
        add_triangles(object, shades_cast, front, back, batch);
        if (object.actor == 0 && !object.mesh->vertices.empty()) {
            widen(&batch->low, &batch->high, about.low);
            widen(&batch->low, &batch->high, about.high);
        }
    }
    return 0;
}

void batch_look(batch *batch, const float m[16], int width, int height)
{
    const float half_width = static_cast<float>(width) / 2, half_height = static_cast<float>(height) / 2;
    batch->seen.resize(batch->vertices.size());
    for (size_t i = 0; i < batch->vertices.size(); i++) {
        const float *p = batch->vertices[i].position;
        const float x = m[0] * p[0] + m[4] * p[1] + m[8] * p[2] + m[12];
        const float y = m[1] * p[0] + m[5] * p[1] + m[9] * p[2] + m[13];
        const float w = m[3] * p[0] + m[7] * p[1] + m[11] * p[2] + m[15];
        const float scale = w > 0 ? 1 / w : 0;
        batch->seen[i] = {(x * scale + 1) * half_width, (y * scale + 1) * half_height, w};
    }
}

// Whether the middle of a texel lies between two coordinates. The rasteriser moves corners to its own grid first.
static bool holds_middle(float low, float high)
{
    const float grid = 1 / 64.f;
    return floorf(high - 0.5f + grid) >= ceilf(low - 0.5f - grid);
}

void batch_visible(const batch *batch, const std::vector<uint32_t> &triangles, int width, int height,
                   bool fronts, std::vector<uint32_t> *indices)
{
    const float near = 0.05f, right = static_cast<float>(width), upper = static_cast<float>(height);
    for (size_t i = 0; i + 2 < triangles.size(); i += 3) {
        const auto &a = batch->seen[triangles[i]], &b = batch->seen[triangles[i + 1]],
                   &c = batch->seen[triangles[i + 2]];
        if (a.ahead <= 0 && b.ahead <= 0 && c.ahead <= 0)
            continue;
        if (a.ahead > near && b.ahead > near && c.ahead > near) {
            const float area = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
            if (fronts ? area <= 0 : area >= 0)
                continue;
            const float low_x = std::min(a.x, std::min(b.x, c.x)), high_x = std::max(a.x, std::max(b.x, c.x));
            const float low_y = std::min(a.y, std::min(b.y, c.y)), high_y = std::max(a.y, std::max(b.y, c.y));
            if (high_x < 0 || low_x > right || high_y < 0 || low_y > upper || !holds_middle(low_x, high_x) ||
                !holds_middle(low_y, high_y))
                continue;
        } // else it reaches past the lens: left to the graphics library
        indices->insert(indices->end(), {triangles[i], triangles[i + 1], triangles[i + 2]});
    }
}
