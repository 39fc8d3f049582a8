// The inside of algo_shm as far as its own tests look at it. No other module includes this.
#ifndef ALGO_SHM_INTERNAL_H
#define ALGO_SHM_INTERNAL_H

#include "algo_shm.h"
#include "motor_mailbox.h"

struct motor_event_node {
    motor_event_node *prev; // the head's is the tail
    motor_event_node *next; // the tail's is null
    char text[MOTOR_MAILBOX_TEXT_BYTES];
};

// `list` is the head, null when empty. The list's lock held.
void motor_event_list_append(motor_event_node **list, motor_event_node *node);
// Unlinks and returns the head; null when the list is empty. A head without a tail is a damaged list, which
// ends the process as a failed assertion does.
motor_event_node *motor_event_list_take(motor_event_node **list);

#endif
