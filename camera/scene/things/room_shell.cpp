// What a room has before it is furnished: walls with holes, window, door, the corridor behind, ceiling lamps,
// curtain.
#include "room_plan.h"

#include <algorithm>

namespace
{
struct hole {
    float left, right, low, high;
};

// A wall with holes: upright strips between the holes' sides, and what is under and over each hole.
void wall_with_holes(shape_maker *m, float length, float height, const hole *holes, int count)
{
    const auto piece = [m](float left, float right, float low, float high) {
        if (right - left > 1e-4f && high - low > 1e-4f)
            shape_quad(m, {left, 0, low}, {right, 0, low}, {right, 0, high}, {left, 0, high});
    };
    float done = 0;
    for (int i = 0; i < count; i++) { // left to right
        piece(done, holes[i].left, 0, height);
        piece(holes[i].left, holes[i].right, 0, holes[i].low);
        piece(holes[i].left, holes[i].right, holes[i].high, height);
        done = holes[i].right;
    }
    piece(done, length, 0, height);
}

hole opening(const plan_opening *o)
{
    return {o->along - o->width / 2, o->along + o->width / 2, o->sill, o->sill + o->height};
}

// The wall's thickness, seen in a hole of it.
void reveal(shape_maker *m, const hole *h)
{
    const float out = WALL_THICK;
    shape_quad(m, {h->left, 0, h->low}, {h->left, 0, h->high}, {h->left, out, h->high},
               {h->left, out, h->low});
    shape_quad(m, {h->right, out, h->low}, {h->right, out, h->high}, {h->right, 0, h->high},
               {h->right, 0, h->low});
    shape_quad(m, {h->left, 0, h->high}, {h->right, 0, h->high}, {h->right, out, h->high},
               {h->left, out, h->high});
    shape_quad(m, {h->left, out, h->low}, {h->right, out, h->low}, {h->right, 0, h->low},
               {h->left, 0, h->low});
}

// Four boards around an opening, `wide`, from `from` to `to` across the wall.
void frame(shape_maker *m, const hole *h, float wide, float from, float to, bool bottom)
{
    shape_box(m, {h->left, from, h->low}, {h->left + wide, to, h->high});
    shape_box(m, {h->right - wide, from, h->low}, {h->right, to, h->high});
    shape_box(m, {h->left, from, h->high - wide}, {h->right, to, h->high});
    if (bottom)
        shape_box(m, {h->left, from, h->low}, {h->right, to, h->low + wide});
}

void build_window(shape_maker *m, const plan_opening *window)
{
    const hole h = opening(window);
    const float out = WALL_THICK;
    m->material = STUFF_WHITE_LACQUER;
    reveal(m, &h);
    frame(m, &h, 0.055f, out - 0.07f, out - 0.01f, true);
    const float middle = (h.left + h.right) / 2;
    shape_box(m, {middle - 0.045f, out - 0.075f, h.low}, {middle + 0.045f, out - 0.01f, h.high});
    if (window->width > 1.2f) // the casements' own frames
        for (int side = 0; side < 2; side++) {
            const hole casement = {side ? middle + 0.04f : h.left + 0.05f,
                                   side ? h.right - 0.05f : middle - 0.04f, h.low + 0.05f, h.high - 0.05f};
            frame(m, &casement, 0.04f, out - 0.06f, out - 0.025f, true);
        }
    shape_box(m, {h.left - 0.05f, -0.09f, h.low - 0.03f}, {h.right + 0.05f, out - 0.06f, h.low}, 0.008f);
    m->material = STUFF_METAL;
    shape_box(m, {middle + 0.01f, out - 0.11f, h.low + 0.5f}, {middle + 0.03f, out - 0.075f, h.low + 0.64f});
    shape_rod(m, {h.left - 0.3f, -0.085f, h.high + 0.11f}, {h.right + 0.3f, -0.085f, h.high + 0.11f}, 0.013f,
              6);
}
} // namespace

