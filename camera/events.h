// Events as lines: for a person, for a program; and what they add up to.
#ifndef EVENTS_H
#define EVENTS_H

#include <map>
#include <stddef.h>
#include <stdint.h>
#include <string>
#include <vector>

#include "naro_ipc_wire.h"

// What the camera's programs call a message of the lsd channel, which itself is only a time.
#define EVENT_LOUD_SOUND "LoudSound"

enum { EVENT_NAME_MAX = 255 }; // bytes of a name on the md channel, without its zero byte

// The boxes of a tracking command that are in use: those before the first that is all zero.
int event_boxes(const naro_isp_track_param *track);

// The name in a message of the md channel: a text that ends with the message's only zero byte. False for
// anything else. Bytes that no terminal should get (control characters, broken UTF-8) become '?'.
bool event_name(const void *message, size_t length, std::string *name);

// "MM:SS.mmm", with hours before it where there are some.
std::string event_time(uint64_t time_ms);
// One line each, without its end: `00:12.400  PeopleMotion  [120,40 60x130]` (x,y width x height in pixels of
// the analysis picture) and `{"time_ms":12400,"event":"PeopleMotion","boxes":[[120,40,60,130]]}`.
std::string event_line(uint64_t time_ms, const std::string &name, const naro_track_box *boxes, int count);
std::string event_json(uint64_t time_ms, const std::string &name, const naro_track_box *boxes, int count);

#endif
