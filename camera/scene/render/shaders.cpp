// The shaders. Luminance of a point = reflectance / pi x light that falls on it + gloss + what it emits.
//
// Where the approximations come from:
// - A lamp of radius r seen square on lights a point at distance d with I / (d^2 + r^2): exact for a disc that shines
//   by Lambert's law, on its axis (J. H. Lambert, Photometria, 1760); it keeps a point lamp finite too.
// - The cone of an LED is a power of the cosine, I = I0 cos^m, with m = ln 0.5 / ln cos(half angle): the generalized
//   Lambertian pattern (I. Moreno, C.-C. Sun, Modeling the radiation pattern of LEDs, 2008). A surface that shines by
//   Lambert's law has m = 1, a bare lamp m = 0.
// - Large lamps light beyond the edge of what faces them: n.l is wrapped by the sine of the angle under which the
//   lamp's radius is seen.
// - Gloss: Blinn's lobe with the factor (e + 8) / (8 pi) that keeps its energy (T. Akenine-Moeller, E. Haines,
//   Real-Time Rendering), and Schlick's approximation of Fresnel's law from 0.04.
// - Light from everywhere is darkened near the room's edges, where walls see each other instead of the room, and below
//   and beside what stands about (the share of the sky that a sphere covers, r^2 / d^2 cos).
#include "shaders.h"

#define FRAME                                                                                                \
    "precision highp float;\n"                                                                               \
    "struct Light { vec4 position, direction, strength, extent, plane, across, along, centre; };\n"          \
    "layout(std140) uniform Frame {\n"                                                                       \
    "    mat4 view, shadow;\n"                                                                               \
    "    vec4 eye, ambient, room_low, room_high, counts;\n"                                                  \
    "    Light lights[12];\n"                                                                                \
    "    vec4 blobs[16];\n"                                                                                  \
    "};\n"
static_assert(SHADER_LIGHTS_MAX == 12 && SHADER_BLOBS_MAX * 2 == 16, "the text above says the same");

const char shader_vertex[] = FRAME R"(
layout(location = 0) in vec3 position;
layout(location = 1) in vec3 normal;
layout(location = 2) in vec2 surface;
layout(location = 3) in uvec2 numbers; // material, object
uniform highp sampler2D materials;
out vec3 v_position, v_normal;
out vec2 v_surface;
out vec4 v_shadow;
flat out vec4 v_first, v_second, v_emission, v_ways;
flat out float v_object;
void main()
{
    int row = int(numbers.x);
    v_first = texelFetch(materials, ivec2(0, row), 0);
    v_second = texelFetch(materials, ivec2(1, row), 0);
    v_emission = texelFetch(materials, ivec2(2, row), 0);
    v_ways = texelFetch(materials, ivec2(3, row), 0);
    v_position = position;
    v_normal = normal;
    v_surface = surface;
    v_object = float(numbers.y);
    v_shadow = shadow * vec4(position + normal * counts.z, 1.0);
    gl_Position = view * vec4(position, 1.0);
}
)";

