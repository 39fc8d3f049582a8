// Lens distortion and the way down from the large picture in one step. Done here and not by the graphics library:
// the software rasteriser takes longer for sixteen texture reads than this loop does.
//
// The filter is a cubic B-spline stretched so that it is two pixels wide at half height: it takes what lies between
// texels off without the dark rims that sharper ones draw around lamps, and it is the softness of a cheap lens.
#include "resolve.h"

#include <math.h>
#include <string.h>

typedef float four __attribute__((vector_size(16)));

// Weight at a distance of t texels. Four taps hold |t| < 2.
static float weight_at(float t)
{
    t = fabsf(t);
    if (t < 1)
        return 2 / 3.f - t * t + t * t * t / 2;
    return t < 2 ? (2 - t) * (2 - t) * (2 - t) / 6 : 0;
}

static void fit_axis(float at, int size, int *first, float weights[4])
{
    int start = static_cast<int>(floorf(at - 0.5f)) - 1;
    start = start < 0 ? 0 : start > size - 4 ? size - 4 : start;
    float sum = 0;
    for (int i = 0; i < 4; i++)
        sum += weights[i] = weight_at(static_cast<float>(start + i) + 0.5f - at);
    for (int i = 0; i < 4; i++)
        weights[i] = sum > 0 ? weights[i] / sum : 0.25f;
    *first = start;
}

// The ideal points that the border of the picture shows.
static void find_reach(const scene_lens *lens, float *x, float *y)
{
    *x = *y = 0;
    for (int side = 0; side < 2; side++)
        for (int i = 0; i <= 16; i++) {
            const float share = static_cast<float>(i) / 16;
            const scene_point pixel =
                side ? scene_point{share * lens->width, 0} : scene_point{0, share * lens->height};
            const scene_point ideal = scene_undistort(*lens, scene_from_pixel(*lens, pixel));
            *x = fmaxf(*x, fabsf(ideal.x));
            *y = fmaxf(*y, fabsf(ideal.y));
        }
}

void resolve_fit(const scene_lens *lens, float scale, resolve_plan *plan)
{
    const int width = static_cast<int>(lens->width), height = static_cast<int>(lens->height);
    const bool fits = !plan->pixels.empty() && plan->lens.width == lens->width &&
                      plan->lens.height == lens->height && plan->lens.distortion == lens->distortion &&
                      plan->width == static_cast<int>(lens->width * scale);
    plan->lens = *lens;
    if (fits)
        return;
    plan->width = static_cast<int>(lens->width * scale);
    plan->height = static_cast<int>(lens->height * scale);
    find_reach(lens, &plan->reach_x, &plan->reach_y);
    plan->pixels.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
    resolve_plan::taps *taps = plan->pixels.data();
    for (int row = 0; row < height; row++)
        for (int column = 0; column < width; column++, taps++) {
            const scene_point ideal = scene_undistort(
                *lens,
                scene_from_pixel(*lens, {static_cast<float>(column) + 0.5f, static_cast<float>(row) + 0.5f}));
            int x, y;
            fit_axis((ideal.x / plan->reach_x + 1) / 2 * static_cast<float>(plan->width), plan->width, &x,
                     taps->across);
            fit_axis((ideal.y / plan->reach_y + 1) / 2 * static_cast<float>(plan->height), plan->height, &y,
                     taps->along);
            taps->first = static_cast<uint32_t>(y * plan->width + x);
        }
}

static inline four load(const float *at)
{
    four value;
    memcpy(&value, at, sizeof value);
    return value;
}

void resolve_light(const resolve_plan *plan, const float *texels, float *light)
{
    const size_t row = static_cast<size_t>(plan->width) * BANDS;
    for (const resolve_plan::taps &taps : plan->pixels) {
        const float *at = texels + static_cast<size_t>(taps.first) * BANDS;
        four sum = {0, 0, 0, 0};
        for (int i = 0; i < 4; i++, at += row)
            sum += (load(at) * taps.across[0] + load(at + 4) * taps.across[1] +
                    load(at + 8) * taps.across[2] + load(at + 12) * taps.across[3]) *
                   taps.along[i];
        memcpy(light, &sum, sizeof sum);
        light += BANDS;
    }
}

static int middle_of(const float weights[4])
{
    return weights[2] > weights[1] ? 2 : 1;
}

void resolve_nearest(const resolve_plan *plan, const uint32_t *texels, uint32_t *words)
{
    for (const resolve_plan::taps &taps : plan->pixels) {
        const size_t at = taps.first +
                          static_cast<size_t>(middle_of(taps.along)) * static_cast<size_t>(plan->width) +
                          static_cast<size_t>(middle_of(taps.across));
        *words++ = texels[at * 4 + 3];
    }
}
