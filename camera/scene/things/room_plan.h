// A room's plan, what is made of it, and the functions that share the making. Internal to this folder.
#ifndef THINGS_ROOM_PLAN_H
#define THINGS_ROOM_PLAN_H

#include <vector>

#include "furniture.h"
#include "things.h"

enum lamp_style { LAMP_PENDANT, LAMP_DISC, LAMP_PANEL };
struct plan_lamp {
    float x, y, drop; // drop: metres from the ceiling to the light
    lamp_style style;
};
struct plan_opening { // in a wall
    int wall;
    float along, width, sill, height; // along: of the middle, left to right as seen from inside
};
struct plan_anchor {
    const char *name;
    float x, y, z, heading, tilt;
};
struct room_plan {
    const char *name;
    scene_vec size;
    stuff floor;
    int other_wall; // the one of another colour; -1: none
    float compass;  // what to add to a heading for the compass' (90 is east)
    plan_opening door, window;
    plan_lamp lamps[2];
    int lamp_count;
    const furniture_item *items;
    int item_count;
    const plan_anchor *anchors;
    int anchor_count;
};
const room_plan *room_plans(int *count);

// A wall's axes: x along it to the right as seen from inside, y out of the room, z up; the origin at the
// floor.
scene_place room_wall(scene_vec size, int wall);
// Where a line of the plan puts its piece.
scene_place room_item_place(scene_vec size, const furniture_item *item);

// What a person has to walk around.
struct room_footprint {
    scene_place place;
    float w, d; // half sizes
};
struct room_part { // with its own look when lit
    furniture_lit lit;
    std::vector<scene_material> off, on;
};
const float WALL_THICK = 0.16f, CORRIDOR_DEEP = 1.5f, CORRIDOR_WIDE = 2.6f;

struct room {
    const room_plan *plan;
    uint32_t seed;
    scene_mesh solid, leaves, door, hanging[2], corridor, curtain;
    std::vector<scene_material> materials; // by enum stuff, of this room's seed
    std::vector<scene_material> solid_materials, leaf_materials, door_materials, curtain_materials;
    std::vector<scene_material> corridor_off, corridor_on;
    std::vector<room_part> parts;
    std::vector<room_footprint> footprints;
    float area, mean[BANDS]; // of all surfaces in the room: square metres and mean reflectance
    float curtain_made[3];   // covered share, wind and time that `curtain` was made for
};

// room_shell.cpp: walls, floor, ceiling, window and door with their frames, the corridor.
void room_build_shell(room *room, shape_maker *maker);
void room_build_door(room *room);
void room_build_corridor(room *room);
void room_build_lamps(room *room);
void room_make_curtain(room *room, float covered, float wind, float time);
scene_place room_door_place(const room *room, float degrees);
scene_place room_lamp_place(const room *room, int lamp, float swing);
// Keeps of `materials` only what the mesh uses, and renumbers.
void room_own_materials(scene_mesh *mesh, const std::vector<scene_material> &materials,
                        std::vector<scene_material> *own);

// room_light.cpp
struct sky_light {
    float sun[BANDS];         // lux on a surface across the sun's rays
    float sky[BANDS];         // lux on level ground from all the rest
    float elevation, azimuth; // of the sun, degrees; the azimuth by compass
};
void light_sky(double hour, float cloud, sky_light *sky);
void room_lights(const room *room, const room_state *state, scene_snapshot *snapshot);
// What a screen whose material has this seed throws into the room at a time: 0 to some 2 in each visible
// band.
void light_screen(double time, uint32_t seed, float level[3]);

#endif
