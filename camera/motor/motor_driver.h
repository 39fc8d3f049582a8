// The driver of the pan-tilt head: takes one request after the other out of the mailbox, turns, and says where the view
// has come to rest.
//
// The mailbox stays full from the request to the end of its move, settling included: that is how the daemon knows that
// the motor is busy. What the mailbox holds when the driver starts is of unknown age - the target has gone on, or a
// driver before this one died over it - and is dropped; so is a text that is no request, with one line.
//
// The setting "motor" lives in flash: it is written once the view has rested for MOTOR_DRIVER_REST_MS, not between the
// moves of one pursuit, and not when it says already what is to be written.
//
// Time is given to each call, in milliseconds that do not go back. One thread.
#ifndef MOTOR_DRIVER_H
#define MOTOR_DRIVER_H

#include <stdint.h>

#include "motor_mailbox.h"
#include "motor_model.h"
#include "motor_view.h"

enum {
    MOTOR_DRIVER_LOOK_MS = 10,    // how often the mailbox is looked into; the daemon's own step
    MOTOR_DRIVER_TURN_MS = 5,     // how often the head's place is written while it turns
    MOTOR_DRIVER_REST_MS = 500,   // without a request, until the view counts as at rest
    MOTOR_DRIVER_LOCKED_MS = 500, // of a lock that is held, until its holder counts as dead
    MOTOR_DRIVER_AGAIN_MS = 1000, // until a setting that the store refused is written again
};

// A move that has ended. Times as the calls' were given.
struct motor_driver_report {
    const char *text; // of the request
    uint64_t taken_ms, ended_ms;
    motor_state from, to;
};

struct motor_driver_settings {
    motor_parameters parameters;
    motor_mailbox *mailbox; // null: none yet (motor_driver_mailbox)
    motor_view_file *view;
    // Writes the "motor" setting; whether that was done.
    bool (*publish)(const char *text);
    char *(*published)(void); // what it says now, from malloc; null: nothing
    void (*on_move)(const motor_driver_report *report);
};

void motor_driver_start(const motor_driver_settings *settings, uint64_t now_ms);
// Another segment, which somebody made in the place of the old one; or null, for none. The lock is made new.
void motor_driver_mailbox(motor_mailbox *mailbox);
// Does what is due; how many milliseconds later to call again.
unsigned motor_driver_round(uint64_t now_ms);
// Stops the head where it is and frees the mailbox. The place counts as rest, and is published.
void motor_driver_stop(uint64_t now_ms);

#endif
