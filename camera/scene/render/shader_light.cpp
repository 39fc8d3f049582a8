// Light. Luminance of a point = reflectance / pi x light that falls on it + gloss + what it emits.
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

void main()
{
    uvec4 seen = texelFetch(surfaces, ivec2(gl_FragCoord.xy), 0);
    vec3 at = eye.xyz + v_ray * uintBitsToFloat(seen.x);
    vec3 n = vec3(unpackSnorm2x16(seen.y), 0.0);
    n.z = 1.0 - abs(n.x) - abs(n.y);
    float fold = max(-n.z, 0.0);
    n.xy += vec2(n.x < 0.0 ? fold : -fold, n.y < 0.0 ? fold : -fold);
    n = normalize(n);
    vec4 first = vec4(uvec4(seen.z, seen.z >> 8, seen.z >> 16, seen.z >> 24) & 255u) * (1.0 / 255.0);
    first *= first;
    float object = float((seen.w >> 11) & 1023u);
    float gloss = float((seen.w >> 21) & 31u) * (1.0 / 31.0), through = float((seen.w >> 26) & 31u) * (1.0 / 31.0);
    vec4 emission = texelFetch(materials, ivec2(2, int(seen.w & 2047u)), 0);
    if (seen.w >> 31 != 0u) {
        emission *= first * 2.4;
        first = vec4(0.03);
    }
    vec3 to_eye = -normalize(v_ray);

    // What comes from everywhere.
    vec3 edge = exp2(min(at - room_low.xyz, room_high.xyz - at) * -5.0) * (1.0 - abs(n));
    float open = 1.0 - 0.35 * min(edge.x + edge.y + edge.z, 1.0);
    for (int i = 0; i < int(counts.w); i++) {
        vec4 blob = blobs[2 * i];
        vec3 d = (blob.xyz - at) * blobs[2 * i + 1].xyz;
        float square = max(dot(d, d), 1.0);
        float cover = max(dot(n, blob.xyz - at), 0.0) * inversesqrt(dot(blob.xyz - at, blob.xyz - at) + 1e-4);
        open *= 1.0 - (blob.w == object ? 0.0 : 0.75) * cover / (square * square);
    }
    vec4 falls = ambient * (open * (1.0 + 0.2 * n.z));

    float lit = 1.0;
    if (counts.y > 0.0) {
        // Two taps of four texels, turned from pixel to pixel of a block of 2 x 2: the picture is drawn at twice
        // its size, so that a pixel of it sees eight.
        vec4 seen_by_lamp = shadow * vec4(at + n * counts.z, 1.0);
        vec3 place = seen_by_lamp.xyz / seen_by_lamp.w * 0.5 + 0.5;
        vec2 turn = vec2(fract(gl_FragCoord.x * 0.5) < 0.5 ? 1.0 : -1.0, fract(gl_FragCoord.y * 0.5) < 0.5 ? 1.0 : -1.0);
        vec2 reach = turn * lights[0].extent.z;
        float sum = texture(shadow_map, vec3(place.xy + reach * vec2(1.0, 0.35), place.z));
        sum += texture(shadow_map, vec3(place.xy - reach * vec2(0.35, 0.9), place.z));
        vec2 rim = clamp(8.0 - 16.0 * abs(place.xy - 0.5), 0.0, 1.0);
        lit = seen_by_lamp.w > 0.0 && place.z < 1.0 ? mix(1.0, sum * 0.5, rim.x * rim.y) : 1.0;
    }
    float power = exp2(3.0 + 7.0 * gloss);
    vec4 shine = vec4(0.0);
    for (int i = 0; i < int(counts.x); i++) {
        vec3 to_light = lights[i].position.xyz - at * lights[i].position.w;
        float square = dot(to_light, to_light);
        vec3 l = to_light * inversesqrt(square);
        float radius = lights[i].extent.x;
        float inverse = 1.0 / (square + radius);
        float wrap = sqrt(radius * inverse);
        float facing = dot(n, l);
        float cone = exp2(lights[i].direction.w * log2(max(dot(l, -lights[i].direction.xyz), 1e-6)));
        float share = inverse * cone * lit;
        if (lights[i].extent.y > 0.0) {
            float far = (lights[i].plane.w - dot(lights[i].plane.xyz, at)) / dot(lights[i].plane.xyz, l);
            vec3 crossing = at + l * far - lights[i].centre.xyz;
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
    light = seen.x == 0u ? sky : first * falls * 0.318310 + emission + gloss * mirror * (shine * ((power + 8.0) * 0.0398) + ambient * 0.2);
}
)";
