// Automatic exposure and white balance: what a cheap camera finds out from the light on its sensor.
#ifndef AUTO_CONTROL_H
#define AUTO_CONTROL_H

#include "sensor.h"

// A channel's signal for one unit of light in a microsecond at gain 1, as a share of what a pixel can hold. Fixed by
// the usual rule of reflected light meters, L t = K N^2 / S with K = 12.5 (ISO 2720), for a lens of N = 2 and a
// sensor of speed 400: middle grey, 0.18, at 0.125 candela seconds per square metre.
static const float AUTO_SPEED = 0.18f / 0.125f * 1e-6f;

// Share of the light that lens and cover glass scatter around its source, and the most (in full pixels) of a point's
// that counts.
static const float AUTO_SCATTER = 0.012f, AUTO_GLARE_MAX = 60;

// The light of a point as the sensor's three channels take it: the filter in the way lets through one part in a
// hundred of the infrared, without it the three see infrared almost alike.
struct auto_channels {
    float infrared[3];
};
inline auto_channels auto_channels_of(bool filter)
{
    return filter ? auto_channels{{0.012f, 0.008f, 0.010f}} : auto_channels{{1.06f, 0.97f, 1.10f}};
}

// Exposure and gain that make up `product` (microseconds): the shutter first, then gain.
void auto_split(float product, float *exposure_us, float *gain);
// What the next picture is to be taken with, from the brightness of the last one (state->brightness).
void auto_follow(sensor_state *state);
// Where auto_follow would end for this light.
void auto_settle(sensor_state *state, const scene_optics *optics, const render_picture *light);
// White balance for this light, taken with state's exposure and gain: grey world with limits, into `red`, `blue`.
void auto_white(const sensor_state *state, const scene_optics *optics, const render_picture *light,
                float *red, float *blue);

// The factors of red, green and blue for a white balance: none below 1, so that what fills a pixel stays white.
inline void auto_factors(float red, float blue, float factors[3])
{
    const float least = red < blue ? (red < 1 ? red : 1) : (blue < 1 ? blue : 1);
    factors[0] = red / least;
    factors[1] = 1 / least;
    factors[2] = blue / least;
}

// Weight of a point in the metering; x and y are -1 to 1.
inline float auto_weight(float x, float y)
{
    const float square = x * x + y * y;
    return square < 1 ? 1 - 0.8f * square : 0.2f;
}
// What vignetting leaves of the light; x is -1 to 1, y of the same scale: cos^4 of an angle whose tangent is 0.6 at
// the left and right edges.
inline float auto_vignette(float x, float y)
{
    const float spread = 1 + 0.36f * (x * x + y * y);
    return 1 / (spread * spread);
}

#endif
