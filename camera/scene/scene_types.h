// What the parts of the rendered world hand to each other: vectors, meshes, materials, lights, the view, and the
// snapshot of one moment. The makers of people, things and rooms fill it; the renderer and the truth only read it.
//
// Units and axes: metres, seconds, degrees for what people set and radians nowhere outside a formula. x to the
// right, y into the room, z up; right-handed; the floor is z = 0. A heading of 0 looks along +y, and headings grow
// clockwise as seen from above (90 looks along +x).
//
// Light comes in four bands: red, green, blue, near infrared. Visible bands are linear and scaled so that
// 0.2126 r + 0.7152 g + 0.0722 b is photometric (lux, candela). The infrared band is scaled so that the camera's
// sensor, with no filter before it, answers one unit of it as it answers one lux of white light.
#ifndef SCENE_TYPES_H
#define SCENE_TYPES_H

#include <math.h>
#include <stdint.h>
#include <vector>

enum scene_band { BAND_RED, BAND_GREEN, BAND_BLUE, BAND_INFRARED, BANDS };

struct scene_vec {
    float x, y, z;
};

inline scene_vec operator+(scene_vec a, scene_vec b)
{
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline scene_vec operator-(scene_vec a, scene_vec b)
{
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline scene_vec operator*(scene_vec a, float s)
{
    return {a.x * s, a.y * s, a.z * s};
}
inline float scene_dot(scene_vec a, scene_vec b)
{
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline scene_vec scene_cross(scene_vec a, scene_vec b)
{
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float scene_length(scene_vec a)
{
    return sqrtf(scene_dot(a, a));
}
inline scene_vec scene_unit(scene_vec a)
{
    const float length = scene_length(a);
    return length > 0 ? a * (1 / length) : scene_vec{0, 0, 1};
}

// Rotation and place: p -> (x axis) p.x + (y axis) p.y + (z axis) p.z + origin. No scale, no shear, so that normals
// turn like points.
struct scene_place {
    scene_vec x = {1, 0, 0}, y = {0, 1, 0}, z = {0, 0, 1}, origin = {0, 0, 0};
};

inline scene_vec scene_turn(const scene_place &place, scene_vec v)
{
    return place.x * v.x + place.y * v.y + place.z * v.z;
}
inline scene_vec scene_put(const scene_place &place, scene_vec v)
{
    return scene_turn(place, v) + place.origin;
}
// Standing upright at `at`, looking `heading` degrees from +y, clockwise from above.
inline scene_place scene_standing(scene_vec at, float heading)
{
    const float a = heading * static_cast<float>(M_PI / 180), c = cosf(a), s = sinf(a);
    return {{c, -s, 0}, {s, c, 0}, {0, 0, 1}, at};
}

struct scene_vertex {
    scene_vec position, normal; // the normal of unit length
    float u, v;                 // metres along the surface where the pattern is to keep its size; else 0 to 1
    uint32_t material;          // index into the object's materials
};

// Triangles are triples of `indices`, counter-clockwise as seen from outside.
struct scene_mesh {
    std::vector<scene_vertex> vertices;
    std::vector<uint32_t> indices;
};

enum scene_pattern : int {
    PATTERN_PLAIN,
    PATTERN_STRIPES_U, // bands across u, half `first`, half `second`
    PATTERN_STRIPES_V,
    PATTERN_CHECKS, // squares
    PATTERN_PLAID,  // stripes of both, mixed
    PATTERN_DOTS,
    PATTERN_NOISE,   // cloudy mixture: carpet, plaster, foliage
    PATTERN_WOOD,    // grain along u, in boards across v
    PATTERN_WEAVE,   // fine texture of cloth
    PATTERN_SCREEN,  // a moving picture: `time` of the snapshot drives it; emitted, not reflected
    PATTERN_PICTURE, // a still picture with shapes, drawn from `seed`
    PATTERN_PERSON,  // a still picture of a standing person: a poster, u and v from 0 to 1
    PATTERNS
};

struct scene_material {
    float first[BANDS] = {0.5f, 0.5f, 0.5f, 0.5f};  // reflectance, 0 to 1
    float second[BANDS] = {0.5f, 0.5f, 0.5f, 0.5f}; // the pattern's other reflectance
    float emission[BANDS] = {0, 0, 0, 0};           // candela per square metre and its like
    scene_pattern pattern = PATTERN_PLAIN;
    float size = 0.1f; // the pattern's period in units of u and v
    float gloss = 0;   // 0 matt to 1 polished
    float through = 0; // share of light from behind that comes through: curtains, lamp shades
    uint32_t seed = 0;
};

// Something to draw. What it points to is owned by its maker and lives until the next snapshot is made.
struct scene_object {
    const scene_mesh *mesh = nullptr;
    scene_place place;
    const std::vector<scene_material> *materials = nullptr;
    uint32_t actor = 0;     // 0: the room; else the number of the actor in the snapshot, from 1
    bool moves = false;     // its mesh's vertices change from one snapshot to the next
    bool shadow = true;     // stands in the way of light
    bool two_sided = false; // seen from behind too (curtain, leaf)
};

enum scene_light_kind {
    LIGHT_POINT, // lamp: `strength` in candela in every direction
    LIGHT_SPOT,  // LED, headlight: `strength` on the axis, falling to half at `half_angle` degrees off it
    LIGHT_SUN,   // parallel, along `direction`: `strength` in lux on a surface across it
    LIGHT_AREA, // window's sky or a television: a lit rectangle of `size`, `strength` candela straight ahead of it
};

struct scene_light {
    scene_light_kind kind = LIGHT_POINT;
    scene_vec position = {0, 0, 0},
              direction = {0, 0, -1}; // the direction in which the light goes, unit length
    float strength[BANDS] = {0, 0, 0, 0};
    float half_angle = 30;
    float size[2] = {0.1f, 0.1f}; // metres; of an area, or the lamp's own (softness of its shadow)
    scene_vec window_centre = {0, 0, 0}, window_u = {0, 0, 0}, window_v = {0, 0, 0};
    bool through_window = false; // only what passes the window's rectangle (centre, half sides) comes in
    int shadow = 0; // how much its shadow matters; the renderer draws that of the greatest. 0: none
};

// Where the camera is and where it looks. Pan grows to the right, tilt grows upwards.
struct scene_view {
    scene_vec position = {0, 0, 2};
    float pan = 0, tilt = 0; // degrees; pan 0 looks along +y
    float width_angle = 90;  // degrees from the left edge to the right one through the middle of the picture
    float distortion = -0.08f; // of the lens: r' = r (1 + distortion r^2), r = 1 at the left and right edge
    float focus = 3;           // metres at which it is sharpest
};

// What the sensor is set to. The picture's exposure follows by itself when exposure_us is 0.
struct scene_optics {
    bool filter = true; // IR-cut filter before the sensor
    bool grey = false;  // the ISP gives a picture without colour
    uint32_t exposure_us = 0;
    float gain = 1;
    int jpeg_quality = 0; // 1 to 100: artefacts of compression; 0: none
};

// One moment of the world.
struct scene_snapshot {
    double time = 0; // seconds
    std::vector<scene_object> objects;
    std::vector<scene_light> lights;
    float ambient[BANDS] = {0, 0, 0, 0}; // light from everywhere, lux: what walls give back
    float sky[BANDS] = {0, 0, 0, 0};     // luminance of what is behind the window, candela per square metre
    scene_view view;
    scene_optics optics;
};

// A number generator of our own, so that a seed means the same everywhere: splitmix64.
struct scene_random {
    uint64_t state;
};
inline uint64_t scene_next(scene_random *random)
{
    uint64_t z = random->state += UINT64_C(0x9e3779b97f4a7c15);
    z = (z ^ (z >> 30)) * UINT64_C(0xbf58476d1ce4e5b9);
    z = (z ^ (z >> 27)) * UINT64_C(0x94d049bb133111eb);
    return z ^ (z >> 31);
}
// From `low` to below `high`.
inline float scene_uniform(scene_random *random, float low, float high)
{
    return low + (high - low) * static_cast<float>(scene_next(random) >> 40) * (1.f / (1 << 24));
}
inline bool scene_chance(scene_random *random, float share)
{
    return scene_uniform(random, 0, 1) < share;
}

#endif
