// From light on the sensor to the picture that a cheap indoor camera gives: exposure, noise, limited range, vignette,
// blur, colour or grey, compression. Pure functions over a record; the same light, settings and frame number give
// the same bytes everywhere.
#ifndef SENSOR_H
#define SENSOR_H

#include <stdint.h>
#include <vector>

#include "render.h"
#include "scene_types.h"

struct sensor_state {
    float exposure_us = 10000; // what the last picture was taken with
    float gain = 1;            // 1 to SENSOR_GAIN_MAX
    float brightness = 0;      // mean of the last picture's middle, 0 to 1, what automatic exposure aims with
    uint64_t pictures = 0;
    uint64_t seed = 0; // of the noise
};

// Puts exposure and gain where automatic exposure would settle for this light, at once: for the first picture.
void sensor_settle(sensor_state *state, const scene_optics *optics, const render_picture *light);
// One picture, `picture` of any size: NV12, BT.601 video range, into `nv12` of width x height x 3/2 bytes; then
// exposure and gain move towards what the next picture needs, as fast as a camera's do.
void sensor_expose(sensor_state *state, const scene_optics *optics, const render_picture *light,
                   uint8_t *nv12);

#endif
