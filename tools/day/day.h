// A day of the daemon's day/night controller in fast time: its real modules (the task's and the alarm light's threads,
// drivers, lights) in this process on the clock seam, against the board and the ISP model of the desk camera in a closed
// loop. What the daemon writes to the board's files moves filter and lamps of the model; what the model meters is what
// the daemon samples.
//
// The task's thread drives the day: when it sleeps, the day goes on by as much, and it wakes at once. The alarm light's
// thread is held in its sleep: no alarm is asked for, and a round of it then looks at one flag and sleeps again.
#ifndef DAY_H
#define DAY_H

#include <stdint.h>
#include <vector>

#include "days.h"
#include "ircut_decide.h"
#include "isp_model.h"
#include "room_light.h"

// When a mode is wrong, by the light that comes into the room (not the camera's own): night at BRIGHT_LUX and above, at
// which a face is told without help; day at DARK_LUX and below, a full moon's light, in which no eye sees colours.
// Between them either is right. A change of light shorter than GRACE_S need not be followed.
const double DAY_BRIGHT_LUX = 20, DAY_DARK_LUX = 0.3, DAY_GRACE_S = 15;

struct day_settings {
    const day_light *light;
    int mode; // 0, 3, 4 or 5
    isp_constants isp;
    room_constants room;
    bool other_sensor;      // "/tmp/SSC3338" is there
    double seconds = DAY_S; // ends early
};

struct day_switch {
    double seconds; // from the day's start
    bool to_night;
    double lux;          // that came in
    ircut_sample sample; // that decided
    unsigned
        reasons; // ircut_dark_reasons or ircut_bright_reasons; 0 in mode 4, which has one condition each way
};

struct day_result {
    std::vector<day_switch> switches;
    double wrong_night_s, wrong_day_s; // night while it was bright, day while it was dark
    double night_s;
    uint64_t pulses, moves, breaches; // of the filter's coil (board.h)
    uint64_t white_lit;               // how often the white LED was lit,
    double white_s;                   // and for how long
    uint64_t samples;                 // that the task has taken
};

// Runs it. NARO_ROOT must name a folder of the caller's that is empty or where a day ran before. The modules keep state
// as in a daemon that is told to start anew: for a fresh daemon use a fresh process. False where the modules did not
// start. One at a time.
bool day_run(const day_settings *settings, day_result *result);

// Seconds from one switch to night to the next, the median, where there are at least three; else 0.
double day_period_s(const day_result *result);

#endif
