// What is seen: patterns, reflectance and normals, before any light.
//
// Patterns are made here and not by meshes, so that meshes stay small. Each fades to its mean where it is finer than
// the texels that show it.
#include "shaders.h"

const char shader_surface_vertex[] = SHADER_FRAME R"(
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec2 surface;
layout(location = 3) in uvec2 numbers; // material, object
uniform sampler2D materials;
out vec4 v_normal; // w: metres ahead
out vec2 v_surface;
flat out vec4 v_first, v_second, v_ways;
flat out uvec2 v_numbers;
void main()
{
    int row = int(numbers.x);
    v_first = texelFetch(materials, ivec2(0, row), 0);
    v_second = texelFetch(materials, ivec2(1, row), 0);
    v_ways = texelFetch(materials, ivec2(3, row), 0);
    v_surface = surface;
    v_numbers = numbers;
    gl_Position = view * vec4(position, 1.0);
    v_normal = vec4(normal, gl_Position.w);
}
)";

const char shader_surface_fragment[] = SHADER_FRAME R"(
in vec4 v_normal;
in vec2 v_surface;
flat in vec4 v_first, v_second, v_ways;
flat in uvec2 v_numbers;
layout(location = 0) out uvec4 seen;

float hash(ivec2 p, uint seed)
{
    uint h = uint(p.x) * 0x9e3779b1u ^ uint(p.y) * 0x85ebca77u ^ seed * 0xc2b2ae3du;
    h ^= h >> 15;
    h *= 0x2c1b3c6du;
    h ^= h >> 13;
    return float(h & 0xffffffu) * (1.0 / 16777216.0);
}
float clouds(vec2 p, uint seed)
{
    vec2 whole = floor(p), part = p - whole;
    ivec2 i = ivec2(whole);
    part = part * part * (3.0 - 2.0 * part);
    return mix(mix(hash(i, seed), hash(i + ivec2(1, 0), seed), part.x),
               mix(hash(i + ivec2(0, 1), seed), hash(i + ivec2(1, 1), seed), part.x), part.y);
}
// 0 and 1 in turn, half a period each, with edges as soft as `width` periods to a pixel.
float bands(float x, float width)
{
    float w = clamp(width, 0.02, 1.0);
    float saw = abs(fract(x) - 0.5) * 2.0;
    return mix(clamp((saw - 0.5) / w + 0.5, 0.0, 1.0), 0.5, smoothstep(0.6, 1.0, w));
}
// Of a figure that is inside where `d` is negative.
float inside(float d, float width)
{
    return clamp(0.5 - d / max(width, 1e-4), 0.0, 1.0);
}
float ellipse(vec2 p, vec2 centre, vec2 half_axes)
{
    vec2 q = (p - centre) / half_axes;
    return (length(q) - 1.0) * min(half_axes.x, half_axes.y);
}
float box(vec2 p, vec2 centre, vec2 half_sides)
{
    vec2 q = abs(p - centre) - half_sides;
    return max(q.x, q.y);
}

