// Where an actor is and what it does, for every moment of a scene: its steps, planned once into legs of time
// that can be asked in any order.
#ifndef TRACK_H
#define TRACK_H

#include <string>
#include <vector>

#include "floor.h"
#include "scene_file.h"

// A leg either keeps to a place, moving there in its first `shift` seconds, or goes a way.
struct track_leg {
    double begin = 0, end = 0; // seconds
    bool away = false;         // not in the room
    person_activity activity = PERSON_STAND, before = PERSON_STAND;
    double blend = 0;                              // seconds until `before` has turned into `activity`
    scene_vec from = {0, 0, 0}, to = {0, 0, 0};    // place at the begin, place kept
    float heading_from = 0, heading_to = 0;        // degrees, the shorter way round
    double shift = 0;                              // seconds
    std::vector<scene_vec> way;                    // FLOOR_STEP apart; empty: keeps to a place
    float length = 0, speed = 0, acceleration = 0; // metres, metres a second (squared)
    bool rolls = false;                            // pushed once, then only slower
    float gone = 0;                                // metres walked before this leg
    float pace = 0;                                // of this leg's way, or the last one before it
};
struct track {
    std::vector<track_leg>
        legs; // without gaps, in the order of time; before the first and after the last: as there
};

// What the door is needed for: somebody stands in it at `at`.
struct track_passage {
    double at;
};

// What planning stands on.
struct track_ground {
    const room *owner;
    floor_map people, things; // where people fit, where small things fit
};
track_ground track_ground_make(const room *room);

// Plans an actor's steps up to `end` seconds. False with the fault: the path of the value in the file, and
// what was expected. Passages through the door are added to `passages`.
bool track_plan(const track_ground &ground, const scene_actor &actor, double end, track *result,
                std::vector<track_passage> *passages, std::string *path, std::string *text);

// Seconds that a leg's way takes, and where one looks when `done` metres of it are done.
double track_duration(const track_leg &leg);
float track_done(const track_leg &leg, double time); // metres of its way that are done at a time
float track_leg_heading(const track_leg &leg, float done);

struct track_moment {
    bool here = false;
    person_activity activity = PERSON_STAND, before = PERSON_STAND;
    float blend = 1;
    scene_vec position = {0, 0, 0}, before_position = {0, 0, 0};
    float heading = 0, before_heading = 0;
    float way = 0, speed = 0;
    float pace =
        0; // speed of the walking that goes on, begins or ends, without its slow ends: sets the steps' length
};
track_moment track_at(const track &track, double time);

// Degrees open of the door that those passages need; 0 to TRACK_DOOR_OPEN.
const float TRACK_DOOR_OPEN = 85;
float track_door(const std::vector<track_passage> &passages, double time);

// Degrees from -180 to below 180.
float track_angle(float degrees);
// The heading from one point towards another.
float track_heading(scene_vec from, scene_vec to);

#endif
