// From a decoded picture of any format, size and colour space to the two pictures that the camera needs.
// The results depend on nothing but the input. That task only: the event loop's.
#ifndef PICTURE_H
#define PICTURE_H

#include <stdint.h>

#include "event_channels.h"

struct AVFrame;

// The analysis picture: ANALYSIS_WIDTH x ANALYSIS_HEIGHT NV12, BT.601 video range, the whole of `frame`
// stretched to it, upright as the source says. `out` holds ANALYSIS_FRAME_BYTES. 0, or -1 after saying why.
int picture_to_analysis(const AVFrame *frame, uint8_t *out);

// The picture for people: `width` x `height` pixels, each a 32-bit word 0xFFRRGGBB in the machine's order,
// rows without gaps. 0, or -1 after saying why.
int picture_to_view(const AVFrame *frame, int width, int height, uint32_t *out);

// Frees what is kept between calls.
void picture_exit(void);

#endif
