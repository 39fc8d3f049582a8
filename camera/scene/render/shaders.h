// The shaders' texts, and the layout of what they read.
#ifndef SHADERS_H
#define SHADERS_H

#include "scene_types.h"

enum { SHADER_LIGHTS_MAX = 12, SHADER_BLOBS_MAX = 8 };

// Of each, four floats: std140 lets those stand without gaps.
struct shader_vec4 {
    float x, y, z, w;
};
struct shader_light {
    shader_vec4 position;  // xyz, and w = 1; of the sun the direction towards it, and w = 0
    shader_vec4 direction; // the way the light goes; w: exponent of the cosine off it
    shader_vec4 strength;  // by band
    shader_vec4 extent; // x: square of the radius of a disc as large as the lamp; y: 1 if a window limits it
    shader_vec4 plane;  // the window's plane: normal, and distance from the origin
    shader_vec4 across; // xyz: half side / its square length, w: half length in metres
    shader_vec4 along;
    shader_vec4 centre;
};
struct shader_frame {
    float view[16];   // world to clip space, by columns
    float shadow[16]; // world to the shadow map's clip space
    shader_vec4 eye;  // w: seconds
    shader_vec4 ambient;
    shader_vec4 room_low, room_high;
    shader_vec4 counts; // x: lights; y: 1 if the first has a shadow map; z: side of a texel of it, w: blobs
    shader_light lights[SHADER_LIGHTS_MAX];
    shader_vec4 blobs[SHADER_BLOBS_MAX][2]; // centre and object; 1 / half sides
};

// One row of the texture of materials.
struct shader_material {
    shader_vec4 first, second, emission;
    shader_vec4 ways; // size, gloss, through, seed
};

extern const char shader_vertex[];   // for the picture
extern const char shader_fragment[]; // for the picture; PATTERN is defined as the pattern's number
extern const char shader_depth_vertex[], shader_depth_fragment[]; // for the shadow map
extern const char shader_actor_vertex[], shader_actor_fragment[];

#endif
