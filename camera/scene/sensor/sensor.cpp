// One picture: light -> signal -> noise -> clip -> colour -> tone -> sharpening -> NV12 -> compression.
//
// Each stage is a loop over whole planes of floats, so that the compiler can take several points at a time.
#include "sensor.h"

#include <math.h>
#include <string.h>

#include "auto_control.h"
#include "blocks.h"
#include "noise.h"
#include "tone.h"

// Electrons that a point of a picture 320 wide holds at gain 1: about 36 pixels of a sensor of 1920 x 1080 make one
// such point, and neighbours that share colours by interpolation keep the noise of about three of them. Wider pictures have smaller points.
static const float WELL_320 = 20000;
static const float READ_320 = 7; // electrons of read noise, by the same count

struct planes {
    int width, height;
    size_t points;
    float *red, *green, *blue; // signal, then codes 0 to 1
    float *luma, *smooth;
    float *glare; // an eighth as wide and high
    int glare_width, glare_height;
};

static planes lay_out(sensor_state *state, const render_picture *light)
{
    planes p;
    p.width = light->width;
    p.height = light->height;
    p.points = static_cast<size_t>(p.width) * static_cast<size_t>(p.height);
    p.glare_width = (p.width + 7) / 8;
    p.glare_height = (p.height + 7) / 8;
    const size_t glare = static_cast<size_t>(p.glare_width) * static_cast<size_t>(p.glare_height);
    state->work.resize(5 * p.points + 2 * glare);
    p.red = state->work.data();
    p.green = p.red + p.points;
    p.blue = p.green + p.points;
    p.luma = p.blue + p.points;
    p.smooth = p.luma + p.points;
    p.glare = p.smooth + p.points;
    return p;
}

// The channels' signals, 1 where a pixel is full; more where more light came.
static void take_light(const planes *p, const render_picture *light, bool filter, float scale)
{
    const auto_channels channels = auto_channels_of(filter);
    const float *at = light->light.data();
    size_t i = 0;
    for (int row = 0; row < p->height; row++) {
        const float y = (2 * (static_cast<float>(row) + 0.5f) - static_cast<float>(p->height)) /
                        static_cast<float>(p->width);
        for (int column = 0; column < p->width; column++, i++, at += BANDS) {
            const float x = 2 * (static_cast<float>(column) + 0.5f) / static_cast<float>(p->width) - 1;
            const float lens = scale * auto_vignette(x, y), infrared = at[BAND_INFRARED];
            p->red[i] = (at[BAND_RED] + channels.infrared[0] * infrared) * lens;
            p->green[i] = (at[BAND_GREEN] + channels.infrared[1] * infrared) * lens;
            p->blue[i] = (at[BAND_BLUE] + channels.infrared[2] * infrared) * lens;
        }
    }
}

// Means of three neighbours, along x or along y.
static void smooth_line(const float *from, float *to, int count, size_t stride)
{
    for (int i = 0; i < count; i++) {
        const size_t at = static_cast<size_t>(i) * stride;
        const float before = from[i > 0 ? at - stride : at], after = from[i + 1 < count ? at + stride : at];
        to[at] = (before + from[at] + after) * (1 / 3.f);
    }
}

// Lamps and windows glow: light scattered in lens and cover glass, from a coarse copy made soft.
static void add_glare(const planes *p)
{
    float *map = p->glare,
          *other = map + static_cast<size_t>(p->glare_width) * static_cast<size_t>(p->glare_height);
    const size_t wide = static_cast<size_t>(p->glare_width);
    for (int row = 0; row < p->glare_height; row++)
        for (int column = 0; column < p->glare_width; column++) {
            float sum = 0;
            int count = 0;
            for (int y = row * 8; y < row * 8 + 8 && y < p->height; y += 2)
                for (int x = column * 8; x < column * 8 + 8 && x < p->width; x += 2) {
                    const size_t at =
                        static_cast<size_t>(y) * static_cast<size_t>(p->width) + static_cast<size_t>(x);
                    sum += fminf(p->green[at], AUTO_GLARE_MAX);
                    count++;
                }
            map[static_cast<size_t>(row) * wide + static_cast<size_t>(column)] =
                sum / static_cast<float>(count);
        }
    for (int round = 0; round < 3; round++) {
        for (int row = 0; row < p->glare_height; row++)
            smooth_line(map + static_cast<size_t>(row) * wide, other + static_cast<size_t>(row) * wide,
                        p->glare_width, 1);
        for (int column = 0; column < p->glare_width; column++)
            smooth_line(other + column, map + column, p->glare_height, wide);
    }
    size_t i = 0;
    for (int row = 0; row < p->height; row++) {
        const float y = fmaxf(static_cast<float>(row - 4) / 8, 0);
        const int y0 = static_cast<int>(y), y1 = y0 + 1 < p->glare_height ? y0 + 1 : y0;
        const float fy = y - static_cast<float>(y0);
        const float *upper = map + static_cast<size_t>(y0) * wide,
                    *lower = map + static_cast<size_t>(y1) * wide;
        for (int column = 0; column < p->width; column++, i++) {
            const float x = fmaxf(static_cast<float>(column - 4) / 8, 0);
            const int x0 = static_cast<int>(x), x1 = x0 + 1 < p->glare_width ? x0 + 1 : x0;
            const float fx = x - static_cast<float>(x0);
            const float glow = AUTO_SCATTER * ((upper[x0] * (1 - fx) + upper[x1] * fx) * (1 - fy) +
                                               (lower[x0] * (1 - fx) + lower[x1] * fx) * fy);
            p->red[i] += glow;
            p->green[i] += glow;
            p->blue[i] += glow;
        }
    }
}

