// A room made by hand, for tests of what draws: a box with boxes in it, and a man of capsules.
#ifndef TEST_ROOM_H
#define TEST_ROOM_H

#include <vector>

#include "scene_types.h"

struct test_room {
    std::vector<scene_material> materials;
    scene_mesh shell, furniture, man, panes, poster, screen, curtain;
    scene_snapshot snapshot;
};
enum { TEST_ROOM_MAN = 1 }; // his actor's number

// 4 x 5 x 2.5 m, the camera in the corner (0.3, 0.3, 2.2) looking across; no light yet.
void test_room_make(test_room *room);
void test_room_day(test_room *room);
void test_room_lamp(test_room *room);
void test_room_infrared(test_room *room);
// Puts the man where he is to stand.
void test_room_put_man(test_room *room, float x, float y);

// Shapes, for tests of their own.
void test_box(scene_mesh *mesh, scene_vec low, scene_vec high, uint32_t material, bool inside_out);
void test_capsule(scene_mesh *mesh, scene_vec from, scene_vec to, float radius, uint32_t material,
                  int around);
// A rectangle with corners at, at + u, at + u + v, at + v; u x v points to where it is seen from.
void test_sheet(scene_mesh *mesh, scene_vec at, scene_vec u, scene_vec v, uint32_t material, bool metres);
scene_material test_material(float red, float green, float blue, float infrared);

#endif
