// Rooms, their furniture and lamps, and everything that moves and is not a person.
#ifndef THINGS_H
#define THINGS_H

#include "scene_types.h"

// A room fills x from 0 to its width, y from 0 to its depth, z from 0 to its height; the wall y = 0 is the
// one that cameras hang on. Any thread, but one room or thing by one thread at a time.
//
// A room: walls, floor, ceiling, window, door, furniture; with places where a person can be.
struct room_plan; // built-in plans by name: "living-room", "bedroom", "office", "hall", "kitchen", "nursery"
struct room;
// Null for a name that is none. `seed` varies colours, pictures on the walls and small things, not the
// places.
room *room_make(const char *name, uint32_t seed);
void room_free(room *room);
const char *room_name(int index); // of the built-in plans; null past the last
scene_vec room_size(const room *room);

// What can be found in a room by name. In every room: "door" (inside, facing the room), "door-outside" (in
// the corridor, facing in), "floor" (a free spot in the middle), "far" (a free spot far from the camera),
// "window" (before it), "window-outside" (in the air, for what throws shadows), "coat-hook", "ceiling-lamp",
// "shelf" and "corner" (where cameras are). In some: "sofa", "sofa-left", "sofa-right", "chair", "chair-2",
// "armchair", "desk-chair"; "desk", "table" (standing before them), "bed", "bed-edge" (to sit), "tv",
// "table-lamp", ... To each seat and bed NAME there is a "NAME-stand": a free spot beside it, from which one
// sits or lies down.
struct room_anchor {
    scene_vec position; // on the floor for standing; the seat's or bed's height for sitting and lying
    float heading;      // of who stands, sits or looks from there (lies: of the head); degrees
    float tilt = 0;     // of a camera that shows the room well, degrees; its pan is `heading`
};
bool room_find(const room *room, const char *name, room_anchor *anchor);
const char *room_anchor_name(const room *room, int index); // null past the last
// Whether somebody `radius` metres thick can stand there: on the floor of the room, of its doorway or of the
// piece of corridor behind, `radius` away from walls and furniture. Rugs and the door's leaf are not in the
// way.
bool room_free_spot(const room *room, float x, float y, float radius);

// How a room is at a moment.
struct room_state {
    double time = 0;  // seconds since the scene began: what the television shows, how the curtain hangs
    double hour = 12; // of the day, 0 to 24: sun and sky
    float cloud = 0;  // 0 clear to 1 overcast
    bool ceiling_lamp = false, table_lamp = false, tv = false;
    float lamp_swing = 0;                           // degrees of the hanging lamp's swing
    float curtain = 0.3f;                           // share of the window covered
    float wind = 0;                                 // of the curtain, metres a second
    float door = 0;                                 // degrees open, 0 to 90
    bool corridor_lamp = false;                     // seen where the door is open
    float headlights = -1;                          // 0 to 1: how far a passing car has come; below 0: none
    bool infrared_lamp = false, white_lamp = false; // the camera's own, at `view`
    float infrared_level = 1, white_level = 1;      // 0 to 1
    scene_view view;
};
// Adds the room's objects, lights, ambient and sky light at that moment. What is added lives in the room.
void room_snapshot(room *room, const room_state *state, scene_snapshot *snapshot);
// Light on an upright surface at a point that is turned towards each lamp in turn, all lamps of the snapshot
// and what the walls give back, without shadows: lux, and infrared.
void scene_light_at(const scene_snapshot *snapshot, scene_vec point, float *lux, float *infrared);

enum thing_kind {
    THING_CAT,
    THING_DOG,
    THING_VACUUM, // robot on the floor
    THING_FAN,    // stands and turns its head, its blades run
    THING_BALL,
    THING_INSECT, // before the lens
    THING_COAT,   // on a hook, sways a little
    THING_BALLOON,
    THING_BOX,    // a parcel, also what is carried
    THING_SHADOW, // something outside a window that only its shadow shows
    THING_KINDS
};
const char *thing_kind_name(int kind); // "cat", "dog", ...; null for a number that is none

struct thing;
thing *thing_make(thing_kind kind, uint32_t seed);
void thing_free(thing *thing);
const std::vector<scene_material> *thing_materials(const thing *thing);

struct thing_moment {
    scene_vec position = {0, 0, 0}; // on the floor below it; of an insect, a coat: where it is
    float heading = 0;
    float way = 0;   // metres gone so far: steps, rolling
    float speed = 0; // metres a second; 0: sits or stands
    float time = 0;
};
// Fills `mesh` (its memory is used again) in world coordinates. Any numbers are taken: what is not finite
// counts as 0, what is out of all bounds as the bound.
void thing_pose(const thing *thing, const thing_moment *moment, scene_mesh *mesh);

#endif
