// Rooms: made from their plans, asked for places, and shown at a moment.
#include "room_plan.h"

#include <algorithm>
#include <string.h>

scene_place room_wall(scene_vec size, int wall)
{
    switch (wall) {
    case 0:
        return {{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}, {size.x, 0, 0}};
    case 1:
        return {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}, {size.x, size.y, 0}};
    case 2:
        return {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, size.y, 0}};
    default:
        return {{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {0, 0, 0}};
    }
}

scene_place room_item_place(scene_vec size, const furniture_item *item)
{
    if (item->wall == ON_FLOOR)
        return scene_standing({item->a, item->b, item->z}, item->heading);
    const scene_place wall = room_wall(size, item->wall);
    return {wall.x * -1, wall.y * -1, wall.z, scene_put(wall, {item->a, -item->b - item->d / 2, item->z})};
}

void room_own_materials(scene_mesh *mesh, const std::vector<scene_material> &materials,
                        std::vector<scene_material> *own)
{
    std::vector<uint32_t> number(materials.size(), UINT32_MAX);
    own->clear();
    for (scene_vertex &vertex : mesh->vertices) {
        uint32_t &at = number[vertex.material];
        if (at == UINT32_MAX) {
            at = static_cast<uint32_t>(own->size());
            own->push_back(materials[vertex.material]);
        }
        vertex.material = at;
    }
}

// Surface and mean reflectance, for the light that goes round in the room.
static void measure(room *room)
{
    float sum[BANDS] = {0, 0, 0, 0};
    room->area = 0;
    const std::vector<scene_vertex> &v = room->solid.vertices;
    for (size_t i = 0; i + 2 < room->solid.indices.size(); i += 3) {
        const scene_vertex &a = v[room->solid.indices[i]], &b = v[room->solid.indices[i + 1]],
                           &c = v[room->solid.indices[i + 2]];
        const float area = scene_length(scene_cross(b.position - a.position, c.position - a.position)) / 2;
        const scene_material &material = room->solid_materials[a.material];
        for (int band = 0; band < BANDS; band++)
            sum[band] += area * (material.first[band] + material.second[band]) / 2;
        room->area += area;
    }
    // Light leaves by the window's panes.
    room->area += room->plan->window.width * room->plan->window.height;
    for (int band = 0; band < BANDS; band++)
        room->mean[band] = sum[band] / room->area;
}

static void furnish(room *room, shape_maker *solid, shape_maker *leaves)
{
    const room_plan *plan = room->plan;
    std::vector<furniture_lit> lit;
    furniture_work work = {*solid, *leaves, {room->seed * UINT64_C(7919) + 17}, &lit};
    for (int i = 0; i < plan->item_count; i++) {
        const furniture_item *item = &plan->items[i];
        work.solid.place = work.leaves.place = room_item_place(plan->size, item);
        furniture_build(&work, item);
        if (furniture_blocks(item))
            room->footprints.push_back({work.solid.place, item->w / 2, item->d / 2});
    }
    for (furniture_lit &one : lit) {
        room_part part = {std::move(one), {}, {}};
        const bool screen = part.lit.light == LIT_TV || part.lit.light == LIT_MONITOR;
        scene_material off = room->materials[screen ? STUFF_GLASS_DARK : STUFF_SHADE];
        scene_material on = room->materials[screen ? STUFF_SCREEN_ON : STUFF_SHADE];
        // Screens of 110 cd/m2 and 90; a cloth shade around a bulb glows with some 1500, the more in
        // infrared.
        const float luminance[4] = {1500, 110, 90, 0};
        const float incandescent[BANDS] = {1.99f, .79f, .19f, 5.4f}, white[BANDS] = {.92f, 1.0f, 1.25f, .01f};
        for (int band = 0; band < BANDS; band++)
            on.emission[band] = luminance[part.lit.light] * (screen ? white : incandescent)[band];
        part.off.push_back(off);
        part.on.push_back(on);
        room->parts.push_back(std::move(part));
    }
}

room *room_make(const char *name, uint32_t seed)
{
    int count;
    const room_plan *plans = room_plans(&count);
    int index = 0;
    while (index < count && strcmp(plans[index].name, name) != 0)
        index++;
    if (index == count)
        return nullptr;
    room *made = new room{};
    made->plan = &plans[index];
    made->seed = seed;
    for (int i = 0; i < STUFFS; i++)
        made->materials.push_back(stuff_material(static_cast<stuff>(i), seed));
    shape_maker solid = {&made->solid, {}, 0}, leaves = {&made->leaves, {}, 0};
    room_build_shell(made, &solid);
    furnish(made, &solid, &leaves);
    room_build_door(made);
    room_build_corridor(made);
    room_build_lamps(made);
    room_own_materials(&made->solid, made->materials, &made->solid_materials);
    room_own_materials(&made->leaves, made->materials, &made->leaf_materials);
    room_own_materials(&made->door, made->materials, &made->door_materials);
    made->curtain_materials.push_back(made->materials[STUFF_CURTAIN]);
    made->curtain_made[0] = -1;
    measure(made);
    return made;
}

