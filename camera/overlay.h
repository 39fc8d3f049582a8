// Draws what was found into the picture that people see.
#ifndef OVERLAY_H
#define OVERLAY_H

#include <stdint.h>

#include "frames.h"
#include "world.h"

// The picture for people: twice the analysis picture in both directions.
enum { VIEW_SCALE = 2, VIEW_WIDTH = 640, VIEW_HEIGHT = 384 };

// Draws boxes, events and the source's time into a picture of VIEW_WIDTH x VIEW_HEIGHT as picture_to_view
// makes it; and, thinner, where actors really are. `truth` is null where nobody knows. Event loop only.
void overlay_draw(uint32_t *pixels, const frame_result *result, const truth_moment *truth);
// Gives back what the font libraries keep between calls.
void overlay_exit(void);

#endif
