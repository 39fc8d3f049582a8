// Light, and what follows from it: the board's filter and lamps, the light of the scene or of a schedule, and the
// statistics that the ISP reports of both.
//
// Ten times a second the ISP model meters what falls on the sensor: of a rendered room what is drawn; with a schedule its
// lux on a surface of middle reflectance, and the camera's own lamps. A video says nothing of the light that it was taken
// in: without a schedule the ISP then reports a well-lit room.
#ifndef LIGHT_H
#define LIGHT_H

#include "room_light.h"

struct ev_loop;

struct light_settings {
    const char *schedule; // file (room_light.h says what is in it); null: none
    bool rendered;        // the source is a rendered room
    bool daemon;          // filter and lamps of the rendered room are the board's, not the scene's own
};
// Reads the schedule and begins. 0, or -1 after saying why. The board and the command server have been started. Event
// loop only, as is all below.
int light_start(struct ev_loop *loop, const light_settings *settings);
void light_stop(void);

#endif
