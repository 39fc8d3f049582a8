// Lamps, light from everywhere, and the shadow map's view.
#include "lighting.h"

#include <algorithm>
#include <math.h>
#include <stdio.h>
#include <string.h>

static const float PI = static_cast<float>(M_PI);

static float power_of(const scene_light &light)
{
    return light.strength[0] + light.strength[1] + light.strength[2] + light.strength[3];
}

static bool shines(const scene_light &light)
{
    return power_of(light) > 0;
}

const scene_light *lighting_key(const scene_snapshot *snapshot)
{
    const scene_light *key = nullptr;
    for (const scene_light &light : snapshot->lights)
        if (shines(light) && light.shadow > (key ? key->shadow : 0))
            key = &light;
    return key;
}

static shader_vec4 with(scene_vec v, float w)
{
    return {v.x, v.y, v.z, w};
}

// Half a side over the square of its length, so that the product with a point on it is -1 to 1; and its length.
static shader_vec4 measure(scene_vec half_side)
{
    const float square = scene_dot(half_side, half_side);
    return square > 0 ? with(half_side * (1 / square), sqrtf(square)) : shader_vec4{0, 0, 0, 0};
}

static shader_light light_of(const scene_light &light)
{
    const scene_vec way = scene_unit(light.direction);
    shader_light out = {};
    out.position = light.kind == LIGHT_SUN ? with(way * -1, 0) : with(light.position, 1);
    const float half = std::min(std::max(light.half_angle, 1.f), 85.f) * PI / 180;
    out.direction = with(way, -1 / (1 - cosf(half)));
    out.strength = {light.strength[BAND_RED], light.strength[BAND_GREEN], light.strength[BAND_BLUE],
                    light.strength[BAND_INFRARED]};
    const float area = fmaxf(light.size[0] * light.size[1], 1e-6f);
    out.extent.w = static_cast<float>(light.kind == LIGHT_SPOT   ? LOBE_SPOT
                                      : light.kind == LIGHT_AREA ? LOBE_LAMBERT
                                                                 : LOBE_BARE);
    out.extent.x = light.kind == LIGHT_SUN ? 0 : area / PI;
    if (light.through_window) {
        const scene_vec normal = scene_unit(scene_cross(light.window_u, light.window_v));
        out.extent.y = 1;
        out.plane = with(normal, scene_dot(normal, light.window_centre));
        out.across = measure(light.window_u);
        out.along = measure(light.window_v);
        out.centre = with(light.window_centre, 0);
    }
    return out;
}

// Three metres ahead of the camera: what matters of a lamp is its light there.
static float share_of(const scene_snapshot *snapshot, const scene_light &light)
{
    if (light.kind == LIGHT_SUN)
        return power_of(light);
    const scene_view &view = snapshot->view;
    const float pan = view.pan * PI / 180, tilt = view.tilt * PI / 180;
    const scene_vec ahead = {sinf(pan) * cosf(tilt), cosf(pan) * cosf(tilt), sinf(tilt)};
    const scene_vec d = view.position + ahead * 3 - light.position;
    return power_of(light) / (scene_dot(d, d) + 0.25f);
}

// Two axes across `ahead`.
static void axes_across(scene_vec ahead, scene_vec *right, scene_vec *up)
{
    const scene_vec upright = fabsf(ahead.z) < 0.95f ? scene_vec{0, 0, 1} : scene_vec{0, 1, 0};
    *right = scene_unit(scene_cross(ahead, upright));
    *up = scene_cross(*right, ahead);
}

// By columns: rows r, u, a of the camera's axes, after the step to `eye`.
static void fill_matrix(float m[16], scene_vec right, scene_vec up, scene_vec ahead, scene_vec eye)
{
    const scene_vec rows[3] = {right, up, ahead};
    for (int i = 0; i < 3; i++) {
        m[i] = rows[i].x;
        m[4 + i] = rows[i].y;
        m[8 + i] = rows[i].z;
        m[12 + i] = -scene_dot(rows[i], eye);
    }
    m[3] = m[7] = m[11] = 0;
    m[15] = 1;
}

