// The shaders' texts, and the layout of what they read.
#ifndef SHADERS_H
#define SHADERS_H

#include "scene_types.h"

enum { SHADER_LIGHTS_MAX = 12, SHADER_BLOBS_MAX = 8, SHADER_MATERIALS_MAX = 2048, SHADER_OBJECTS_MAX = 1023 };

enum shader_lobe { LOBE_BARE, LOBE_LAMBERT, LOBE_SPOT }; // how a lamp's light falls off its axis

// Of each, four floats: std140 lets those stand without gaps.
struct shader_vec4 {
    float x, y, z, w;
};
struct shader_light {
    shader_vec4 position;  // xyz, and w = 1; of the sun the direction towards it, and w = 0
    shader_vec4 direction; // the way the light goes; w: of a cone, sharpness by the binary logarithm
    shader_vec4 strength;  // by band
    shader_vec4 extent; // x: square of the radius of a disc as large as the lamp; y: 1 if a window limits it;
                        // z: reach of the shadow's taps; w: shader_lobe
    shader_vec4 plane;  // the window's plane: normal, and distance from the origin
    shader_vec4 across; // xyz: half side / its square length, w: half length in metres
    shader_vec4 along;
    shader_vec4 centre;
};
struct shader_frame {
    float view[16];   // world to clip space, by columns
    float shadow[16]; // world to the shadow map's clip space
    shader_vec4 right, up,
        ahead;       // from the eye to the point seen at the edges of what is drawn, a metre ahead
    shader_vec4 eye; // w: seconds
    shader_vec4 ambient, sky;
    shader_vec4 room_low, room_high;
    shader_vec4
        counts; // x: lights; y: 1 if the first has a shadow map; z: one and a half texels of it, metres
    shader_light lights[SHADER_LIGHTS_MAX];
    shader_vec4 blobs[SHADER_BLOBS_MAX][2]; // centre and object; 1 / half sides
};

// One row of the texture of materials.
struct shader_material {
    shader_vec4 first, second, emission;
    shader_vec4 ways; // size, gloss, through, seed
};

// The object's place in the snapshot, from 0; -1 for nothing.
inline int shader_object_of(uint32_t w)
{
    return static_cast<int>((w >> 11) & 1023) - 1;
}

// The frame as the shaders read it; each begins with this text.
#define SHADER_FRAME                                                                                         \
    "precision highp float;\n"                                                                               \
    "precision highp int;\n"                                                                                 \
    "struct Light { vec4 position, direction, strength, extent, plane, across, along, centre; };\n"          \
    "layout(std140) uniform Frame {\n"                                                                       \
    "    mat4 view, shadow;\n"                                                                               \
    "    vec4 right, up, ahead, eye, ambient, sky, room_low, room_high, counts;\n"                           \
    "    Light lights[12];\n"                                                                                \
    "    vec4 blobs[16];\n"                                                                                  \
    "};\n"
static_assert(SHADER_LIGHTS_MAX == 12 && SHADER_BLOBS_MAX * 2 == 16, "the text above says the same");

// What is seen at each texel, before light: PATTERN is defined as the pattern's number. Four words:
//   x  metres ahead of the lens, as a float's bits; 0: nothing
//   y  normal: octahedral, two signed numbers of 16 bits
//   z  reflectance in four bands, square roots of 8 bits
//   w  row of the material (11 bits), object and 1 (10), gloss (5), through (5), 1 for a screen
extern const char shader_surface_vertex[], shader_surface_fragment[];
// From those words to light. ADD_LIGHTS is defined as calls of add_light(lights[i], lobe, windowed, lit) for each
// lamp; LOBE_BARE, LOBE_LAMBERT and LOBE_SPOT as three numbers.
extern const char shader_light_vertex[], shader_light_fragment[];
extern const char shader_shadow_vertex[], shader_shadow_fragment[]; // for the shadow map

#endif