void room_build_shell(room *room, shape_maker *m)
{
    const room_plan *plan = room->plan;
    const scene_vec size = plan->size;
    m->place = {};
    m->material = plan->floor;
    shape_quad(m, {0, 0, 0}, {size.x, 0, 0}, {size.x, size.y, 0}, {0, size.y, 0});
    m->material = STUFF_CEILING;
    shape_quad(m, {0, size.y, size.z}, {size.x, size.y, size.z}, {size.x, 0, size.z}, {0, 0, size.z});
    for (int wall = 0; wall < 4; wall++) {
        m->place = room_wall(size, wall);
        const float length = wall % 2 == 0 ? size.x : size.y;
        hole holes[2];
        int count = 0;
        if (plan->door.wall == wall)
            holes[count++] = opening(&plan->door);
        if (plan->window.wall == wall)
            holes[count++] = opening(&plan->window);
        if (count == 2 && holes[1].left < holes[0].left)
            std::swap(holes[0], holes[1]);
        m->material = wall == plan->other_wall ? STUFF_WALL_OTHER : STUFF_WALL;
        wall_with_holes(m, length, size.z, holes, count);
        m->material = STUFF_SKIRTING;
        const float gap = 0.07f; // the door's frame stands on the floor
        float from = 0;
        if (plan->door.wall == wall) {
            const hole door = opening(&plan->door);
            shape_box(m, {0, -0.014f, 0}, {door.left - gap, 0, 0.075f});
            from = door.right + gap;
        }
        shape_box(m, {from, -0.014f, 0}, {length, 0, 0.075f});
    }
    m->place = room_wall(size, plan->window.wall);
    build_window(m, &plan->window);
    m->place = room_wall(size, plan->door.wall);
    const hole door = opening(&plan->door);
    m->material = STUFF_WHITE_LACQUER;
    reveal(m, &door);
    const hole around = {door.left - 0.07f, door.right + 0.07f, 0, door.high + 0.07f};
    frame(m, &around, 0.075f, -0.018f, 0.01f, false);
}

// In its own axes: hinges at the origin, the leaf along x, y out of the room.
void room_build_door(room *room)
{
    const plan_opening *door = &room->plan->door;
    shape_maker maker = {&room->door, {}, 0}, *m = &maker;
    const float w = door->width - 0.006f, h = door->height - 0.01f;
    m->material = STUFF_DOOR;
    shape_box(m, {0.003f, 0, 0.006f}, {w, 0.04f, h}, 0.004f);
    for (int side = 0; side < 2; side++) { // panels and handles on both sides
        const float y = side ? 0.036f : -0.008f, out = side ? 0.04f : 0;
        m->material = STUFF_DOOR;
        shape_box(m, {0.12f, y, 0.15f}, {w - 0.12f, y + 0.012f, 0.85f}, 0.005f);
        shape_box(m, {0.12f, y, 1.1f}, {w - 0.12f, y + 0.012f, h - 0.15f}, 0.005f);
        m->material = STUFF_METAL;
        const float s = side ? 1.f : -1.f;
        shape_box(m, {w - 0.075f, std::min(out, out + s * 0.008f), 0.95f},
                  {w - 0.035f, std::max(out, out + s * 0.008f), 1.13f});
        shape_rod(m, {w - 0.055f, out, 1.05f}, {w - 0.055f, out + s * 0.055f, 1.05f}, 0.009f, 5);
        shape_rod(m, {w - 0.05f, out + s * 0.05f, 1.05f}, {w - 0.17f, out + s * 0.05f, 1.05f}, 0.009f, 5);
    }
}

scene_place room_door_place(const room *room, float degrees)
{
    const plan_opening *door = &room->plan->door;
    const scene_place wall = room_wall(room->plan->size, door->wall);
    const float a = std::max(0.f, std::min(100.f, degrees)) * static_cast<float>(M_PI / 180);
    const float c = cosf(a), s = sinf(a);
    // Hinges on the left, flush with the corridor's side, so that it opens out of the room.
    return {wall.x * c + wall.y * s, wall.y * c - wall.x * s, wall.z,
            scene_put(wall, {door->along - door->width / 2, WALL_THICK - 0.04f, 0})};
}

