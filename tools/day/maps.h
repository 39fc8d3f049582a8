// Where a sample is dark, where it is bright, and where it is neither, over a plane: computed by asking the controller's
// own decisions (src/ircut_decide.h) at every point. Pure; any thread.
#ifndef DAY_MAPS_H
#define DAY_MAPS_H

#include <string>
#include <vector>

#include "isp_model.h"
#include "room_light.h"

enum { MAP_COLUMNS = 240, MAP_ROWS = 120 };

// Point by point, the letters of map_letter; rows from the bottom up, and each axis from `from` to `to`, of which the
// first axis always, the second where `log_y` says so, goes by equal factors.
struct map_plane {
    double from_x, to_x, from_y, to_y;
    bool log_y;
    std::vector<std::string> rows;
};

// 'd' a sample that by day counts towards night, 'b' one that by night counts towards day ('B' in the picture of the
// white LED alone, mode 4), 'x' both, '.' neither: the controller keeps what it has. Of 'b', '1' to '5' where the
// conditions are told apart: the first that holds.
//
// The statistics themselves: ev along x, the white balance's sum along y. What remains follows: exposure and gain by the
// exposure program of that brightness, red and blue as a mixture of visible light and infrared gives the sum.
map_plane map_statistics(int mode, const isp_constants &isp);

// A room with the camera in it: light that comes in (lux) along x, reflectance along y. Dark is asked of the statistics
// that settle by day, filter in and lamps out; bright of those that settle by night, with the mode's own filter and lamp.
// So 'x' is where the camera's lamp turns night into day, and day is night again without it.
map_plane map_room(int mode, const isp_constants &isp, const room_constants &room);

#endif
