// A picture for those who have no video at hand: a still room in which shapes move now and then. A disc and a
// block cross it in turn, with pauses in which nothing moves. The same for the same time, on every machine.
#ifndef GENERATED_H
#define GENERATED_H

#include <stdint.h>

struct AVFrame;

enum {
    GENERATED_WIDTH = 640,
    GENERATED_HEIGHT = 384,
    GENERATED_STEP_MS = 100,    // between two pictures
    GENERATED_CYCLE_MS = 20000, // then all begins again
    // Within a cycle, when something moves; from the later edge of one to the next nothing does.
    GENERATED_DISC_FROM_MS = 3000,
    GENERATED_DISC_TO_MS = 8000,
    GENERATED_BLOCK_FROM_MS = 12000,
    GENERATED_BLOCK_TO_MS = 17000,
};

// The picture at a time, in BT.601 video range; the caller's to free with av_frame_free. Null without memory.
// Any thread.
AVFrame *generated_picture(uint64_t time_ms);

#endif
