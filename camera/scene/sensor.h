// From light on the sensor to the picture that a cheap indoor camera gives: exposure, noise, limited range, vignette,
// blur, colour or grey, compression. Pure functions over a record; the same light, settings and record give the
// same bytes everywhere.
#ifndef SENSOR_H
#define SENSOR_H

#include <stdint.h>
#include <vector>

#include "render.h"
#include "scene_types.h"

enum { SENSOR_EXPOSURE_MIN_US = 20, SENSOR_EXPOSURE_MAX_US = 40000, SENSOR_GAIN_MAX = 32 };

struct sensor_state {
    float exposure_us = 10000; // what the last picture was taken with; after sensor_settle the next one
    float gain = 1;            // 1 to SENSOR_GAIN_MAX
    float brightness = 0;      // mean of the last picture's middle, 0 to 1, what automatic exposure aims with
    float red = 1, blue = 1;   // white balance: factors on those channels
    uint64_t pictures = 0;
    uint64_t seed = 0; // of the noise
    // What automatic exposure and white balance have found for the next picture.
    float next_exposure_us = 10000, next_gain = 1, next_red = 1, next_blue = 1;
    std::vector<float> work; // memory of sensor_expose, used again
};

// Puts exposure, gain and white balance where automatic control would settle for this light, at once: for the first
// picture. With optics->exposure_us set: at that.
void sensor_settle(sensor_state *state, const scene_optics *optics, const render_picture *light);
// One picture, `picture` of any size with even sides: NV12, BT.601 video range, into `nv12` of width x height x 3/2
// bytes; then exposure and gain move towards what the next picture needs, as fast as a camera's do.
void sensor_expose(sensor_state *state, const scene_optics *optics, const render_picture *light,
                   uint8_t *nv12);

#endif
