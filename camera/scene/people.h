// People: bodies made from a few numbers, and what they do. Geometry only: a person is asked for at a moment and
// gives a mesh in the world. Pure functions of their arguments; no state between calls but what person_make made.
#ifndef PEOPLE_H
#define PEOPLE_H

#include "scene_types.h"

enum person_activity {
    PERSON_STAND, // shifts weight, looks about
    PERSON_WALK,
    PERSON_RUN,
    PERSON_SIT,  // on a seat 0.45 m high; almost still
    PERSON_DESK, // sits and works with hands on a table 0.73 m high
    PERSON_LIE,  // on the back, at the height of `position.z`, head towards the heading
    PERSON_CROUCH,
    PERSON_CARRY,  // walks with a box before the belly; the box belongs to the mesh
    PERSON_WAVE,   // stands and waves an arm
    PERSON_FALLEN, // on the side on the floor, limbs as they came to lie
    PERSON_ACTIVITIES
};
// "stand", "walk", ... as scene files call them; null for a number that is none.
const char *person_activity_name(int activity);

// What somebody looks like. All of it may be set; person_variant and person_random fill it sensibly.
struct person_look {
    float height;      // metres, 1.0 (child) to 2.0
    float build;       // 0 thin to 1 heavy
    float shoulders;   // 0 narrow to 1 broad
    float curves;      // 0 straight to 1: hips, waist and chest differ
    float hair_length; // 0 bald, 0.2 short, 1 to the shoulders
    int clothes;       // enum person_clothes
    float sleeves;     // 0 none, 0.5 to the elbow, 1 long
    float hem;         // of the top: 0 tucked in to 1 over the hips
    float width;       // of the clothes: 0 tight to 1 wide
    bool glasses, cap, beard;
    scene_material skin, hair, top, bottom, shoes;
    scene_material accent; // a cap, what is worn under an open coat, a belt
};
enum person_clothes {
    CLOTHES_TROUSERS,
    CLOTHES_SHORTS,
    CLOTHES_SKIRT,
    CLOTHES_DRESS,
    CLOTHES_COAT,
    CLOTHES_HOOD,
    CLOTHES_KINDS
};

enum { PERSON_VARIANTS = 24 };         // built in; every one differs from every other at a glance
person_look person_variant(int index); // index modulo PERSON_VARIANTS
person_look person_random(scene_random *random);

struct person; // body, skeleton, materials
person *person_make(const person_look *look);
void person_free(person *person);
const std::vector<scene_material> *person_materials(const person *person);

// What is to be seen of a person at one moment.
struct person_moment {
    person_activity activity = PERSON_STAND;
    person_activity before = PERSON_STAND; // what was done until now,
    float blend = 1;                       // and how far it has turned into `activity`: 0 not yet, 1 wholly
    scene_vec position = {0, 0, 0}; // on the floor between the feet; of a seat or a bed: its middle, with its
                                    // height; somebody who has fallen lies about it
    float heading = 0;              // degrees
    // The same of `before`, while `blend` is below 1: who sits down stood half a metre before the seat's middle, who
    // lies down stood (or sat) beside the bed, and who falls lies where the feet were.
    scene_vec before_position = {0, 0, 0};
    float before_heading = 0;
    float way = 0; // metres walked so far: the feet's phase, so that they do not slide
    float speed =
        0; // metres a second, of this stretch of way: the steps' length follows from it, so that a change
           // in the middle of a stretch makes the feet jump
    float time = 0;                    // seconds: breathing, shifting, waving
    float look_pan = 0, look_tilt = 0; // of the head against the body, degrees
    uint32_t seed = 0;                 // this person's own way of moving
};
// Fills `mesh` (its memory is used again) with the person at that moment, in world coordinates.
void person_pose(const person *person, const person_moment *moment, scene_mesh *mesh);

#endif
