// The live picture in a window: ffplay, fed through a pipe. Event loop only.
#ifndef WINDOW_H
#define WINDOW_H

#include <stdint.h>

struct ev_loop;

// Opens the window. Trouble is said; the camera goes on without one.
void window_start(struct ev_loop *loop);
// Shows a picture as overlay_draw leaves it, unless the one before is still on its way (a slow screen loses
// pictures, it never holds up the camera).
void window_picture(const uint32_t *pixels);
void window_stop(void);

#endif
