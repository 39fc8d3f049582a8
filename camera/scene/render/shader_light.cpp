// Light. Luminance of a point = reflectance / pi x light that falls on it + gloss + what it emits.
//
// Where the approximations come from:
// - A lamp of radius r seen square on lights a point at distance d with I / (d^2 + r^2): exact for a disc that shines
//   by Lambert's law, on its axis (J. H. Lambert, Photometria, 1760); it keeps a point lamp finite too.
// - Lobes are exp(m (cos - 1)), a Gaussian on the sphere (J. Wang et al., All-frequency rendering of dynamic,
//   spatially-varying reflectance, 2009): near the axis it is cos^m, the usual pattern of an LED, and takes one
//   exponential. For a cone m = ln 2 / (1 - cos(half angle)), so that it falls to half there.
// - Large lamps light beyond the edge of what faces them: n.l is wrapped by the sine of the angle under which the
//   lamp's radius is seen.
// - Gloss: Blinn's lobe, as a Gaussian too, with the factor (e + 8) / (8 pi) that keeps its energy (T. Akenine-Moeller, E. Haines,
//   Real-Time Rendering), and Schlick's approximation of Fresnel's law from 0.04.
// - Light from everywhere is darkened near the room's edges, where walls see each other instead of the room, and below
// and beside what stands about (the share of the sky that a sphere covers, r^2 / d^2 cos).
//
// Lamps and blobs are written out one by one (ADD_LIGHTS is defined as calls of add_light) instead of in loops: with
// a number that changes, the software rasteriser fetches each uniform for each texel, which costs five times the sum.
#include "shaders.h"

const char shader_light_vertex[] = SHADER_FRAME R"(
out vec3 v_ray;
void main()
{
    // One triangle that covers everything.
    vec2 at = vec2(gl_VertexID == 1 ? 3.0 : -1.0, gl_VertexID == 2 ? 3.0 : -1.0);
    v_ray = ahead.xyz + right.xyz * at.x + up.xyz * at.y;
    gl_Position = vec4(at, 0.0, 1.0);
}
)";

const char shader_light_fragment[] = SHADER_FRAME R"(
precision highp usampler2D;
precision highp sampler2DShadow;
in vec3 v_ray;
uniform usampler2D surfaces;
uniform sampler2D materials;
uniform sampler2DShadow shadow_map;
layout(location = 0) out vec4 light;

// What the point and its surface are to every lamp.
vec3 at, n, to_eye;
float gloss, through, power;
vec4 falls, shine; // gathered from lamps

void add_light(Light lamp, int lobe, bool windowed, float lit)
{
    vec3 to_light = lamp.position.xyz - at * lamp.position.w;
    float square = dot(to_light, to_light);
    vec3 l = to_light * inversesqrt(square);
    float radius = lamp.extent.x;
    float inverse = 1.0 / (square + radius);
    float wrap = sqrt(radius * inverse);
    float facing = dot(n, l), share = inverse * lit;
    if (lobe == LOBE_LAMBERT)
        share *= max(-dot(l, lamp.direction.xyz), 0.0);
    if (lobe == LOBE_SPOT)
        share *= exp2(lamp.direction.w * (dot(l, lamp.direction.xyz) + 1.0));
    if (windowed) {
        float far = (lamp.plane.w - dot(lamp.plane.xyz, at)) / dot(lamp.plane.xyz, l);
        vec3 crossing = at + l * far - lamp.centre.xyz;
        float soft = 1.0 / (0.012 * abs(far) + 0.005);
        float a = lamp.across.w * (1.0 - abs(dot(crossing, lamp.across.xyz)));
        float b = lamp.along.w * (1.0 - abs(dot(crossing, lamp.along.xyz)));
        share *= far > 0.0 ? clamp(a * soft + 0.5, 0.0, 1.0) * clamp(b * soft + 0.5, 0.0, 1.0) : 0.0;
    }
    float front = max((facing + wrap) / (1.0 + wrap), 0.0);
    falls += lamp.strength * (share * (front + through * max(-facing, 0.0)));
    vec3 middle = normalize(l + to_eye);
    shine += lamp.strength * (share * front * exp2(power * (dot(n, middle) - 1.0)));
}

