// The world of one scene: its file, its story, and at any moment its snapshot and the truth about it.
//
// A scene is told by a small JSON file in scenes/ (docs/scenes.md), by its name, by a path, or made from a
// seed ("random?seed=N"). Time asked for may jump ahead; what happens at a time does not depend on what was
// asked before.
#ifndef WORLD_H
#define WORLD_H

#include <map>
#include <string>
#include <vector>

#include "scene_types.h"

struct world;

// Opens a scene: the name of a file in the scenes' folder without its ending ("person-crosses"), a path to a
// file, or "random?seed=N". Null after saying why (desk_say): file, line, and what was expected there.
world *world_open(const char *scene);
void world_close(world *world);

// The folder with the named scenes: $NARO_SCENES, else "scenes" of the checkout this was built from.
std::string world_folder(void);
// Names of all scenes in it, sorted.
std::vector<std::string> world_names(void);

const char *world_name(const world *world);
const char *world_story(const world *world); // the line on what a good camera does in it
double world_seconds(const world *world);    // how long the scene is; 0: endless
uint64_t world_seed(const world *world);
// Settings that the scene wants set before it starts: key -> value of the configuration service.
const std::map<std::string, std::string> &world_settings(const world *world);

// What a good camera reports in a span of the scene, for the scoreboard. The first is for the whole scene
// outside the others: wanted is at least one event in it, forbidden is none.
enum world_wish { WISH_ANY, WISH_WANTED, WISH_FORBIDDEN };
struct world_expectation {
    double from = 0, to = 0; // seconds; the first one's `to` is 0 where the scene is endless
    world_wish people = WISH_ANY, objects = WISH_ANY;
};
const std::vector<world_expectation> &world_expects(const world *world);

// What the camera's other parts do to the scene; until they do, the scene's own file decides.
struct world_controls {
    bool lights_set = false; // the next four hold instead of the scene's own
    bool filter = true, grey = false;
    float infrared = 0, white = 0; // 0 to 1
    bool view_set = false;         // pan and tilt hold instead of the scene's own
    float pan = 0, tilt = 0;       // degrees, added to the placement's
};

// Fills the snapshot for `time` seconds after the scene's start. It points into the world until the next
// call.
void world_snapshot(world *world, double time, const world_controls *controls, scene_snapshot *snapshot);

// An actor as it is to be seen in a picture of the snapshot's view. Boxes are in the analysis picture (320 x
// 192 pixels, lens distortion included), of what is visible; x2 and y2 are exclusive.
struct truth_actor {
    uint32_t actor;      // its number in the snapshot
    std::string name;    // from the scene: "anna", "cat"
    std::string kind;    // "person", "cat", "dog", "vacuum", ...
    std::string doing;   // of a person: "walk", "sit", ...; else empty
    float box[4];        // x1, y1, x2, y2; all 0 when nothing is visible
    float visible;       // share of its outline that is inside the picture and before everything else, 0 to 1
    float distance;      // metres from the lens to its middle
    bool moves;          // it, or a part of it, moved by more than 3 mm since 0.2 s before
    float lux, infrared; // light on it
};
struct truth_moment {
    double time;
    uint64_t number;                 // of the picture, from 0
    std::vector<truth_actor> actors; // those that are in the room, in the order of the scene file
    bool filter, grey, infrared_lamp, white_lamp;
    std::map<std::string, bool> lamps; // "ceiling", "table", "tv", "headlights"
    float pan, tilt;
    bool view_moves;    // the view turned since 0.2 s before
    bool light_changes; // a lamp was switched since 0.2 s before
    // What of the room itself moved or changed since 0.2 s before: "curtain", "door", "lamp", "tv",
    // "headlights".
    std::vector<std::string> stirs;
    double hour;
};
// The truth about the snapshot last made of this world. Computed without the renderer, in the same way on
// every machine.
void world_truth(world *world, const scene_snapshot *snapshot, uint64_t number, truth_moment *truth);
// Who covers each pixel of a `width` x `height` picture, as the truth sees it: actor numbers. For tests.
void world_mask(const scene_snapshot *snapshot, int width, int height, std::vector<uint32_t> *actors);
// One line of JSON without its end.
std::string truth_json(const truth_moment *truth);

#endif