void room_free(room *room)
{
    delete room;
}

const char *room_name(int index)
{
    int count;
    const room_plan *plans = room_plans(&count);
    return index >= 0 && index < count ? plans[index].name : nullptr;
}

scene_vec room_size(const room *room)
{
    return room->plan->size;
}

bool room_find(const room *room, const char *name, room_anchor *anchor)
{
    for (int i = 0; i < room->plan->anchor_count; i++) {
        const plan_anchor *one = &room->plan->anchors[i];
        if (strcmp(one->name, name) != 0)
            continue;
        anchor->position = {one->x, one->y, one->z};
        anchor->heading = one->heading;
        anchor->tilt = one->tilt;
        return true;
    }
    return false;
}

const char *room_anchor_name(const room *room, int index)
{
    return index >= 0 && index < room->plan->anchor_count ? room->plan->anchors[index].name : nullptr;
}

static bool inside(float x, float y, float low_x, float low_y, float high_x, float high_y)
{
    return x >= low_x && x <= high_x && y >= low_y && y <= high_y;
}

bool room_free_spot(const room *room, float x, float y, float radius)
{
    const room_plan *plan = room->plan;
    const scene_place wall = room_wall(plan->size, plan->door.wall);
    const scene_vec from = scene_vec{x, y, 0} - wall.origin;
    // In the door wall's own axes, y outwards.
    const float along = scene_dot(from, wall.x) - plan->door.along, out = scene_dot(from, wall.y);
    const float half = plan->door.width / 2 - radius;
    const bool in_room = inside(x, y, radius, radius, plan->size.x - radius, plan->size.y - radius);
    const bool in_doorway = inside(along, out, -half, -radius, half, WALL_THICK + radius);
    const float side = CORRIDOR_WIDE / 2 - radius;
    const bool in_corridor =
        inside(along, out, -side, WALL_THICK + radius, side, WALL_THICK + CORRIDOR_DEEP - radius);
    if (!in_room && !in_doorway && !in_corridor)
        return false;
    for (const room_footprint &one : room->footprints) {
        const scene_vec at = scene_vec{x, y, 0} - one.place.origin;
        const float dx = std::max(0.f, fabsf(scene_dot(at, one.place.x)) - one.w),
                    dy = std::max(0.f, fabsf(scene_dot(at, one.place.y)) - one.d);
        if (dx * dx + dy * dy < radius * radius || (dx == 0 && dy == 0))
            return false;
    }
    return true;
}

static scene_object object(const scene_mesh *mesh, const std::vector<scene_material> *materials)
{
    scene_object made;
    made.mesh = mesh;
    made.materials = materials;
    return made;
}

void room_snapshot(room *room, const room_state *state, scene_snapshot *snapshot)
{
    std::vector<scene_object> *objects = &snapshot->objects;
    objects->push_back(object(&room->solid, &room->solid_materials));
    if (!room->leaves.indices.empty()) {
        objects->push_back(object(&room->leaves, &room->leaf_materials));
        objects->back().two_sided = true;
    }
    objects->push_back(object(&room->door, &room->door_materials));
    objects->back().place = room_door_place(room, state->door);
    objects->push_back(
        object(&room->corridor, state->corridor_lamp ? &room->corridor_on : &room->corridor_off));
    objects->back().shadow = false;
    int lamp = 0;
    for (const room_part &part : room->parts) {
        const furniture_light light = part.lit.light;
        // Nobody works at a screen that nobody switched on: monitors follow the table lamp.
        const bool on = light == LIT_TV             ? state->tv
                        : light == LIT_CEILING_LAMP ? state->ceiling_lamp
                                                    : state->table_lamp;
        objects->push_back(object(&part.lit.mesh, on ? &part.on : &part.off));
        objects->back().shadow = false; // a bulb shines out of its own shade
        objects->back().two_sided = light == LIT_TABLE_LAMP || light == LIT_CEILING_LAMP;
        if (light == LIT_CEILING_LAMP)
            objects->back().place = room_lamp_place(room, lamp++, state->lamp_swing);
    }
    const double time = isfinite(state->time) ? fmod(state->time, 3600.) : 0;
    room_make_curtain(room, state->curtain, state->wind, static_cast<float>(time));
    objects->push_back(object(&room->curtain, &room->curtain_materials));
    objects->back().two_sided = true;
    objects->back().moves = state->wind > 0;
    room_lights(room, state, snapshot);
}