// Shot and read noise. All three channels of a point share a part of it: the scaler and the camera's own noise
// reduction leave less in colour than in brightness.
static void add_noise(const sensor_state *state, const planes *p)
{
    const float share = 320 / static_cast<float>(p->width), well = WELL_320 * share * share;
    const float read = READ_320 * share * state->gain / well, shot = state->gain / well;
    noise_stream stream = noise_begin(state->seed, state->pictures);
    for (size_t i = 0; i < p->points; i++) {
        float n[3];
        noise_three(&stream, n);
        const float green = p->green[i] > 0 ? p->green[i] : 0;
        const float level = sqrtf(read * read + shot * green);
        const float common = n[0] * level * 0.85f;
        const float odd = level * 0.5f;
        p->red[i] += common + n[1] * odd;
        p->green[i] += common;
        p->blue[i] += common + n[2] * odd;
    }
}

static float clip(float x, float low, float high)
{
    return x < low ? low : x > high ? high : x;
}

// White balance, clipping, the colour matrix, tone. The matrix only spreads colours from grey; at high gain less, for
// there colour is mostly noise.
static void develop(const sensor_state *state, const scene_optics *optics, const planes *p)
{
    const float *curve = tone_curve();
    const float spread = optics->grey ? 0 : 1.25f - 0.75f * (state->gain - 1) / (SENSOR_GAIN_MAX - 1);
    float factors[3];
    auto_factors(state->red, state->blue, factors);
    const float black = 0.0005f * state->gain; // what the black level's correction leaves
    for (size_t i = 0; i < p->points; i++) {
        const float red = clip(p->red[i] * factors[0], 0, 1), green = clip(p->green[i] * factors[1], 0, 1);
        const float blue = clip(p->blue[i] * factors[2], 0, 1);
        const float grey = 0.299f * red + 0.587f * green + 0.114f * blue + black;
        p->red[i] = tone_of(curve, grey + (red - grey) * spread);
        p->green[i] = tone_of(curve, grey + (green - grey) * spread);
        p->blue[i] = tone_of(curve, grey + (blue - grey) * spread);
        p->luma[i] = 0.299f * p->red[i] + 0.587f * p->green[i] + 0.114f * p->blue[i];
    }
}

static float measure(const planes *p)
{
    float sum = 0, weights = 0;
    for (int row = 1; row < p->height; row += 3) {
        const float y = 2 * (static_cast<float>(row) + 0.5f) / static_cast<float>(p->height) - 1;
        const float *line = p->luma + static_cast<size_t>(row) * static_cast<size_t>(p->width);
        for (int column = 1; column < p->width; column += 3) {
            const float x = 2 * (static_cast<float>(column) + 0.5f) / static_cast<float>(p->width) - 1;
            const float weight = auto_weight(x, y);
            sum += weight * line[column];
            weights += weight;
        }
    }
    return weights > 0 ? sum / weights : 0;
}