void main()
{
    vec4 first = v_first;
    vec2 at = v_surface;
    uint seed = uint(v_ways.w);
#if PATTERN >= 1 && PATTERN <= 8
    at /= v_ways.x;
#endif
#if PATTERN != 0
    vec2 step = abs(dFdx(at)) + abs(dFdy(at));
    float blur = max(step.x, step.y);
#endif
#if PATTERN == 1
    first = mix(first, v_second, bands(at.x, step.x));
#elif PATTERN == 2
    first = mix(first, v_second, bands(at.y, step.y));
#elif PATTERN == 3
    float u = bands(at.x * 0.5, step.x * 0.5), v = bands(at.y * 0.5, step.y * 0.5);
    first = mix(first, v_second, u + v - 2.0 * u * v);
#elif PATTERN == 4
    first = mix(first, v_second, (bands(at.x, step.x) + bands(at.y, step.y)) * 0.5);
#elif PATTERN == 5
    vec2 dot_at = fract(at) - 0.5;
    first = mix(first, v_second, mix(inside(length(dot_at) - 0.28, blur), 0.25, smoothstep(0.5, 1.0, blur)));
#elif PATTERN == 6
    float cloud = clouds(at, seed) * 0.6 + clouds(at * 3.1, seed + 7u) * 0.4;
    first = mix(first, v_second, mix(cloud, 0.5, smoothstep(0.5, 2.0, blur)));
#elif PATTERN == 7
    float board = floor(at.y), shade = hash(ivec2(int(board), 3), seed);
    float grain = clouds(vec2(at.x * 0.7 + shade * 40.0, at.y * 9.0), seed);
    float seam = mix(inside(abs(fract(at.y) - 0.5) - 0.47, step.y + 0.02), 0.95, smoothstep(0.3, 0.8, step.y));
    float wood = mix(grain * 0.6, 0.3, smoothstep(0.1, 0.4, step.y)) + shade * 0.4;
    first = mix(first, v_second, wood) * (0.55 + 0.45 * seam);
#elif PATTERN == 8
    float thread = (bands(at.x, step.x) + bands(at.y, step.y)) * 0.5;
    float worn = clouds(at * 0.15, seed);
    first = mix(first, v_second, mix(thread, 0.5, smoothstep(0.3, 0.8, blur)) * 0.6 + worn * 0.4);
#elif PATTERN == 9
    // Scenes of a few seconds that cut into each other: a horizon, and blocks that drift before it.
    float now = eye.w, cut = floor(now / 3.7 + hash(ivec2(seed, 1), 5u));
    uint scene = uint(int(cut)) * 2654435761u + seed;
    float drift = (now - cut * 3.7) * (hash(ivec2(1, 2), scene) - 0.5) * 0.2;
    float horizon = 0.3 + 0.4 * hash(ivec2(2, 2), scene);
    vec3 upper = vec3(hash(ivec2(3, 0), scene), hash(ivec2(3, 1), scene), hash(ivec2(3, 2), scene));
    vec3 lower = vec3(hash(ivec2(4, 0), scene), hash(ivec2(4, 1), scene), hash(ivec2(4, 2), scene));
    vec3 shown = mix(lower * 0.6, upper, smoothstep(-0.05, 0.05, at.y - horizon));
    for (int i = 0; i < 3; i++) {
        vec2 middle = vec2(hash(ivec2(5, i), scene), hash(ivec2(6, i), scene));
        middle += drift * float(i + 1) + 0.03 * sin(now * (1.0 + 2.0 * hash(ivec2(7, i), scene)));
        vec2 half_sides = 0.06 + 0.2 * vec2(hash(ivec2(8, i), scene), hash(ivec2(9, i), scene));
        float tone = hash(ivec2(10, i), scene);
        shown = mix(shown, mix(upper.zxy, lower.yzx, tone) * (0.3 + tone),
                    inside(ellipse(at, fract(middle), half_sides), 0.03));
    }
    first = vec4(shown, dot(shown, vec3(0.4, 0.4, 0.2))) * (0.25 + 1.2 * hash(ivec2(11, 0), scene)) * (1.6 / 2.4);
#elif PATTERN == 10
    vec3 paper = mix(first.rgb, v_second.rgb, 0.25);
    first.rgb = mix(paper, v_second.rgb, smoothstep(-0.1, 0.1, 0.2 + 0.15 * sin(at.x * 5.0 + float(seed & 7u)) - at.y));
    for (int i = 0; i < 4; i++) {
        vec2 middle = vec2(hash(ivec2(5, i), seed), hash(ivec2(6, i), seed)) * 0.8 + 0.1;
        vec2 half_sides = 0.05 + 0.18 * vec2(hash(ivec2(8, i), seed), hash(ivec2(9, i), seed));
        vec3 colour = vec3(hash(ivec2(3, i), seed), hash(ivec2(4, i), seed), hash(ivec2(7, i), seed));
        float figure = (i & 1) == 0 ? ellipse(at, middle, half_sides) : box(at, middle, half_sides);
        first = mix(first, vec4(colour * 0.7 + 0.05, 0.5), inside(figure, step.x + step.y));
    }
    first = mix(vec4(0.7), first, inside(box(at, vec2(0.5), vec2(0.45)), step.x + step.y));
#elif PATTERN == 11
    // A man in a shirt and trousers, 0.9 of the sheet high.
    float w = step.x + step.y, tone = hash(ivec2(1, 1), seed);
    vec4 skin = vec4(0.62, 0.42, 0.32, 0.6), hair = vec4(0.06, 0.045, 0.035, 0.25);
    vec4 shirt = v_second, trousers = vec4(0.07, 0.08, 0.13, 0.35) * (0.7 + tone);
    first = mix(first, first * 0.75, smoothstep(0.2, 0.0, at.y));
    first = mix(first, trousers * 0.4, inside(box(at, vec2(0.42, 0.065), vec2(0.055, 0.02)), w));
    first = mix(first, trousers * 0.4, inside(box(at, vec2(0.58, 0.065), vec2(0.055, 0.02)), w));
    first = mix(first, trousers, inside(box(at, vec2(0.43, 0.28), vec2(0.06, 0.21)), w));
    first = mix(first, trousers * 0.9, inside(box(at, vec2(0.57, 0.28), vec2(0.06, 0.21)), w));
    first = mix(first, skin, inside(ellipse(at, vec2(0.275, 0.43), vec2(0.032, 0.03)), w));
    first = mix(first, skin, inside(ellipse(at, vec2(0.725, 0.43), vec2(0.032, 0.03)), w));
    first = mix(first, shirt * 0.85, inside(ellipse(at, vec2(0.305, 0.6), vec2(0.055, 0.17)), w));
    first = mix(first, shirt * 0.8, inside(ellipse(at, vec2(0.695, 0.6), vec2(0.055, 0.17)), w));
    first = mix(first, shirt, inside(box(at, vec2(0.5, 0.6), vec2(0.155, 0.135)), w));
    first = mix(first, shirt, inside(ellipse(at, vec2(0.5, 0.72), vec2(0.21, 0.05)), w));
    first = mix(first, skin * 0.9, inside(box(at, vec2(0.5, 0.78), vec2(0.045, 0.035)), w));
    first = mix(first, hair, inside(ellipse(at, vec2(0.5, 0.875), vec2(0.085, 0.068)), w));
    first = mix(first, skin, inside(ellipse(at, vec2(0.5, 0.855), vec2(0.07, 0.06)), w));
    first = mix(first, hair, inside(box(at, vec2(0.47, 0.865), vec2(0.014, 0.004)), w));
    first = mix(first, hair, inside(box(at, vec2(0.53, 0.865), vec2(0.014, 0.004)), w));
    first = mix(first, skin * 0.5, inside(box(at, vec2(0.5, 0.825), vec2(0.02, 0.004)), w));
#endif

    vec2 n = v_normal.xy / (abs(v_normal.x) + abs(v_normal.y) + abs(v_normal.z));
    if (v_normal.z < 0.0)
        n = (1.0 - abs(n.yx)) * vec2(n.x < 0.0 ? -1.0 : 1.0, n.y < 0.0 ? -1.0 : 1.0);
    uvec4 root = uvec4(sqrt(clamp(first, 0.0, 1.0)) * 255.0 + 0.5);
    uvec2 ways = uvec2(v_ways.yz * 31.0 + 0.5);
    seen.x = floatBitsToUint(v_normal.w);
    seen.y = packSnorm2x16(n);
    seen.z = root.x | root.y << 8 | root.z << 16 | root.w << 24;
    seen.w = v_numbers.x | v_numbers.y << 11 | ways.x << 21 | ways.y << 26 | (PATTERN == 9 ? 1u << 31 : 0u);
}
)";
