// Where the camera's head is, from the process that turns it to the process that draws what it sees.
//
// A small file under the root that both map: the driver writes where the head is and how fast it turns, some hundred
// times a second while it does; the camera reads it for each picture. Nobody waits for anybody: whoever is killed and
// comes back maps the file again. Where the driver died, the head stands, as a real one does without its pulses. It is
// also the mechanics' memory: a driver that starts again reads from it how far the shaft had come.
//
// All words have 32 bits, so that programs of different word sizes can share it.
#ifndef MOTOR_VIEW_H
#define MOTOR_VIEW_H

#include <stdint.h>

#include "motor_model.h"

#define MOTOR_VIEW_PATH "/run/naro/motor_view"

struct motor_view_file; // the mapping

struct motor_view_record {
    uint32_t moves; // begun since the camera was switched on
    bool turning;
    motor_state place;
    double speed[MOTOR_AXES]; // of the head, degrees a second, with its sign
};

// Maps the file, making it where there is none. `anew`: the camera is being switched on and its head stands in the
// middle, whatever the file says. Null with errno. Any thread, as is all below, but a mapping has one writer.
motor_view_file *motor_view_open(bool anew);
void motor_view_close(motor_view_file *view);
void motor_view_write(motor_view_file *view, const motor_view_record *record);
// False, and nothing written, when the file holds nothing yet, holds nonsense, or its writer died inside a write.
bool motor_view_read(const motor_view_file *view, motor_view_record *record);

#endif