const char shader_fragment[] = FRAME R"(
precision highp int;
precision highp sampler2DShadow;
in vec3 v_position, v_normal;
in vec2 v_surface;
in vec4 v_shadow;
flat in vec4 v_first, v_second, v_emission, v_ways;
flat in float v_object;
uniform sampler2DShadow shadow_map;
layout(location = 0) out vec4 light;

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
    vec4 first = v_first, emission = v_emission;
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
    emission.rgb *= (0.25 + 1.2 * hash(ivec2(11, 0), scene)) * shown * 1.6;
    emission.a *= dot(shown, vec3(0.4, 0.4, 0.2));
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

    vec3 n = normalize(v_normal), to_eye = normalize(eye.xyz - v_position);

    // What comes from everywhere.
    vec3 edge = exp2(min(v_position - room_low.xyz, room_high.xyz - v_position) * -5.0) * (1.0 - abs(n));
    float open = 1.0 - 0.35 * min(edge.x + edge.y + edge.z, 1.0);
    for (int i = 0; i < int(counts.w); i++) {
        vec4 blob = blobs[2 * i];
        vec3 d = (blob.xyz - v_position) * blobs[2 * i + 1].xyz;
        float square = max(dot(d, d), 1.0);
        float cover = max(dot(n, blob.xyz - v_position), 0.0) * inversesqrt(dot(blob.xyz - v_position, blob.xyz - v_position) + 1e-4);
        open *= 1.0 - (blob.w == v_object ? 0.0 : 0.75) * cover / (square * square);
    }
    vec4 falls = ambient * (open * (1.0 + 0.2 * n.z));

    float lit = 1.0;
    if (counts.y > 0.0) {
        // Two taps of four texels, turned from pixel to pixel of a block of 2 x 2: the picture is drawn at twice
        // its size, so that a pixel of it sees eight.
        vec3 place = v_shadow.xyz / v_shadow.w * 0.5 + 0.5;
        vec2 turn = vec2(fract(gl_FragCoord.x * 0.5) < 0.5 ? 1.0 : -1.0, fract(gl_FragCoord.y * 0.5) < 0.5 ? 1.0 : -1.0);
        vec2 reach = turn * lights[0].extent.z;
        float sum = texture(shadow_map, vec3(place.xy + reach * vec2(1.0, 0.35), place.z));
        sum += texture(shadow_map, vec3(place.xy - reach * vec2(0.35, 0.9), place.z));
        vec2 rim = clamp(8.0 - 16.0 * abs(place.xy - 0.5), 0.0, 1.0);
        lit = v_shadow.w > 0.0 && place.z < 1.0 ? mix(1.0, sum * 0.5, rim.x * rim.y) : 1.0;
    }
    float through = v_ways.z, gloss = v_ways.y, power = exp2(3.0 + 7.0 * gloss);
    vec4 shine = vec4(0.0);
    for (int i = 0; i < int(counts.x); i++) {
        vec3 to_light = lights[i].position.xyz - v_position * lights[i].position.w;
        float square = dot(to_light, to_light);
        vec3 l = to_light * inversesqrt(square);
        float radius = lights[i].extent.x;
        float inverse = 1.0 / (square + radius);
        float wrap = sqrt(radius * inverse);
        float facing = dot(n, l);
        float cone = exp2(lights[i].direction.w * log2(max(dot(l, -lights[i].direction.xyz), 1e-6)));
        float share = inverse * cone * lit;
        if (lights[i].extent.y > 0.0) {
            float far = (lights[i].plane.w - dot(lights[i].plane.xyz, v_position)) / dot(lights[i].plane.xyz, l);
            vec3 crossing = v_position + l * far - lights[i].centre.xyz;
            float soft = 0.012 * abs(far) + 0.005;
            float a = lights[i].across.w * (1.0 - abs(dot(crossing, lights[i].across.xyz)));
            float b = lights[i].along.w * (1.0 - abs(dot(crossing, lights[i].along.xyz)));
            share *= far > 0.0 ? clamp(a / soft + 0.5, 0.0, 1.0) * clamp(b / soft + 0.5, 0.0, 1.0) : 0.0;
        }
        float front = max((facing + wrap) / (1.0 + wrap), 0.0);
        float strength = share * (front + through * max(-facing, 0.0));
        falls += lights[i].strength * strength;
        vec3 middle = normalize(l + to_eye);
        shine += lights[i].strength * (share * front * exp2(power * log2(max(dot(n, middle), 1e-6))));
        lit = 1.0;
    }
    float grazing = 1.0 - max(dot(n, to_eye), 0.0);
    float mirror = 0.04 + 0.96 * grazing * grazing * grazing * grazing * grazing;
    light = first * falls * 0.318310 + emission + gloss * mirror * (shine * ((power + 8.0) * 0.0398) + ambient * 0.2);
}
)";

const char shader_depth_vertex[] = FRAME R"(
layout(location = 0) in vec3 position;
void main()
{
    gl_Position = shadow * vec4(position, 1.0);
}
)";
const char shader_depth_fragment[] = R"(
precision highp float;
void main() {}
)";

const char shader_actor_vertex[] = FRAME R"(
layout(location = 0) in vec3 position;
layout(location = 4) in uint actor;
flat out float v_actor;
void main()
{
    v_actor = float(actor);
    gl_Position = view * vec4(position, 1.0);
}
)";
const char shader_actor_fragment[] = R"(
precision highp float;
flat in float v_actor;
layout(location = 0) out vec4 light;
void main()
{
    light = vec4(v_actor);
}
)";
