// The room made by hand.
#include "test_room.h"

scene_material test_material(float red, float green, float blue, float infrared)
{
    scene_material material;
    const float bands[BANDS] = {red, green, blue, infrared};
    for (int i = 0; i < BANDS; i++)
        material.first[i] = material.second[i] = bands[i];
    return material;
}

void test_sheet(scene_mesh *mesh, scene_vec at, scene_vec u, scene_vec v, uint32_t material, bool metres)
{
    const uint32_t base = static_cast<uint32_t>(mesh->vertices.size());
    const scene_vec normal = scene_unit(scene_cross(u, v));
    const float across = metres ? scene_length(u) : 1, along = metres ? scene_length(v) : 1;
    mesh->vertices.push_back({at, normal, 0, 0, material});
    mesh->vertices.push_back({at + u, normal, across, 0, material});
    mesh->vertices.push_back({at + u + v, normal, across, along, material});
    mesh->vertices.push_back({at + v, normal, 0, along, material});
    for (uint32_t i : {0, 1, 2, 0, 2, 3})
        mesh->indices.push_back(base + i);
}

void test_box(scene_mesh *mesh, scene_vec low, scene_vec high, uint32_t material, bool inside_out)
{
    const scene_vec x = {high.x - low.x, 0, 0}, y = {0, high.y - low.y, 0}, z = {0, 0, high.z - low.z};
    const scene_vec starts[6] = {low, low, low, low + x, low + y, low + z};
    const scene_vec us[6] = {z, x, y, y, z, x}, vs[6] = {y, z, x, z, x, y};
    for (int i = 0; i < 6; i++)
        test_sheet(mesh, starts[i], inside_out ? vs[i] : us[i], inside_out ? us[i] : vs[i], material, true);
}

void test_capsule(scene_mesh *mesh, scene_vec from, scene_vec to, float radius, uint32_t material, int around)
{
    const scene_vec ahead = scene_unit(to - from);
    const scene_vec side =
        scene_unit(scene_cross(ahead, fabsf(ahead.z) < 0.9f ? scene_vec{0, 0, 1} : scene_vec{0, 1, 0}));
    const scene_vec other = scene_cross(ahead, side);
    const uint32_t base = static_cast<uint32_t>(mesh->vertices.size());
    const int rings = around; // half of them on each cap
    for (int ring = 0; ring < rings; ring++) {
        const bool end = ring >= rings / 2;
        const float share = static_cast<float>(end ? ring - 1 : ring) / static_cast<float>(rings - 2);
        const float lift = (share - 0.5f) * static_cast<float>(M_PI);
        for (int i = 0; i <= around; i++) {
            const float turn =
                static_cast<float>(i) / static_cast<float>(around) * 2 * static_cast<float>(M_PI);
            const scene_vec normal =
                ahead * sinf(lift) + (side * cosf(turn) + other * sinf(turn)) * cosf(lift);
            mesh->vertices.push_back({(end ? to : from) + normal * radius, normal,
                                      static_cast<float>(i) / static_cast<float>(around), share, material});
        }
    }
    const uint32_t row = static_cast<uint32_t>(around + 1);
    for (uint32_t ring = 0; ring + 1 < static_cast<uint32_t>(rings); ring++)
        for (uint32_t i = 0; i + 1 < row; i++) {
            const uint32_t a = base + ring * row + i;
            for (uint32_t corner : {a, a + 1, a + row + 1, a, a + row + 1, a + row})
                mesh->indices.push_back(corner);
        }
}