static void scale_row(float m[16], int row, float factor, float shift)
{
    for (int i = 0; i < 4; i++)
        m[4 * i + row] *= factor;
    m[12 + row] += shift;
}

// A pinhole's: w becomes the way ahead. `tangent`: of half the angle.
static void make_perspective(float m[16], float tangent, float near, float far)
{
    for (int i = 0; i < 4; i++) {
        m[4 * i + 3] = m[4 * i + 2];
        m[4 * i] /= tangent;
        m[4 * i + 1] /= tangent;
        m[4 * i + 2] *= (far + near) / (far - near);
    }
    m[14] -= 2 * far * near / (far - near);
}

// The sun's: a box around its window, or around the room.
static void sun_matrix(const scene_light &light, const batch *batch, float m[16], float *texel)
{
    const scene_vec ahead = scene_unit(light.direction);
    scene_vec right, up;
    axes_across(ahead, &right, &up);
    float low[3] = {1e9f, 1e9f, 1e9f}, high[3] = {-1e9f, -1e9f, -1e9f};
    const scene_vec axes[3] = {right, up, ahead};
    for (int i = 0; i < 8; i++) {
        const scene_vec corner = {i & 1 ? batch->high.x : batch->low.x, i & 2 ? batch->high.y : batch->low.y,
                                  i & 4 ? batch->high.z : batch->low.z};
        const scene_vec pane = light.window_centre + light.window_u * (i & 1 ? 1.05f : -1.05f) +
                               light.window_v * (i & 2 ? 1.05f : -1.05f);
        for (int axis = 0; axis < 3; axis++) {
            const float at = scene_dot(axes[axis], axis < 2 && light.through_window ? pane : corner);
            low[axis] = fminf(low[axis], at);
            high[axis] = fmaxf(high[axis], at);
        }
    }
    low[2] -= 0.1f;
    high[2] += 0.1f;
    fill_matrix(m, right, up, ahead, {0, 0, 0});
    for (int axis = 0; axis < 3; axis++) {
        const float half = fmaxf((high[axis] - low[axis]) / 2, 1e-3f), middle = (high[axis] + low[axis]) / 2;
        scale_row(m, axis, 1 / half, -middle / half);
    }
    *texel = fmaxf(high[0] - low[0], high[1] - low[1]) / SHADOW_MAP_SIDE;
}

// A lamp's: as wide an angle as one flat map can hold, down from a lamp above heads, else towards what is seen.
static void lamp_matrix(const scene_snapshot *snapshot, const scene_light &light, float m[16], float *texel)
{
    scene_vec ahead = scene_unit(light.direction), right, up;
    float tangent = tanf(70 * PI / 180);
    if (light.kind == LIGHT_SPOT)
        tangent = tanf(fminf(light.half_angle * 1.5f, 70) * PI / 180);
    if (light.kind == LIGHT_POINT && light.position.z < 1.7f) {
        const float pan = snapshot->view.pan * PI / 180;
        scene_vec seen = snapshot->view.position + scene_vec{sinf(pan), cosf(pan), 0} * 3;
        seen.z = 0.4f;
        ahead = scene_unit(seen - light.position);
    }
    axes_across(ahead, &right, &up);
    fill_matrix(m, right, up, ahead, light.position);
    make_perspective(m, tangent, 0.08f, 20);
    *texel = 2 * 3 * tangent / SHADOW_MAP_SIDE; // three metres away
}

