// The inside of algo_shbf as far as its own tests look at it. No other module includes this.
#ifndef ALGO_SHBF_INTERNAL_H
#define ALGO_SHBF_INTERNAL_H

#include <atomic>
#include <ev.h>

#include "algo_shbf.h"

// One slot for each channel number; the slot's address is the context of its broadcaster's error callback.
struct shbf_server {
    std::atomic<void *> broadcaster; // null: the channel has none. Written before threads start, read by any
    int zero;
    int index; // the channel's own number
};
extern shbf_server shbf_server_table[EVENT_CHANNEL_SLOTS];

// Creates and starts the broadcaster of one channel: 0, the start's negative result, or -1 (no such channel,
// no broadcaster to be had). Channel 1 is accepted here and requested by nobody. Event loop only, before
// threads start.
int shbf_init(int index);

// The frame-request periodic. Event loop only.
struct ev_periodic *algo_shbf_frame_request_watcher(void);

#endif
