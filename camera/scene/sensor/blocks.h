// What compression does to a picture: blocks of 8 x 8, their cosine transform rounded to coarse steps.
#ifndef BLOCKS_H
#define BLOCKS_H

#include <stdint.h>

// Changes an NV12 picture to what it is after being compressed and opened again at `quality`, 1 to 100, with the
// quantisation tables of ITU-T T.81, annex K, scaled in the customary way. Sides must be even.
void blocks_compress(uint8_t *nv12, int width, int height, int quality);

#endif
