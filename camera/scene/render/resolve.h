// From the large ideal picture that the graphics library draws to the one that the lens throws on the sensor.
#ifndef RESOLVE_H
#define RESOLVE_H

#include <stdint.h>
#include <vector>

#include "projection.h"

// How a picture was drawn: ideal points from -reach to reach on `width` x `height` texels, rows from below.
struct resolve_plan {
    scene_lens lens;
    int width = 0, height = 0; // texels
    float reach_x = 1, reach_y = 1;
    // Of each pixel of the picture: the first of 4 x 4 texels, and the weights of their columns and rows.
    struct taps {
        uint32_t first;
        float across[4], along[4];
    };
    std::vector<taps> pixels;
};

// Fits the plan to a lens; does nothing where it fits already. `scale`: texels to a pixel's side.
void resolve_fit(const scene_lens *lens, float scale, resolve_plan *plan);
// `texels`: plan->width x plan->height, four bands each. `light`: the lens's width x height, four bands each.
void resolve_light(const resolve_plan *plan, const float *texels, float *light);
// The last word of the texel in which each pixel's middle lies. `texels`: four words each.
void resolve_nearest(const resolve_plan *plan, const uint32_t *texels, uint32_t *words);

#endif
