// Rectangles of the detection task, as pure functions: where the picture moved, what to look at, which crop to cut.
#ifndef MID_HCHD_REGION_H
#define MID_HCHD_REGION_H

#include <stdint.h>

#include "event_channels.h"

// The difference map: one byte for each 8x8 block of the analysis picture.
enum { DETECTION_BLOCK = 8, MAP_WIDTH = ANALYSIS_WIDTH / 8, MAP_HEIGHT = ANALYSIS_HEIGHT / 8 };

// In blocks; right and bottom are exclusive. All four are 0 where nothing moved.
struct block_rect {
    int left, right, top, bottom;
};

// Pixels of the analysis picture, all four inclusive.
struct pixel_rect {
    int x1, y1, x2, y2;
};

// The smallest rectangle around the non-zero bytes of a MAP_WIDTH x MAP_HEIGHT map whose rows lie `stride` apart.
block_rect region_of_map(const uint8_t *map, int stride);

// Whether anything moved.
bool region_any(const block_rect &blocks);

// One block more on each side where there is room, in pixels: the border of what moves often stays below the
// threshold, and the detector wants to see a whole person.
pixel_rect region_grown(const block_rect &blocks);

// Motion everywhere is a light that was switched or a camera that turned, not something that moves.
bool region_is_whole_frame(const pixel_rect &rect);

// What to look at when `rect` moved and people are watched for in `region`: the rectangle itself when it lies inside,
// else the whole region.
pixel_rect region_to_search(const pixel_rect &rect, const pixel_rect &region);

// Widens first .. last (inclusive, inside 0 .. size - 1) to the next multiple of 32 pixels: by the same on both sides
// where there is room, else from the edge that is in the way; all of it where both are. (The last cannot happen in a
// size that is a multiple of 32 itself, as the analysis picture's are, when the length is even.)
void region_widen(int *first, int *last, int size);

// The crop to cut for `rect` (inside the frame, at least one pixel pair): made even, then widened in each direction to
// a multiple of 32, which the detector takes. Deliberate: half of the widening may be odd, so that a crop that comes
// from a region (motion alone is counted in blocks) can start at an odd pixel.
pixel_rect region_crop(const pixel_rect &rect);

// A region given in 1/10000 of the frame, in pixels (multiplied in 64 bits, divided toward zero).
pixel_rect region_from_units(int x1, int x2, int y1, int y2);

// `rect` without what lies outside the frame; its x2 and y2 may be smaller than x1 and y1 when nothing is left.
pixel_rect region_in_frame(const pixel_rect &rect);

// Whether an even-aligned pair of pixels lies inside in each direction: less than that cannot be cut out of a picture
// whose colours come in pairs.
bool region_holds_pair(const pixel_rect &rect);

#endif