// Sharpening leaves halos at edges; noise reduction smears what differs little from its neighbours. Both work on
// the difference from the mean of nine points: large ones grow, at high gain small ones shrink.
static void sharpen(const sensor_state *state, const planes *p)
{
    const size_t wide = static_cast<size_t>(p->width);
    const float noisy = (state->gain - 1) / (SENSOR_GAIN_MAX - 1);
    const float edge = 0.45f - 0.2f * noisy, smear = 0.15f + 0.35f * noisy;
    const float threshold = 0.012f + 0.05f * noisy;
    for (int row = 0; row < p->height; row++) {
        const float *here = p->luma + static_cast<size_t>(row) * wide;
        const float *above = row > 0 ? here - wide : here, *below = row + 1 < p->height ? here + wide : here;
        float *out = p->smooth + static_cast<size_t>(row) * wide;
        out[0] = here[0];
        out[wide - 1] = here[wide - 1];
        for (size_t i = 1; i + 1 < wide; i++) {
            const float mean = (above[i - 1] + above[i] + above[i + 1] + here[i - 1] + here[i] + here[i + 1] +
                                below[i - 1] + below[i] + below[i + 1]) *
                               (1 / 9.f);
            const float off = here[i] - mean, size = fabsf(off);
            const float small = size < threshold ? 1 : size > 2 * threshold ? 0 : 2 - size / threshold;
            const float change = edge * (1 - small) - smear * small;
            out[i] = here[i] + clip(off * change, -0.08f, 0.08f);
        }
    }
}

static uint8_t code_of(float value)
{
    return static_cast<uint8_t>(clip(value + 0.5f, 0, 255));
}

// BT.601, video range: Y 16 to 235, Cb and Cr 16 to 240.
static void write_nv12(const planes *p, bool grey, uint8_t *nv12)
{
    for (size_t i = 0; i < p->points; i++)
        nv12[i] = code_of(16 + 219 * clip(p->smooth[i], 0, 1));
    uint8_t *out = nv12 + p->points;
    const size_t wide = static_cast<size_t>(p->width);
    for (int row = 0; row + 1 < p->height; row += 2)
        for (int column = 0; column + 1 < p->width; column += 2) {
            const size_t a = static_cast<size_t>(row) * wide + static_cast<size_t>(column), b = a + wide;
            const float luma = p->luma[a] + p->luma[a + 1] + p->luma[b] + p->luma[b + 1];
            const float blue = p->blue[a] + p->blue[a + 1] + p->blue[b] + p->blue[b + 1];
            const float red = p->red[a] + p->red[a + 1] + p->red[b] + p->red[b + 1];
            *out++ = grey ? 128 : code_of(128 + 56 / 0.886f * (blue - luma) / 2);
            *out++ = grey ? 128 : code_of(128 + 56 / 0.701f * (red - luma) / 2);
        }
}

static void obey(sensor_state *state, const scene_optics *optics)
{
    if (optics->exposure_us == 0)
        return;
    state->next_exposure_us =
        fminf(fmaxf(static_cast<float>(optics->exposure_us), SENSOR_EXPOSURE_MIN_US), SENSOR_EXPOSURE_MAX_US);
    state->next_gain = fminf(fmaxf(optics->gain, 1), SENSOR_GAIN_MAX);
}

static void take_next(sensor_state *state)
{
    state->exposure_us = state->next_exposure_us;
    state->gain = state->next_gain;
    state->red = state->next_red;
    state->blue = state->next_blue;
}

void sensor_settle(sensor_state *state, const scene_optics *optics, const render_picture *light)
{
    for (int i = 0; i < 3; i++) { // each needs the other
        auto_settle(state, optics, light);
        obey(state, optics);
        take_next(state);
        auto_white(state, optics, light, &state->next_red, &state->next_blue);
        take_next(state);
    }
}

void sensor_expose(sensor_state *state, const scene_optics *optics, const render_picture *light,
                   uint8_t *nv12)
{
    obey(state, optics);
    take_next(state);
    const planes p = lay_out(state, light);
    take_light(&p, light, optics->filter, state->exposure_us * state->gain * AUTO_SPEED);
    add_glare(&p);
    add_noise(state, &p);
    develop(state, optics, &p);
    state->brightness = measure(&p);
    sharpen(state, &p);
    write_nv12(&p, optics->grey, nv12);
    if (optics->jpeg_quality > 0)
        blocks_compress(nv12, p.width, p.height, optics->jpeg_quality);

    float red, blue;
    auto_white(state, optics, light, &red, &blue);
    state->next_red = state->red + (red - state->red) * 0.15f;
    state->next_blue = state->blue + (blue - state->blue) * 0.15f;
    auto_follow(state);
    state->pictures++;
}