// What a blob leaves open of what comes from everywhere.
float beside(vec4 blob, vec3 inverse, float object)
{
    vec3 d = (blob.xyz - at) * inverse;
    float square = max(dot(d, d), 1.0), cover = max(dot(n, d), 0.0) / square;
    return 1.0 - (blob.w == object ? 0.0 : 0.7 * min(cover, 1.0));
}

float shadow_here(void)
{
    // One tap of four texels, at another place for each texel of a block of 2 x 2: the picture is drawn at about twice its
    // size, so that a pixel of it sees them all.
    vec4 seen_by_lamp = shadow * vec4(at + n * counts.z, 1.0);
    vec3 place = seen_by_lamp.xyz / seen_by_lamp.w * 0.5 + 0.5;
    vec2 turn = fract(gl_FragCoord.xy * 0.5) * 4.0 - 2.0; // -1 and 1
    vec2 reach = vec2(turn.x + turn.y * 0.4, turn.y - turn.x * 0.4) * lights[0].extent.z;
    float open = texture(shadow_map, vec3(place.xy + reach, place.z));
    vec2 rim = clamp(8.0 - 16.0 * abs(place.xy - 0.5), 0.0, 1.0);
    return seen_by_lamp.w > 0.0 && place.z < 1.0 ? mix(1.0, open, rim.x * rim.y) : 1.0;
}

void main()
{
    uvec4 seen = texelFetch(surfaces, ivec2(gl_FragCoord.xy), 0);
    at = eye.xyz + v_ray * uintBitsToFloat(seen.x);
    n = vec3(unpackSnorm2x16(seen.y), 0.0);
    n.z = 1.0 - abs(n.x) - abs(n.y);
    float fold = max(-n.z, 0.0);
    n.xy += vec2(n.x < 0.0 ? fold : -fold, n.y < 0.0 ? fold : -fold);
    n = normalize(n);
    vec4 first = vec4(uvec4(seen.z, seen.z >> 8, seen.z >> 16, seen.z >> 24) & 255u) * (1.0 / 255.0);
    first *= first;
    float object = float((seen.w >> 11) & 1023u);
    gloss = float((seen.w >> 21) & 31u) * (1.0 / 31.0);
    through = float((seen.w >> 26) & 31u) * (1.0 / 31.0);
    vec4 emission = texelFetch(materials, ivec2(2, int(seen.w & 2047u)), 0);
    if (seen.w >> 31 != 0u) {
        emission *= first * 2.4;
        first = vec4(0.03);
    }
    to_eye = -normalize(v_ray);

    // What comes from everywhere.
    vec3 edge = clamp(1.0 - 1.6 * min(at - room_low.xyz, room_high.xyz - at), 0.0, 1.0);
    edge *= edge * (1.0 - abs(n));
    float open = 1.0 - 0.35 * min(edge.x + edge.y + edge.z, 1.0);
    open *= beside(blobs[0], blobs[1].xyz, object) * beside(blobs[2], blobs[3].xyz, object) *
            beside(blobs[4], blobs[5].xyz, object) * beside(blobs[6], blobs[7].xyz, object) *
            beside(blobs[8], blobs[9].xyz, object) * beside(blobs[10], blobs[11].xyz, object) *
            beside(blobs[12], blobs[13].xyz, object) * beside(blobs[14], blobs[15].xyz, object);
    falls = ambient * (open * (1.0 + 0.2 * n.z));

    power = exp2(3.0 + 7.0 * gloss) * 1.442695;
    shine = vec4(0.0);
    ADD_LIGHTS
    float grazing = 1.0 - max(dot(n, to_eye), 0.0);
    float mirror = 0.04 + 0.96 * grazing * grazing * grazing * grazing * grazing;
    light = seen.x == 0u ? sky
                         : first * falls * 0.318310 + emission +
                               gloss * mirror * (shine * (power * 0.0276 + 0.318) + ambient * 0.2);
}
)";