void room_build_corridor(room *room)
{
    const plan_opening *door = &room->plan->door;
    shape_maker maker = {&room->corridor, room_wall(room->plan->size, door->wall), 0}, *m = &maker;
    const float left = door->along - CORRIDOR_WIDE / 2, right = door->along + CORRIDOR_WIDE / 2,
                near = WALL_THICK, far = WALL_THICK + CORRIDOR_DEEP, high = 2.45f;
    std::vector<scene_material> &all = room->materials;
    m->material = STUFF_OAK_FLOOR;
    shape_quad(m, {left, 0, 0.001f}, {right, 0, 0.001f}, {right, far, 0.001f}, {left, far, 0.001f});
    m->material = STUFF_CEILING;
    shape_quad(m, {left, far, high}, {right, far, high}, {right, near, high}, {left, near, high});
    m->material = STUFF_WALL;
    shape_quad(m, {left, far, 0}, {right, far, 0}, {right, far, high}, {left, far, high});
    shape_quad(m, {left, near, 0}, {left, far, 0}, {left, far, high}, {left, near, high});
    shape_quad(m, {right, far, 0}, {right, near, 0}, {right, near, high}, {right, far, high});
    m->material = STUFF_SKIRTING;
    shape_box(m, {left, far - 0.014f, 0}, {right, far, 0.08f});
    m->material = STUFF_DARK_WOOD; // something to see there
    shape_box(m, {door->along - 0.3f, far - 0.3f, 0}, {door->along + 0.4f, far, 0.8f}, 0.01f);
    m->material = STUFF_PICTURE_A;
    shape_picture(m, {door->along - 0.2f, far - 0.01f, 1.3f}, {door->along + 0.3f, far - 0.01f, 1.3f},
                  {door->along + 0.3f, far - 0.01f, 1.7f}, {door->along - 0.2f, far - 0.01f, 1.7f});
    room_own_materials(&room->corridor, all, &room->corridor_off);
    room->corridor_on = room->corridor_off;
    // Its lamp is out of sight: what it lights gives 100 lux back, by each material's own reflectance.
    const float led[BANDS] = {1.44f, .92f, .53f, .02f};
    for (scene_material &material : room->corridor_on)
        for (int band = 0; band < BANDS; band++)
            material.emission[band] = material.first[band] * led[band] * 100 / static_cast<float>(M_PI);
}

// Ceiling lamps, each in axes of its own that hang from the ceiling at the origin, z up.
void room_build_lamps(room *room)
{
    const room_plan *plan = room->plan;
    for (int i = 0; i < plan->lamp_count; i++) {
        const plan_lamp *lamp = &plan->lamps[i];
        room_part part = {};
        part.lit.light = LIT_CEILING_LAMP;
        part.lit.place = {lamp->x, lamp->y, plan->size.z - lamp->drop};
        part.lit.ahead = {0, 0, -1};
        shape_maker maker = {&part.lit.mesh, {}, 0}, *m = &maker;
        const float z = -lamp->drop;
        float luminance;
        switch (lamp->style) {
        case LAMP_PENDANT: {
            part.lit.size[0] = part.lit.size[1] = 0.34f;
            luminance = 2500;
            const shape_ring globe[6] = {{0.0f, z - 0.14f},   {0.1f, z - 0.12f}, {0.165f, z - 0.03f},
                                         {0.165f, z + 0.03f}, {0.1f, z + 0.12f}, {0.02f, z + 0.15f}};
            shape_turned(m, {0, 0, 0}, globe, 6, 18, true);
            m->material = 1;
            shape_rod(m, {0, 0, z + 0.14f}, {0, 0, -0.01f}, 0.005f, 4);
            shape_cylinder(m, {0, 0, -0.03f}, 0.05f, 0.03f, 10);
            break;
        }
        case LAMP_DISC: {
            part.lit.size[0] = part.lit.size[1] = 0.4f;
            luminance = 3500;
            const shape_ring disc[4] = {{0, z}, {0.16f, z + 0.005f}, {0.2f, z + 0.03f}, {0.2f, -0.005f}};
            shape_turned(m, {0, 0, 0}, disc, 4, 20, true);
            break;
        }
        default:
            part.lit.size[0] = 1.2f;
            part.lit.size[1] = 0.3f;
            luminance = 4000;
            shape_box(m, {-0.6f, -0.15f, z}, {0.6f, 0.15f, z + 0.02f}, 0.004f);
            m->material = 1;
            shape_box(m, {-0.62f, -0.17f, z + 0.01f}, {0.62f, 0.17f, z + 0.05f}, 0.01f);
            for (int side = -1; side <= 1; side += 2)
                shape_rod(m, {0.5f * static_cast<float>(side), 0, z + 0.04f},
                          {0.5f * static_cast<float>(side), 0, 0}, 0.004f, 4);
        }
        part.off = {room->materials[STUFF_GLOW], room->materials[STUFF_WHITE_PLASTIC]};
        part.on = part.off;
        const float led[BANDS] = {1.44f, .92f, .53f, .02f};
        for (int band = 0; band < BANDS; band++)
            part.on[0].emission[band] = led[band] * luminance;
        room->parts.push_back(std::move(part));
    }
}

