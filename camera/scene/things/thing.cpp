// Things by kind: made from a seed, posed at a moment.
#include "thing.h"

#include <algorithm>

namespace
{
struct kind_row {
    const char *name;
    thing_dress *dress;
    thing_shape *shape;
};
// In the order of thing_kind.
const kind_row kinds[] = {
    {"cat", cat_dress, pet_shape},          {"dog", dog_dress, pet_shape},
    {"vacuum", vacuum_dress, vacuum_shape}, {"fan", fan_dress, fan_shape},
    {"ball", ball_dress, ball_shape},       {"insect", insect_dress, insect_shape},
    {"coat", coat_dress, coat_shape},       {"balloon", balloon_dress, balloon_shape},
    {"box", box_dress, box_shape},          {"shadow", shadow_dress, shadow_shape},
};
static_assert(sizeof kinds / sizeof kinds[0] == THING_KINDS, "one row for each kind");

float bounded(float value, float low, float high)
{
    return isfinite(value) ? std::max(low, std::min(high, value)) : 0;
}
} // namespace

const char *thing_kind_name(int kind)
{
    return kind >= 0 && kind < THING_KINDS ? kinds[kind].name : nullptr;
}

scene_material thing_plain(float red, float green, float blue, float infrared, float gloss)
{
    scene_material material;
    const float all[BANDS] = {red, green, blue, infrared};
    std::copy(all, all + BANDS, material.first);
    std::copy(all, all + BANDS, material.second);
    material.gloss = gloss;
    return material;
}

thing *thing_make(thing_kind kind, uint32_t seed)
{
    if (kind < 0 || kind >= THING_KINDS)
        return nullptr;
    thing *made = new thing{};
    made->kind = kind;
    made->seed = seed;
    scene_random random = {seed * UINT64_C(104729) + static_cast<uint64_t>(kind)};
    made->size = scene_uniform(&random, 0.88f, 1.12f);
    made->tail = scene_uniform(&random, -1, 1);
    made->legs = scene_uniform(&random, -1, 1);
    kinds[kind].dress(made, &random);
    return made;
}

void thing_free(thing *thing)
{
    delete thing;
}

const std::vector<scene_material> *thing_materials(const thing *thing)
{
    return &thing->materials;
}

void thing_pose(const thing *thing, const thing_moment *moment, scene_mesh *mesh)
{
    mesh->vertices.clear();
    mesh->indices.clear();
    thing_moment sane;
    sane.position = {bounded(moment->position.x, -1000, 1000), bounded(moment->position.y, -1000, 1000),
                     bounded(moment->position.z, -1000, 1000)};
    sane.heading = fmodf(bounded(moment->heading, -1e6f, 1e6f), 360);
    sane.way = bounded(moment->way, -1e5f, 1e5f);
    sane.speed = bounded(moment->speed, 0, 20);
    sane.time = bounded(moment->time, -1e6f, 1e6f);
    shape_maker maker = {mesh, scene_standing(sane.position, sane.heading), 0};
    kinds[thing->kind].shape(thing, &sane, &maker);
}
