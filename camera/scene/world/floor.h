// Ways over a room's floor: around furniture, along straight lines with rounded corners.
#ifndef FLOOR_H
#define FLOOR_H

#include <stdint.h>
#include <vector>

#include "things.h"

// Where somebody `radius` metres wide fits, asked of the room once: squares of FLOOR_CELL metres from the
// room's origin on.
const float FLOOR_CELL = 0.1f;
struct floor_map {
    const room *owner = nullptr;
    float radius = 0;
    int columns = 0, rows = 0;
    std::vector<uint8_t> free; // of each square's middle
};
floor_map floor_make(const room *room, float radius);
bool floor_is_free(const floor_map &map, scene_vec at);
// The free square's middle nearest to a point, at most `reach` metres away. False when there is none.
bool floor_nearest(const floor_map &map, scene_vec at, float reach, scene_vec *result);

// A way as points about FLOOR_STEP metres apart, at height 0; the first is `from`, the last `to`. Ends that
// do not lie on free ground (before a seat, say) are joined to the nearest free ground by a straight line.
// False when there is no way.
const float FLOOR_STEP = 0.025f;
bool floor_way(const floor_map &map, scene_vec from, scene_vec to, std::vector<scene_vec> *way);
// The straight line, likewise.
void floor_line(scene_vec from, scene_vec to, std::vector<scene_vec> *way);
// Joins a way to the end of another, with equal steps again over the whole.
void floor_join(std::vector<scene_vec> *way, const std::vector<scene_vec> &next);

#endif
