// A rotate request, as the mailbox carries it: "[h,v,sequence]", whole degrees and the daemon's count of requests.
#ifndef MOTOR_REQUEST_H
#define MOTOR_REQUEST_H

#include <stddef.h>
#include <stdint.h>

enum { MOTOR_REQUEST_DEGREES_MAX = 360 }; // in either direction; no request means more than a whole turn

struct motor_request {
    int h, v;         // degrees to turn from where the view is: to the right, downwards
    int64_t sequence; // says which request it was, and decides nothing
};

// Reads the text in `size` bytes, which ends at a zero among them. Exactly the form above: decimal numbers, a minus
// sign where one is negative, no blanks. False, and *request untouched, for anything else, degrees out of bounds
// included. Any thread.
bool motor_request_parse(const char *text, size_t size, motor_request *request);

#endif