static void make_materials(std::vector<scene_material> *materials)
{
    scene_material wall = test_material(0.62f, 0.6f, 0.54f, 0.65f);
    scene_material wood = test_material(0.32f, 0.19f, 0.1f, 0.45f);
    wood.second[0] = 0.42f, wood.second[1] = 0.27f, wood.second[2] = 0.15f, wood.second[3] = 0.55f;
    wood.pattern = PATTERN_WOOD, wood.size = 0.14f, wood.gloss = 0.35f;
    scene_material cloth = test_material(0.12f, 0.16f, 0.3f, 0.5f);
    cloth.second[0] = 0.2f, cloth.second[1] = 0.24f, cloth.second[2] = 0.4f, cloth.second[3] = 0.6f;
    cloth.pattern = PATTERN_WEAVE, cloth.size = 0.02f;
    scene_material case_ = test_material(0.5f, 0.36f, 0.22f, 0.55f);
    scene_material skin = test_material(0.55f, 0.38f, 0.29f, 0.6f);
    scene_material shirt = test_material(0.5f, 0.08f, 0.07f, 0.6f);
    shirt.second[0] = 0.6f, shirt.second[1] = 0.55f, shirt.second[2] = 0.5f, shirt.second[3] = 0.7f;
    shirt.pattern = PATTERN_STRIPES_V, shirt.size = 0.2f;
    scene_material trousers = test_material(0.05f, 0.06f, 0.09f, 0.4f);
    scene_material hair = test_material(0.04f, 0.03f, 0.02f, 0.2f);
    scene_material poster = test_material(0.6f, 0.65f, 0.6f, 0.6f);
    poster.second[0] = 0.2f, poster.second[1] = 0.3f, poster.second[2] = 0.6f;
    poster.pattern = PATTERN_PERSON, poster.seed = 3;
    scene_material screen = test_material(0.03f, 0.03f, 0.03f, 0.03f);
    screen.pattern = PATTERN_SCREEN, screen.seed = 11;
    for (int i = 0; i < 3; i++)
        screen.emission[i] = 120;
    scene_material curtain = test_material(0.6f, 0.5f, 0.4f, 0.6f);
    curtain.through = 0.35f;
    scene_material picture = test_material(0.3f, 0.4f, 0.5f, 0.5f);
    picture.pattern = PATTERN_PICTURE, picture.seed = 5;
    *materials = {wall, wood, cloth, case_, skin, shirt, trousers, hair, poster, screen, curtain, picture};
}

enum { WALL, WOOD, CLOTH, CASE, SKIN, SHIRT, TROUSERS, HAIR, POSTER, SCREEN, CURTAIN, PICTURE };

void test_room_make(test_room *room)
{
    *room = {};
    make_materials(&room->materials);
    // The wall on the right (x = 4) has a window from y 1.5 to 3, z 0.9 to 2.1.
    test_sheet(&room->shell, {0, 0, 0}, {4, 0, 0}, {0, 5, 0}, WOOD, true);
    test_sheet(&room->shell, {0, 0, 2.5f}, {0, 5, 0}, {4, 0, 0}, WALL, true);
    test_sheet(&room->shell, {0, 5, 0}, {4, 0, 0}, {0, 0, 2.5f}, WALL, true);
    test_sheet(&room->shell, {4, 0, 0}, {-4, 0, 0}, {0, 0, 2.5f}, WALL, true);
    test_sheet(&room->shell, {0, 0, 0}, {0, 5, 0}, {0, 0, 2.5f}, WALL, true);
    const float ys[4] = {0, 1.5f, 3, 5}, zs[4] = {0, 0.9f, 2.1f, 2.5f};
    for (int j = 0; j < 3; j++)
        for (int k = 0; k < 3; k++)
            if (j != 1 || k != 1)
                test_sheet(&room->shell, {4, ys[j + 1], zs[k]}, {0, ys[j] - ys[j + 1], 0},
                           {0, 0, zs[k + 1] - zs[k]}, WALL, true);
    test_box(&room->furniture, {2.2f, 3.6f, 0}, {3.9f, 4.5f, 0.42f}, CLOTH, false); // sofa
    test_box(&room->furniture, {2.2f, 4.5f, 0}, {3.9f, 4.8f, 0.85f}, CLOTH, false);
    test_box(&room->furniture, {0.05f, 3.5f, 0}, {0.4f, 4.9f, 1.8f}, CASE, false);     // shelf
    test_box(&room->furniture, {2.4f, 2.3f, 0.38f}, {3.3f, 2.9f, 0.42f}, CASE, false); // table
    for (float x : {2.42f, 3.22f})
        for (float y : {2.32f, 2.82f})
            test_box(&room->furniture, {x, y, 0}, {x + 0.06f, y + 0.06f, 0.38f}, CASE, false);
    test_sheet(&room->poster, {0.9f, 4.99f, 0.7f}, {0.7f, 0, 0}, {0, 0, 1.4f}, POSTER, false);
    test_sheet(&room->poster, {2.6f, 4.99f, 1.2f}, {0.8f, 0, 0}, {0, 0, 0.6f}, PICTURE, false);
    test_box(&room->furniture, {0.02f, 1.6f, 0}, {0.45f, 2.9f, 0.5f}, CASE, false); // below the screen
    test_sheet(&room->screen, {0.3f, 1.8f, 0.55f}, {0, 0.9f, 0}, {0, 0, 0.55f}, SCREEN, false);
    test_sheet(&room->curtain, {3.9f, 3.0f, 0.3f}, {0, -0.5f, 0}, {0, 0, 1.9f}, CURTAIN, true);

    test_capsule(&room->man, {0, 0, 0.95f}, {0, 0, 1.38f}, 0.17f, SHIRT, 16);
    test_capsule(&room->man, {0, 0, 1.6f}, {0, 0, 1.68f}, 0.1f, SKIN, 12);
    test_capsule(&room->man, {0, 0.02f, 1.66f}, {0, 0.02f, 1.71f}, 0.105f, HAIR, 12);
    for (float x : {-0.1f, 0.1f})
        test_capsule(&room->man, {x, 0, 0.08f}, {x, 0, 0.9f}, 0.085f, TROUSERS, 12);
    for (float x : {-0.23f, 0.23f}) {
        test_capsule(&room->man, {x, 0, 1.1f}, {x, 0, 1.38f}, 0.055f, SHIRT, 12);
        test_capsule(&room->man, {x, -0.05f, 0.82f}, {x, 0, 1.08f}, 0.045f, SKIN, 12);
    }

    scene_object object;
    object.materials = &room->materials;
    for (const scene_mesh *mesh :
         {&room->shell, &room->furniture, &room->poster, &room->screen, &room->curtain, &room->man}) {
        object.mesh = mesh;
        object.shadow = mesh != &room->shell;
        object.two_sided = mesh == &room->curtain;
        object.actor = mesh == &room->man ? TEST_ROOM_MAN : 0;
        room->snapshot.objects.push_back(object);
    }
    room->snapshot.view.position = {0.4f, 0.3f, 2.2f};
    room->snapshot.view.pan = 32;
    room->snapshot.view.tilt = -20;
    test_room_put_man(room, 1.7f, 3.2f);
}