// What stands about and darkens what is beside it: actors first, then furniture.
static void fill_blobs(const scene_snapshot *snapshot, const batch *batch, shader_frame *frame)
{
    int count = 0;
    for (int round = 0; round < 2; round++)
        for (size_t i = 0; i < batch->objects.size() && count < SHADER_BLOBS_MAX; i++) {
            const batch_object &about = batch->objects[i];
            const scene_vec half = (about.high - about.low) * 0.5f, middle = (about.high + about.low) * 0.5f;
            const scene_object &object = snapshot->objects[i];
            const bool solid = object.shadow && half.x > 0 && half.x < 1.5f && half.y < 1.5f &&
                               half.z < 1.5f && half.x + half.y > 0.15f;
            if (!solid || (object.actor != 0) != (round == 0) || object.two_sided)
                continue;
            frame->blobs[count][0] = with(middle, static_cast<float>(i + 1));
            frame->blobs[count][1] =
                with({1 / fmaxf(half.x, 0.05f), 1 / fmaxf(half.y, 0.05f), 1 / fmaxf(half.z, 0.05f)}, 0);
            count++;
        }
    for (; count < SHADER_BLOBS_MAX; count++) // too far away to matter
        frame->blobs[count][0] = {1e6f, 1e6f, 1e6f, 0}, frame->blobs[count][1] = {1, 1, 1, 0};
}

void lighting_fill(const scene_snapshot *snapshot, const batch *batch, shader_frame *frame)
{
    const scene_light *key = lighting_key(snapshot);
    const scene_light *chosen[64];
    size_t count = 0;
    for (const scene_light &light : snapshot->lights)
        if (shines(light) && count < sizeof chosen / sizeof chosen[0])
            chosen[count++] = &light;
    std::stable_sort(chosen, chosen + count, [&](const scene_light *a, const scene_light *b) {
        if ((a == key) != (b == key))
            return a == key;
        return share_of(snapshot, *a) > share_of(snapshot, *b);
    });
    count = std::min<size_t>(count, SHADER_LIGHTS_MAX);
    for (size_t i = 0; i < count; i++)
        frame->lights[i] = light_of(*chosen[i]);

    float texel = 0;
    memset(frame->shadow, 0, sizeof frame->shadow);
    if (key && key->kind == LIGHT_SUN)
        sun_matrix(*key, batch, frame->shadow, &texel);
    else if (key)
        lamp_matrix(snapshot, *key, frame->shadow, &texel);
    if (key) // how far the taps reach: the lamp's own size, but at least a texel
        frame->lights[0].extent.z = fmaxf(1.2f / SHADOW_MAP_SIDE, 0.2f * fmaxf(key->size[0], key->size[1]) /
                                                                      (texel * SHADOW_MAP_SIDE));
    frame->ambient = {snapshot->ambient[0], snapshot->ambient[1], snapshot->ambient[2], snapshot->ambient[3]};
    frame->sky = {snapshot->sky[0], snapshot->sky[1], snapshot->sky[2], snapshot->sky[3]};
    frame->room_low = with(batch->low, 0);
    frame->room_high = with(batch->high, 0);
    frame->counts = {static_cast<float>(count), key ? 1.f : 0.f, texel * 1.5f, 0};
    fill_blobs(snapshot, batch, frame);
}

void lighting_calls(const shader_frame *frame, char *text, size_t size)
{
    size_t length = static_cast<size_t>(snprintf(
        text, size, "#define LOBE_BARE %d\n#define LOBE_LAMBERT %d\n#define LOBE_SPOT %d\n#define ADD_LIGHTS",
        LOBE_BARE, LOBE_LAMBERT, LOBE_SPOT));
    for (int i = 0; i < static_cast<int>(frame->counts.x) && length < size; i++)
        length += static_cast<size_t>(snprintf(
            text + length, size - length, " add_light(lights[%d], %d, %s, %s);", i,
            static_cast<int>(frame->lights[i].extent.w), frame->lights[i].extent.y > 0 ? "true" : "false",
            i == 0 && frame->counts.y > 0 ? "shadow_here()" : "1.0"));
    if (length < size)
        snprintf(text + length, size - length, "\n");
}
