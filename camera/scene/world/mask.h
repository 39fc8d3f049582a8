// Who covers each pixel: triangles drawn on the CPU, by sampling each pixel's middle through the same lens as
// the renderer's. The same answer on every machine: corners lie on a grid, and what follows is + - * / in
// double.
#ifndef MASK_H
#define MASK_H

#include <stdint.h>
#include <vector>

#include "projection.h"

struct mask_point {
    double x, y, z;
};

// The picture in the middle of a canvas three times as wide and high, on which one can count what somebody
// covers outside the picture.
struct mask_canvas {
    int width = 0, height = 0; // of the picture
    int columns = 0, rows = 0; // of the canvas
    int left = 0, top = 0;     // of the picture on the canvas
    float distortion = 0;      // of the lens that the directions are for
    float half_width = 0;      // likewise
    float straight_radius = 0,
          straight_slope = 0;     // from where on, and how, directions go on without the lens's curve
    std::vector<float> x, y;      // where each canvas pixel's middle looks: camera coordinates with z = 1
    std::vector<uint32_t> covers; // by canvas pixel: who was drawn there last, as a stamp
    uint32_t stamp = 0;
    std::vector<float> depth;       // by picture pixel: 1 / z of what is nearest; 0: nothing
    std::vector<uint32_t> actor;    // by picture pixel
    std::vector<mask_point> turned; // the drawn object's corners in camera coordinates; kept for its memory
};

// Makes the canvas fit the lens and the size; does nothing when it does. With `around` false the canvas is
// the picture.
void mask_prepare(mask_canvas *canvas, const scene_lens &lens, bool around);
void mask_clear(mask_canvas *canvas);
// Draws an object as the actor. With `count` the canvas pixels that it covers alone, each once for all
// objects drawn since mask_count_new, are added to *count.
void mask_count_new(mask_canvas *canvas);
void mask_draw(mask_canvas *canvas, const scene_lens &lens, const scene_object &object, uint64_t *count);

#endif
