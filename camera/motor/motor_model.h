// How a small indoor camera's head turns: two geared stepper motors, as pure functions of time.
//
// The figures in brackets are those of a camera of this class that docs/tracking.md gives the reasons for; each can be
// set. Degrees are those of a rotate request: horizontal grows to the right, vertical grows downwards, as the picture's
// rows do; 0 is where the view rests when it is mounted. A driver without an encoder knows the shaft by counting steps.
// What the view does is the head, which hangs behind the shaft by the gears' play: after a change of direction the
// shaft turns through the play first, and the head stands still.
//
// One move turns both axes at once, each by a profile of its own: up to speed, along, and down again at the same
// acceleration, never as far as speed where the way is short. Everything here is plain arithmetic in double; the same
// requests give the same views on every machine. Any thread.
#ifndef MOTOR_MODEL_H
#define MOTOR_MODEL_H

#include <stdint.h>
#include <string>
#include <vector>

enum motor_axis { MOTOR_PAN, MOTOR_TILT, MOTOR_AXES };

struct motor_parameters {
    double speed[MOTOR_AXES];        // degrees a second (60, 40)
    double acceleration[MOTOR_AXES]; // degrees a second squared (240, 160)
    double low[MOTOR_AXES];          // the driver's ends, degrees (-175, -90)
    double high[MOTOR_AXES];         // (175, 30)
    double backlash[MOTOR_AXES];     // the gears' play, degrees at the head (0.8, 0.8)
    double step;                     // of the shaft, degrees at the head (360 / 4096)
    double latency_ms;               // from the request taken to the first step (50)
    double settle_ms; // from the last step until the coils are let go and the move has ended (40)
};

// The camera of docs/tracking.md.
motor_parameters motor_parameters_usual(void);

// Sets one by "KEY=VALUE"; keys are the names of motor_keys. 0, or -1 with the reason in *error and nothing changed: an
// unknown key, no number, a number out of bounds, or ends that pass each other.
int motor_parameter_set(motor_parameters *parameters, const char *text, std::string *error);
double motor_parameter_get(const motor_parameters *parameters, const char *key); // of a known key
std::vector<std::string> motor_keys(void);

// Where one axis is.
struct motor_place {
    int32_t steps; // of the shaft, as the driver counts them; 0 is the middle
    double head;   // degrees, within half the play of the shaft
};
struct motor_state {
    motor_place axis[MOTOR_AXES];
};

// One move, decided: where it begins and ends, and how long it takes.
struct motor_move {
    motor_state from;
    int32_t to[MOTOR_AXES];     // steps of the shaft
    double turn_ms[MOTOR_AXES]; // of each axis alone; 0: it stays
    double duration_ms; // from the request taken to the end of the move, latency and settling included
};

// The move that a request for `h` and `v` degrees more causes: to the nearest step, and no further than the driver's
// ends. A state outside the ends (they were set anew) moves to the end in its way at most. A request that comes to no
// step at all still takes its latency.
motor_move motor_plan(const motor_parameters *parameters, const motor_state *from, int h, int v);
// Where the head is `ms` after the request was taken (before 0: at the beginning; after the duration: at the end).
motor_state motor_at(const motor_parameters *parameters, const motor_move *move, double ms);
// Whether the shaft of some axis turns at that time.
bool motor_turns(const motor_parameters *parameters, const motor_move *move, double ms);

// What the driver believes: whole degrees of the shaft, halves away from 0. It is what the "motor" setting says.
int motor_degrees(const motor_parameters *parameters, const motor_place *place);

#endif
