// Automatic exposure and white balance.
#include "auto_control.h"

#include <math.h>

#include "tone.h"

static const float TARGET = 0.45f; // of the picture's range, in the middle
static const float DEAD = 0.015f;  // nothing moves for less: pictures stay comparable

void auto_split(float product, float *exposure_us, float *gain)
{
    *exposure_us = fminf(fmaxf(product, SENSOR_EXPOSURE_MIN_US), SENSOR_EXPOSURE_MAX_US);
    *gain = fminf(fmaxf(product / *exposure_us, 1), SENSOR_GAIN_MAX);
}

void auto_follow(sensor_state *state)
{
    const float product = state->exposure_us * state->gain, off = TARGET - state->brightness;
    float factor = 1;
    if (fabsf(off) >
        DEAD) // the curve halves a step on the way to brightness: this closes two fifths of the gap
        factor = fminf(fmaxf(1 + 0.8f * off / fmaxf(state->brightness, 0.02f), 0.4f), 2.5f);
    auto_split(product * factor, &state->next_exposure_us, &state->next_gain);
}

struct meter {
    const render_picture *light;
    auto_channels channels;
    int step;
    float factors[3]; // white balance
    float glare;      // mean light of a point that the lens scatters, by the same measure as `light`
};

// Brightness that the picture's middle would have: what sensor_expose measures, but from a coarse grid, without
// noise.
static float brightness_at(const meter *meter, float scale)
{
    const float *curve = tone_curve();
    const render_picture *light = meter->light;
    float sum = 0, weights = 0;
    for (int row = meter->step / 2; row < light->height; row += meter->step)
        for (int column = meter->step / 2; column < light->width; column += meter->step) {
            const float x = 2 * (static_cast<float>(column) + 0.5f) / static_cast<float>(light->width) - 1;
            const float y = 2 * (static_cast<float>(row) + 0.5f) / static_cast<float>(light->height) - 1;
            const float aspect = static_cast<float>(light->height) / static_cast<float>(light->width);
            const float *at = &light->light[(static_cast<size_t>(row) * static_cast<size_t>(light->width) +
                                             static_cast<size_t>(column)) *
                                            BANDS];
            const float lens = scale * auto_vignette(x, y * aspect), weight = auto_weight(x, y);
            float luma = 0;
            const float parts[3] = {0.299f, 0.587f, 0.114f};
            for (int i = 0; i < 3; i++)
                luma += parts[i] *
                        tone_of(curve, meter->factors[i] *
                                           ((at[i] + meter->channels.infrared[i] * at[BAND_INFRARED]) * lens +
                                            fminf(meter->glare * scale, AUTO_GLARE_MAX) * AUTO_SCATTER));
            sum += weight * luma;
            weights += weight;
        }
    return weights > 0 ? sum / weights : 0;
}

void auto_settle(sensor_state *state, const scene_optics *optics, const render_picture *light)
{
    meter meter = {
        light, auto_channels_of(optics->filter), light->width >= 64 ? light->width / 64 : 1, {1, 1, 1}, 0};
    auto_factors(state->red, state->blue, meter.factors);
    const size_t points = light->light.size() / BANDS, stride = points / 1000 + 1;
    for (size_t i = 0; i < points; i += stride) {
        const float *at = &light->light[i * BANDS];
        meter.glare += at[BAND_GREEN] + meter.channels.infrared[1] * at[BAND_INFRARED];
    }
    meter.glare /= static_cast<float>((points + stride - 1) / stride);
    float low = SENSOR_EXPOSURE_MIN_US, high = static_cast<float>(SENSOR_EXPOSURE_MAX_US) * SENSOR_GAIN_MAX;
    for (int i = 0; i < 24; i++) { // halves the ratio of the bounds, so that the bright end is found as well
        const float middle = sqrtf(low * high);
        if (brightness_at(&meter, middle * AUTO_SPEED) < TARGET)
            low = middle;
        else
            high = middle;
    }
    auto_split(high, &state->next_exposure_us, &state->next_gain);
    state->brightness = brightness_at(&meter, state->next_exposure_us * state->next_gain * AUTO_SPEED);
}

void auto_white(const sensor_state *state, const scene_optics *optics, const render_picture *light,
                float *red, float *blue)
{
    const auto_channels channels = auto_channels_of(optics->filter);
    const float scale = state->exposure_us * state->gain * AUTO_SPEED;
    float sums[3] = {0, 0, 0};
    const size_t step = light->width >= 64 ? static_cast<size_t>(light->width) / 64 * 7 : 1;
    for (size_t i = step / 2; i < light->light.size() / BANDS; i += step) {
        const float *at = &light->light[i * BANDS];
        float signal[3];
        for (int c = 0; c < 3; c++)
            signal[c] = (at[c] + channels.infrared[c] * at[BAND_INFRARED]) * scale;
        const float most = fmaxf(signal[0], fmaxf(signal[1], signal[2]));
        if (most < 0.9f && most > 0.002f) // what is cut off tells no colour
            for (int c = 0; c < 3; c++)
                sums[c] += signal[c];
    }
    *red = *blue = 1;
    if (sums[0] > 0 && sums[1] > 0 && sums[2] > 0) {
        // Not all the way, and no further than the light of a bulb on one side and of a blue sky on the other: a room
        // lit by a lamp stays a little warm, a red wall stays red.
        *red = fminf(fmaxf(1 + 0.8f * (sums[1] / sums[0] - 1), 0.5f), 1.8f);
        *blue = fminf(fmaxf(1 + 0.8f * (sums[1] / sums[2] - 1), 0.6f), 2.4f);
    }
}