void test_room_put_man(test_room *room, float x, float y)
{
    room->snapshot.objects.back().place = scene_standing({x, y, 0}, 25);
}

static void set_bands(float *bands, float red, float green, float blue, float infrared)
{
    bands[0] = red, bands[1] = green, bands[2] = blue, bands[3] = infrared;
}

void test_room_day(test_room *room)
{
    scene_snapshot *s = &room->snapshot;
    s->lights.clear();
    scene_light sun;
    sun.kind = LIGHT_SUN;
    sun.direction = scene_unit({-0.7f, 0.35f, -0.75f});
    set_bands(sun.strength, 32000, 30000, 26000, 26000);
    sun.through_window = true;
    sun.window_centre = {4, 2.25f, 1.5f}, sun.window_u = {0, 0.75f, 0}, sun.window_v = {0, 0, 0.6f};
    sun.shadow = 2;
    s->lights.push_back(sun);
    scene_light window;
    window.kind = LIGHT_AREA;
    window.position = {3.98f, 2.25f, 1.5f}, window.direction = {-1, 0, 0};
    window.size[0] = 1.5f, window.size[1] = 1.2f;
    set_bands(window.strength, 2600, 3000, 3600, 2000);
    s->lights.push_back(window);
    set_bands(s->ambient, 420, 400, 370, 330);
    set_bands(s->sky, 3200, 3900, 5200, 2500);
    s->optics = {};
}

void test_room_lamp(test_room *room)
{
    scene_snapshot *s = &room->snapshot;
    s->lights.clear();
    scene_light lamp;
    lamp.position = {2, 2.5f, 2.3f};
    set_bands(lamp.strength, 120, 88, 46, 90);
    lamp.size[0] = lamp.size[1] = 0.25f;
    lamp.shadow = 1;
    s->lights.push_back(lamp);
    set_bands(s->ambient, 34, 24, 12, 26);
    set_bands(s->sky, 0.3f, 0.4f, 0.7f, 0.3f);
    s->optics = {};
}

void test_room_infrared(test_room *room)
{
    scene_snapshot *s = &room->snapshot;
    s->lights.clear();
    scene_light lamp;
    lamp.kind = LIGHT_SPOT;
    lamp.position = s->view.position + scene_vec{0.03f, 0, 0.02f};
    const float pan = s->view.pan * static_cast<float>(M_PI / 180),
                tilt = s->view.tilt * static_cast<float>(M_PI / 180);
    lamp.direction = {sinf(pan) * cosf(tilt), cosf(pan) * cosf(tilt), sinf(tilt)};
    lamp.half_angle = 38;
    set_bands(lamp.strength, 0, 0, 0, 45);
    lamp.shadow = 1;
    s->lights.push_back(lamp);
    set_bands(s->ambient, 0.02f, 0.02f, 0.02f, 0.5f);
    set_bands(s->sky, 0, 0, 0, 0.02f);
    s->optics = {};
    s->optics.filter = false;
    s->optics.grey = true;
}
