// What people and programs get to see of the camera: event lines, the recording, the window, the summary.
// Event loop only.
#ifndef OUTPUT_H
#define OUTPUT_H

#include "frames.h"
#include "options.h"

struct ev_loop;

// Opens what the options ask for. 0, or -1 after saying why. The root has been entered.
int output_start(struct ev_loop *loop, const camera_options *options);
// A picture that goes to the daemon, ANALYSIS_FRAME_BYTES of NV12.
void output_sent(const uint8_t *nv12);
void output_result(const frame_result *result);
// The daemon has told of a sound, now.
void output_sound(void);
// Standard output takes nothing any more.
bool output_broken(void);
void output_summary(void);
void output_stop(void);

#endif
