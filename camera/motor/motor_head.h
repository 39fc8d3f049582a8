// Which way the camera looks, for those who make its pictures.
#ifndef MOTOR_HEAD_H
#define MOTOR_HEAD_H

// The camera is switched on: its head stands in the middle. 0, or -1 after saying why. Before the motor's process and
// the source are started.
int motor_head_start(void);
void motor_head_stop(void); // after the source

// Where the head was `before_s` seconds ago (a part of an exposure; it is reckoned from its speed): degrees to the right
// and, unlike the motor's, upwards, as a scene has them. False while it has not moved since the start, and where there
// is no head. Any thread.
bool motor_head_at(double before_s, float *pan, float *tilt);

struct motor_view_record;
// What the motor wrote last, in its own degrees (v downwards). False where there is no head, or nobody has written yet.
// Any thread.
bool motor_head_record(motor_view_record *record);

#endif
