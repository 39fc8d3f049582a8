// A thing: its materials and the numbers that make it differ from others of its kind. Internal to this
// folder.
#ifndef THINGS_THING_H
#define THINGS_THING_H

#include <vector>

#include "shapes.h"
#include "stuff.h"
#include "things.h"

struct thing {
    thing_kind kind;
    uint32_t seed;
    float size; // about 1: how big among its kind
    float tail; // and what else the seed varies, -1 to 1
    float legs;
    std::vector<scene_material> materials;
};

// Builders, one for each kind: fill materials, and add the shape at a moment (already made finite). `maker`
// stands at the moment's place, y the way it looks.
typedef void thing_dress(thing *thing, scene_random *random);
typedef void thing_shape(const thing *thing, const thing_moment *moment, shape_maker *maker);
thing_dress cat_dress, dog_dress, vacuum_dress, fan_dress, ball_dress, insect_dress, coat_dress,
    balloon_dress, box_dress, shadow_dress;
thing_shape pet_shape, vacuum_shape, fan_shape, ball_shape, insect_shape, coat_shape, balloon_shape,
    box_shape, shadow_shape;

scene_material thing_plain(float red, float green, float blue, float infrared, float gloss = 0);

#endif
