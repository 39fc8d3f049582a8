// Light, and what follows from it: the board's filter and lamps, the light of the scene or of a schedule, and the
// statistics that the ISP reports of both.
//
// Ten times a second the ISP model meters what falls on the sensor: of a rendered room what is drawn; with a schedule its
// lux on a surface of middle reflectance, and the camera's own lamps. A video says nothing of the light that it was taken
// in: without a schedule the ISP then reports a well-lit room.
#ifndef LIGHT_H
#define LIGHT_H

#include <string>
#include <vector>

#include "board.h"
#include "isp_model.h"

struct ev_loop;

// A schedule of light is a text file: on each line a time in seconds from the start, lux, and, if it is not as by
// daylight, near infrared (in the unit that the bare sensor answers as one lux); "#" begins a remark. Times grow.
// Between two lines light changes by equal factors in equal times, as dusk does; a lamp that is switched is two lines
// a moment apart. After the last line light stays as it is.
struct light_moment {
    double seconds, lux, infrared;
};
enum { LIGHT_FILE_MAX = 1024 * 1024 };
// From a text: 0, or -1 with line and reason in *error. Any thread.
int light_schedule_parse(const std::string &text, std::vector<light_moment> *schedule, std::string *error);
// What a schedule of at least one line says of a time. Any thread.
light_moment light_schedule_at(const std::vector<light_moment> &schedule, double seconds);

// Luminance before the filter of a room under that light, with the board's lamps on. Any thread.
isp_light light_of_room(const light_moment &moment, const board_state &board);

struct light_settings {
    const char *schedule; // file; null: none
    bool rendered;        // the source is a rendered room
    bool daemon;          // filter and lamps of the rendered room are the board's, not the scene's own
};
// Reads the schedule and begins. 0, or -1 after saying why. The board and the command server have been started. Event
// loop only, as is all below.
int light_start(struct ev_loop *loop, const light_settings *settings);
void light_stop(void);

#endif
