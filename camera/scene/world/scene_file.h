// A scene's file as data: what was written, checked but not yet planned. docs/scenes.md is the manual of the
// format.
#ifndef SCENE_FILE_H
#define SCENE_FILE_H

#include <map>
#include <string>
#include <vector>

#include "people.h"
#include "things.h"
#include "world.h"

enum { SCENE_FILE_MAX = 256 * 1024 }; // bytes

// Where something is: an anchor of the room by name, or metres.
struct scene_spot {
    bool given = false;
    std::string anchor; // empty: `at` holds
    scene_vec at = {0, 0, 0};
    bool has_height = false; // three numbers were given
    std::string path;        // in the file, for errors found later
};

// What an actor does next.
enum scene_verb {
    VERB_WALK,
    VERB_RUN,
    VERB_CARRY,
    VERB_STAND,
    VERB_WAVE,
    VERB_CROUCH,
    VERB_SIT,
    VERB_DESK,
    VERB_LIE,
    VERB_FALL,
    VERB_ENTER,
    VERB_LEAVE,
    VERB_AWAY,
    VERBS
};
struct scene_step {
    scene_verb verb = VERB_STAND;
    scene_spot spot; // of "to" or "at"
    double seconds = 0;
    float speed = 0; // 0: as is usual for the verb
    bool has_face = false;
    float face = 0;          // degrees
    std::string face_anchor; // empty: `face` holds
};

struct scene_actor {
    std::string name, path;
    bool is_person = true;
    person_look look = {};
    thing_kind kind = THING_CAT;
    scene_spot at; // not given: it is away at first
    bool has_heading = false;
    float heading = 0;
    double start = 0; // seconds until the first step
    bool loop = false;
    std::vector<scene_step> steps;
};

// A change of light, curtain or lamp. What is not given stays as it was.
struct scene_change {
    double at = 0;
    int ceiling = -1, table = -1, tv = -1, corridor = -1; // -1: stays; 0, 1
    int filter = -1, grey = -1;                           // likewise

    float curtain = -1, wind = -1, infrared = -1, white = -1; // below 0: stays
    float swing = 0;      // degrees of a push to the hanging lamp; 0: none
    float headlights = 0; // seconds that a car takes to pass; 0: none
};

struct scene_camera_turn {
    double at = 0;
    float pan = 0, tilt = 0, speed = 60; // degrees, degrees a second
};

struct scene_camera {
    std::string anchor = "shelf"; // empty: `position` holds
    scene_vec position = {0, 0, 2};
    float pan = 0, tilt = 0; // added to where the anchor looks
    float angle = 90, distortion = -0.08f, focus = 3;
    std::vector<scene_camera_turn> turns;
};

struct scene_script {
    std::string story, room;
    uint64_t seed = 1;
    double seconds = 60; // 0: endless
    double repeat = 0;   // seconds after which everything begins again; 0: it does not
    double hour = 12, hour_speed = 1;
    float cloud = 0.2f;
    std::vector<scene_change> lights;
    scene_camera camera;
    std::map<std::string, std::string> settings;
    std::vector<scene_actor> actors;
    std::vector<world_expectation> expects; // the first is for the whole scene
};

// What is wrong, and where. `path` is a value's place in the file ("/actors/0/name"); the line is found from
// it.
struct scene_fault {
    int line = 0; // 0: of the file as a whole
    std::string text;
};

// Reads a scene from a text. False with the fault. Any thread.
bool scene_parse(const std::string &text, scene_script *script, scene_fault *fault);
// The line of a path in the same text, for faults that only show when the scene is planned.
int scene_line(const std::string &text, const std::string &path);

// "walk", ... and which motion goes with it; null for a number that is none.
const char *scene_verb_name(int verb);

#endif
