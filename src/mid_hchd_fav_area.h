// Care regions: up to ten named rectangles that a user has marked in the picture, each for a type of event.
// When a box of that type falls into one, its name is broadcast as an event.
//
// The settings' thread adds, moves and deletes; detection's thread may look at the same time. No lock lies
// between them, because a frame must not wait for a setting: every word of the table is an atomic of its
// own. So whoever looks may see an area in the middle of a change, with the place of one and the name of
// the other; names always end inside their 32 bytes. Those who change the table take turns under a lock of
// their own.
#ifndef MID_HCHD_FAV_AREA_H
#define MID_HCHD_FAV_AREA_H

#include <stdint.h>

enum { fav_area_algo_NUM = 10, FAV_AREA_TEXT_BYTES = 32 };

// Coordinates in the units of the boxes that are compared; x2 and y2 are the far edges. Texts end with a
// zero byte.
struct fav_area_algo_coor_t {
    int32_t x1, y1, x2, y2;
    char name[FAV_AREA_TEXT_BYTES]; // empty: a free place
    char event_type[FAV_AREA_TEXT_BYTES];
};
static_assert(sizeof(fav_area_algo_coor_t) == 80, "kept as 20 words");

// Empties the table and sets the ratio to 0.1. By mid_hchd_init.
void mid_hchd_fav_area_algo_init(void);

// Adds, moves or deletes. Texts beyond 31 bytes are cut.
//
// An area is meant when both given texts are beginnings of its own: deliberately, so that "door" also
// reaches "door-2", and is not added where that is all there is. All that are meant are moved, and take the
// given event type as theirs; or, where all four coordinates are 0, deleted. Where none is meant, the area
// is added.
//
// Deliberate: a deletion moves the later areas down and does not clear the last place, so that of a table
// that was full the tenth area stays there as well. Nothing can be added then until that area itself is
// deleted, which takes away what was left of it too.
//
// 0 added, 1 moved, 2 deleted; -1 with a printed line when a text is null or empty, when the table is full,
// when what should be deleted is not there. Any thread.
int mid_hchd_fav_area_algo_update(int x1, int y1, int x2, int y2, const char *name, const char *event_type);

// Broadcasts, on the md channel and with its zero byte, the name of each area of the event type (of which
// the given one may be a beginning) that the box falls into. Nothing calls it yet: detection broadcasts
// what it finds anywhere. Any thread.
void mid_hchd_fav_area_algo_detect(int x1, int y1, int x2, int y2, const char *event_type);

// 1 when one rectangle lies inside the other (edges may touch), or when what they share is more than the
// table's ratio of b's area; 0 when not. With a ratio of 0, as before init: when they share anything. Any
// thread.
int rect_angle_over_lap(const fav_area_algo_coor_t *a, const fav_area_algo_coor_t *b);

// 1 when what the two rectangles share is more than `ratio` of the second one's area, else 0; logs what
// they share, or that it is nothing. Nothing calls it. Any thread.
int comp_region(int x1, int y1, int x2, int y2, int other_x1, int other_y1, int other_x2, int other_y2,
                float ratio);

int max_value(int a, int b);
int min_value(int a, int b);

#endif
