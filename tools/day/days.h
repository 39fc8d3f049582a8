// Days of light for a room: what the sun, clouds, cars and lamps give from one morning to the next, and when somebody
// comes by. Made from published figures (docs/light.md names them) and a seed, so that a day is the same in every
// run. Pure functions; any thread.
#ifndef DAYS_H
#define DAYS_H

#include <vector>

#include "room_light.h"

enum { DAY_S = 24 * 3600 };
// Hour of the clock at which a day begins and ends: half an hour after sunrise, when it is day in any room.
const double DAY_BEGINS_HOUR = 6.5;

struct day_light {
    std::vector<light_moment> moments; // of the light that comes into the room, lamps of the room included
    std::vector<double> seen;          // seconds at which detection sees a person
    double unrest =
        0; // how much what moves in the room changes its reflectance: standard deviation, as a share
};

struct day_kind {
    const char *name, *what;
    // Of the same kind, another seed gives another day, where chance is in it; 0 is the one of most reports.
    void (*make)(day_light *day, unsigned seed);
    bool chance; // there is in its light
};
// In the order of reports; the first is the clear day.
extern const day_kind day_kinds[];
extern const int DAY_KINDS;

// Illuminance outdoors in lux under a clear sky without a moon, from the sun's altitude in degrees; never below
// starlight.
double day_sun_lux(double altitude_degrees);
// The sun's altitude at an hour of the clock, at the latitude and season of all days.
double day_sun_altitude(double hour);
// Share of the clear sky's light under a cover of 0 to 1.
double day_cloud_share(double cover);
// The change of the room's reflectance at a time, as a factor; 1 with an unrest of 0.
double day_unrest(double unrest, double seconds);

#endif
