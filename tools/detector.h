// The daemon's detector for tools: a crop in the daemon's own format goes the daemon's own road (image engine, network,
// boxes).
#ifndef DETECTOR_H
#define DETECTOR_H

#include <stdint.h>
#include <string>

#include "nn/network.h"

// Starts image engine and network with the daemon's area bounds. `config` must live as long. 0 or -1.
int detector_start(NetworkConfig *config);
// Looks at `width` x `height` pixels of NV12 (even, rows `luma_stride` and `chroma_stride` bytes apart). How many boxes
// detector_boxes holds now; -1 after putting into *why what went wrong.
int detector_look(const uint8_t *luma, int luma_stride, const uint8_t *chroma, int chroma_stride, int width,
                  int height, std::string *why);
// Boxes of the last look, in pixels of what was looked at.
const BBox *detector_boxes(void);
// What the last look gave the network (R, G, B, without gaps, before it is resized), and what the network made of it,
// written to `picture` (PPM) and `outputs` (text, one number after the other). False after putting into *why what went
// wrong.
bool detector_save(const char *picture, const char *outputs, std::string *why);
void detector_stop(void);

#endif
