// What a world is inside, for the sources of this folder.
#ifndef WORLD_STATE_H
#define WORLD_STATE_H

#include <memory>

#include "mask.h"
#include "stage.h"
#include "track.h"
#include "world.h"

// A stretch of time, planned: all of a scene that has a file, one block of an evening that has none.
struct world_plan {
    double begin = 0; // seconds of the world at which the script's time is 0
    scene_script script;
    std::vector<track> tracks; // by actor
    std::vector<track_passage> passages;
    std::vector<stage_turn> turns;
};

struct world_actor {
    std::string name;
    person *body = nullptr; // one of these
    thing *object = nullptr;
    thing_kind kind = THING_CAT;
    uint32_t seed = 0;
    scene_mesh mesh, mesh_before;
};

// The room's own depth, kept while neither the view nor what stands still changes.
struct world_backdrop {
    bool valid = false;
    scene_view view;
    std::vector<scene_object> objects;
    uint64_t shape = 0; // of all their corners: a curtain that was drawn has the same mesh, but another shape
    std::vector<float> depth;
    std::vector<uint32_t> actor;
};

struct world {
    std::string name;
    bool evening = false; // planned by blocks from its seed
    uint64_t seed = 1;
    room *place = nullptr;
    track_ground ground;
    std::vector<world_actor> actors;
    std::vector<std::unique_ptr<world_plan>> plans; // a file's one; an evening's last used ones
    scene_view placement;                           // of the camera, before pan and tilt are added
    // Of the last snapshot and the one before it, for what controls change: files need no memory.
    world_controls controls, controls_before;
    double time = 0, time_before = -1;
    mask_canvas canvas;
    world_backdrop backdrop;
};

// Plans all actors of plan->script in the world's room. False with the fault.
bool world_plan_make(const world *world, world_plan *plan, std::string *path, std::string *text);
// The plan that holds at a time, and the time within its script.
const world_plan *world_plan_at(world *world, double time, double *local);
// How the room, the camera's optics and its view are at a time.
void world_state_at(world *world, double time, const world_controls *controls, room_state *state,
                    scene_optics *optics);
// Poses an actor at a time into `mesh`. False when it is not in the room. `activity` may be null.
bool world_pose(world *world, size_t actor, double time, const scene_view &view, scene_mesh *mesh,
                person_activity *activity);

// An evening at home, from its seed: who lives there, and what block number `block` (of EVENING_BLOCK
// seconds) brings.
const double EVENING_BLOCK = 300;
void evening_home(uint64_t seed, scene_script *script);
void evening_block(uint64_t seed, int64_t block, scene_script *script);

#endif
