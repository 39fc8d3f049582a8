// A snapshot's triangles, put into the world's coordinates and sorted by pattern.
#include "batch.h"

#include <algorithm>

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

static void add_materials(const std::vector<scene_material> &materials, batch *batch)
{
    for (const scene_material &m : materials) {
        const bool known = m.pattern >= 0 && m.pattern < PATTERNS;
        batch->pattern.push_back(known ? m.pattern : PATTERN_PLAIN);
        batch->materials.push_back({bands_of(m.first),
                                    bands_of(m.second),
                                    bands_of(m.emission),
                                    {std::max(m.size, 1e-4f), m.gloss, m.through,
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
        batch->vertices.push_back({{at.x, at.y, at.z},
                                   {normal.x, normal.y, normal.z},
                                   {v.u, v.v},
                                   material + row,
                                   number,
                                   object.actor});
    }
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
            batch->casts.insert(batch->casts.end(), {front + a, front + b, front + c});
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
    static std::vector<float> distance;
    distance.clear();
    batch->order.clear();
    for (const scene_object &object : snapshot->objects) {
        const bool whole = object.mesh && object.materials && !object.materials->empty();
        if (whole)
            batch->order.push_back(static_cast<uint32_t>(distance.size()));
        distance.push_back(whole ? farthest(snapshot, object) : 0);
    }
    std::stable_sort(batch->order.begin(), batch->order.end(),
                     [](uint32_t a, uint32_t b) { return distance[a] < distance[b]; });
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

    sort_objects(snapshot, batch);
    for (uint32_t number : batch->order) {
        const scene_object &object = snapshot->objects[number];
        if (batch->vertices.size() + 2 * object.mesh->vertices.size() > UINT32_MAX / 2) {
            desk_say("the scene has too many points to be drawn");
            return -1;
        }
        batch_object &about = batch->objects[number];
        about = {{1e9f, 1e9f, 1e9f},
                 {-1e9f, -1e9f, -1e9f},
                 object.actor,
                 object.shadow,
                 object.moves,
                 batch->casts.size(),
                 0};
        const uint32_t material = static_cast<uint32_t>(batch->materials.size());
        add_materials(*object.materials, batch);
        const uint32_t front = static_cast<uint32_t>(batch->vertices.size());
        add_vertices(object, number, material, 1, batch, &about);
        const uint32_t back = object.two_sided ? static_cast<uint32_t>(batch->vertices.size()) : 0;
        if (object.two_sided)
            add_vertices(object, number, material, -1, batch, &about);
        add_triangles(object, shades_cast, front, back, batch);
        about.count = batch->casts.size() - about.first;
        if (object.actor == 0 && !object.mesh->vertices.empty()) {
            widen(&batch->low, &batch->high, about.low);
            widen(&batch->low, &batch->high, about.high);
        }
    }
    batch->indices.clear();
    for (int i = 0; i < PATTERNS; i++) {
        batch->first[i] = batch->indices.size();
        batch->count[i] = batch->sorted[i].size();
        batch->indices.insert(batch->indices.end(), batch->sorted[i].begin(), batch->sorted[i].end());
    }
    return 0;
}
