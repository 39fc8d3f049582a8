// Which size a network is run at, given the size that was asked for and the area it may have.
#ifndef NN_INPUT_FIT_H
#define NN_INPUT_FIT_H

#include <stdint.h>

struct nn_input_size {
    int height, width; // pixels
};

// Keeps the aspect as far as the alignment lets it: an area below `min_area` is scaled up to it, one above
// `max_area` down to it (each 0 or less: no such bound); both sides end on multiples of 1 << alignment_shift,
// rounded down first where the picture shrinks (so that the area stays within `max_area`), else up. The
// result is at least one alignment step and at most 32767 rounded down to one, whatever was asked for. Any
// thread.
nn_input_size nn_input_fit(uint32_t height, uint32_t width, int min_area, int max_area, int alignment_shift);

#endif
