// The light of a room without a picture of it: a schedule of what comes in, the camera's own lamps, and what the room
// sends back of both. Pure functions over records; any thread.
#ifndef ROOM_LIGHT_H
#define ROOM_LIGHT_H

#include <stddef.h>
#include <string>
#include <vector>

#include "board.h"
#include "isp_model.h"

// What is taken for granted of a room and of the lamps; docs/light.md derives each.
struct room_constants {
    double reflectance = 0.4; // share of the light that a furnished room of middling brightness sends back
    double infrared_of_daylight = 0.8; // near infrared beside a lux of daylight, in the unit of light_moment
    double white_led_lux = 12;         // the lamps' light on a wall 3 m away: white LED,
    double ir_led = 14;                // infrared LED,
    double ir_lamp = 10;               // and the infrared lamp at full duty
};

// A schedule of light is a text file: on each line a time in seconds from the start, lux, and, if it is not as by
// daylight, near infrared (in the unit that the bare sensor answers as one lux); "#" begins a remark. Times grow.
// Between two lines light changes by equal factors in equal times, as dusk does; a lamp that is switched is two lines
// a moment apart. After the last line light stays as it is.
struct light_moment {
    double seconds, lux, infrared;
};
enum { LIGHT_FILE_MAX = 1024 * 1024 };
// From a text: 0, or -1 with line and reason in *error.
int light_schedule_parse(const std::string &text, std::vector<light_moment> *schedule, std::string *error);
// What a schedule of at least one line says of a time. The search begins at moment *from (null: at the first), which
// must not be later than `seconds`, and leaves there where it ended: for whoever asks for growing times.
light_moment light_schedule_at(const std::vector<light_moment> &schedule, double seconds,
                               size_t *from = nullptr);

// Luminance before the filter of a room under that light, with the board's lamps on.
isp_light light_of_room(const light_moment &moment, const board_state &board,
                        const room_constants &room = room_constants());

#endif