scene_place room_lamp_place(const room *room, int index, float swing)
{
    const plan_lamp *lamp = &room->plan->lamps[index];
    scene_place place;
    place.origin = {lamp->x, lamp->y, room->plan->size.z};
    if (lamp->style == LAMP_PENDANT && swing > -90 && swing < 90) {
        const float a = swing * static_cast<float>(M_PI / 180), c = cosf(a), s = sinf(a);
        place.x = {c, 0, s};
        place.z = {-s, 0, c};
    }
    return place;
}

// Two halves on a rail, drawn towards the middle, in folds. Wind pushes the free end into the room, more the
// further down, and travels along the folds.
void room_make_curtain(room *room, float covered, float wind, float time)
{
    covered = covered >= 0 ? std::min(1.f, covered) : 0;
    wind = wind >= 0 ? std::min(5.f, wind) : 0;
    if (wind == 0)
        time = 0;
    const float wanted[3] = {covered, wind, time};
    if (std::equal(wanted, wanted + 3, room->curtain_made))
        return;
    std::copy(wanted, wanted + 3, room->curtain_made);
    room->curtain.vertices.clear();
    room->curtain.indices.clear();
    const plan_opening *window = &room->plan->window;
    const hole h = opening(window);
    shape_maker maker = {&room->curtain, room_wall(room->plan->size, window->wall), 0}, *m = &maker;
    enum { ACROSS = 26, DOWN = 6 };
    const float top = h.high + 0.1f, bottom = std::max(0.03f, h.low - 0.14f);
    const float spread = window->width / 2 * covered + 0.22f; // of one half, from beside the window
    const float depth = 0.05f - 0.03f * covered;              // folds flatten when drawn
    for (int side = 0; side < 2; side++) {
        const float from = side ? h.right + 0.2f : h.left - 0.2f, way = side ? -spread : spread;
        scene_vec net[DOWN + 1][ACROSS + 1];
        for (int j = 0; j <= DOWN; j++) {
            const float t = static_cast<float>(j) / DOWN;
            for (int i = 0; i <= ACROSS; i++) {
                const float s = static_cast<float>(i) / ACROSS;
                const float fold =
                    depth * (0.8f + 0.4f * t) * sinf(s * 5.5f * 2 * static_cast<float>(M_PI) + 1.3f * t);
                const float gust = 0.6f + 0.25f * sinf(time * 0.9f) + 0.15f * sinf(time * 2.3f + 1);
                const float blown =
                    std::min(0.5f, 0.13f * wind) * t * t *
                    (gust + 0.5f * sinf(time * 3.1f - 2.5f * s - 2 * t + static_cast<float>(side)));
                const float swing = 0.04f * std::min(2.f, wind) * t * t * s *
                                    sinf(time * 1.7f + 2.f * static_cast<float>(side));
                net[j][i] = {from + way * s * (1 + 0.04f * t) + swing,
                             -0.085f + fold - std::max(-0.02f, blown) * (0.3f + 0.7f * s),
                             top + (bottom - top) * t + 0.25f * blown * blown};
            }
        }
        const uint32_t first = static_cast<uint32_t>(m->mesh->vertices.size());
        for (int j = 0; j <= DOWN; j++)
            for (int i = 0; i <= ACROSS; i++) {
                const scene_vec du = net[j][std::min<int>(i + 1, ACROSS)] - net[j][std::max(i - 1, 0)],
                                dv = net[std::min<int>(j + 1, DOWN)][i] - net[std::max(j - 1, 0)][i];
                const scene_vec n = scene_unit(scene_cross(dv, du));
                shape_vertex(m, net[j][i], side ? n * -1 : n,
                             static_cast<float>(i) / ACROSS * window->width * 0.7f, top - net[j][i].z);
            }
        for (int j = 0; j < DOWN; j++)
            for (int i = 0; i < ACROSS; i++) {
                const uint32_t a = first + static_cast<uint32_t>(j * (ACROSS + 1) + i), b = a + 1,
                               d = a + ACROSS + 1, c = d + 1;
                const uint32_t inward[6] = {a, d, c, a, c, b}, mirrored[6] = {a, c, d, a, b, c};
                const uint32_t *two = side ? mirrored : inward;
                m->mesh->indices.insert(m->mesh->indices.end(), two, two + 6);
            }
    }
}
