// What the camera knows, for naro-status: a channel beside the others. Whoever sends it a message is
// answered, with everyone else who listens, by one JSON object.
#ifndef STATUS_H
#define STATUS_H

#include <map>
#include <stdint.h>
#include <string>

#include "options.h"

#define STATUS_PATH "/run/naro/camera_status"
#define STATUS_REQUEST "status"

struct ev_loop;

// Opens the channel. Trouble is said; the camera goes on without it. Event loop only, as are all of these.
// `events_by_name` is read whenever someone asks.
void status_start(struct ev_loop *loop, const camera_options *options,
                  const std::map<std::string, uint64_t> *events_by_name);
void status_stop(void);
// The object, as it is sent.
std::string status_json(void);

#endif
