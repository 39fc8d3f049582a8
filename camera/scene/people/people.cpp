// The public face: a person is a figure and its surfaces at rest; posing one places the bones and carries every
// vertex along with those that hold it.
#include "../people.h"

#include <algorithm>

#include "body.h"
#include "moves.h"

struct person {
    figure bones;
    shape rest;
    std::vector<scene_material> materials;
};

namespace
{
const char *const names[PERSON_ACTIVITIES] = {"stand", "walk",   "run",   "sit",  "desk",
                                              "lie",   "crouch", "carry", "wave", "fallen"};

float finite(float v, float low, float high, float otherwise)
{
    return std::isfinite(v) ? clamped(v, low, high) : otherwise;
}

// Rooms are small; whoever asks for more gets the edge of this.
scene_vec finite_place(scene_vec p)
{
    return {finite(p.x, -1000, 1000, 0), finite(p.y, -1000, 1000, 0), finite(p.z, -100, 100, 0)};
}

person_activity known(person_activity a)
{
    return a < PERSON_ACTIVITIES ? a : PERSON_STAND;
}

person_moment bounded(const person_moment &m)
{
    person_moment b = m;
    b.activity = known(m.activity);
    b.before = known(m.before);
    b.blend = finite(m.blend, 0, 1, 1);
    b.position = finite_place(m.position);
    b.before_position = finite_place(m.before_position);
    b.heading = std::isfinite(m.heading) ? fmodf(m.heading, 360) : 0;
    b.before_heading = std::isfinite(m.before_heading) ? fmodf(m.before_heading, 360) : 0;
    b.way = finite(m.way, -1e6f, 1e6f, 0);
    b.speed = finite(m.speed, 0, 12, 0);
    b.time = finite(m.time, -1e7f, 1e7f, 0);
    b.look_pan = finite(m.look_pan, -85, 85, 0);
    b.look_tilt = finite(m.look_tilt, -50, 50, 0);
    return b;
}

person_look bounded(const person_look &l)
{
    person_look b = l;
    b.height = finite(l.height, 1.0f, 2.0f, 1.7f);
    b.build = finite(l.build, 0, 1, .4f);
    b.shoulders = finite(l.shoulders, 0, 1, .5f);
    b.curves = finite(l.curves, 0, 1, 0);
    b.hair_length = finite(l.hair_length, 0, 1, .2f);
    b.sleeves = finite(l.sleeves, 0, 1, 1);
    b.hem = finite(l.hem, 0, 1, 1);
    b.width = finite(l.width, 0, 1, .3f);
    if (l.clothes < 0 || l.clothes >= CLOTHES_KINDS)
        b.clothes = CLOTHES_TROUSERS;
    return b;
}
} // namespace

const char *person_activity_name(int activity)
{
    return activity >= 0 && activity < PERSON_ACTIVITIES ? names[activity] : nullptr;
}

person *person_make(const person_look *look)
{
    const person_look l = bounded(*look);
    person *p = new person;
    p->bones = figure_make(l.height, l.shoulders, l.curves);
    body_make(l, p->bones, &p->rest);
    body_box(&p->rest);
    p->materials = body_materials(l);
    return p;
}

void person_free(person *person)
{
    delete person;
}

const std::vector<scene_material> *person_materials(const person *person)
{
    return &person->materials;
}

void person_pose(const person *person, const person_moment *moment, scene_mesh *mesh)
{
    const person_moment at = bounded(*moment);
    scene_place bones[BONES];
    const posture p = moves_posture(person->bones, at);
    figure_place(person->bones, p, bones);
    // From a point at rest straight to the room: the bone's own origin goes into its place.
    for (int b = 0; b < BONES; b++)
        bones[b].origin = bones[b].origin - scene_turn(bones[b], person->bones.rest[b]);

    const scene_mesh &rest = person->rest.mesh;
    mesh->indices = rest.indices;
    mesh->vertices = rest.vertices;
    const size_t body = rest.vertices.size() - BODY_BOX_VERTICES;
    for (size_t i = 0; i < body; i++) {
        const shape_hold &hold = person->rest.holds[i];
        scene_place place = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
        for (int k = 0; k < SHAPE_BONES && hold.share[k] > 0; k++) {
            const scene_place &b = bones[hold.bone[k]];
            const float s = hold.share[k];
            place.x = place.x + b.x * s;
            place.y = place.y + b.y * s;
            place.z = place.z + b.z * s;
            place.origin = place.origin + b.origin * s;
        }
        scene_vertex &v = mesh->vertices[i];
        v.position = scene_put(place, rest.vertices[i].position);
        v.normal = scene_unit(scene_turn(place, rest.vertices[i].normal));
    }
    // The box; with empty hands it is a point inside the pelvis, so that the triangles stay the same all the time.
    const bool holds = p.holds > 0.5f;
    const scene_place held = turn_place(p.held_turn, p.held);
    for (size_t i = body; i < rest.vertices.size(); i++) {
        scene_vertex &v = mesh->vertices[i];
        v.position = holds ? scene_put(held, rest.vertices[i].position) : p.pelvis;
        v.normal = holds ? scene_turn(held, rest.vertices[i].normal) : rest.vertices[i].normal;
    }
}
