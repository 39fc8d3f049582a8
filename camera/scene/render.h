// Draws a snapshot: four bands of light, as they reach the sensor through an ideal lens.
//
// OpenGL ES 3 on a surfaceless display: no window system, no GPU needed. One renderer a process; that thread only
// which called render_start.
#ifndef RENDER_H
#define RENDER_H

#include <stdint.h>
#include <vector>

#include "scene_types.h"

// What the lens throws on the sensor: `width` x `height` points, each BANDS floats, rows from the top without gaps.
// Luminance in candela per square metre and its like; distortion of the lens done, vignette and noise not.
struct render_picture {
    int width = 0, height = 0;
    std::vector<float> light;
};

// Tells the software rasteriser to draw on the caller's thread alone: it would start one for every core, all but asleep at
// our sizes, and the cores belong to the program that is watched. Who wants them sets LP_NUM_THREADS. Changes the
// environment: before threads start.
void render_prepare(void);
// Opens the display. `gpu`: a graphics card where there is one; otherwise the software rasteriser, which gives the
// same bytes in every run. 0, or -1 after saying why (desk_say).
int render_start(bool gpu);
// Draws into `picture`, whose memory is used again. 0, or -1 after saying why.
int render_draw(const scene_snapshot *snapshot, int width, int height, render_picture *picture);
// Who is seen at each point, by the same road: actor numbers. For tests of the truth.
int render_actors(const scene_snapshot *snapshot, int width, int height, std::vector<uint32_t> *actors);
const char *render_device(void); // the rasteriser's own name
void render_stop(void);

#endif
