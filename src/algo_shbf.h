// The event loop and the channels on it: detections out, raw frames in, the frame-request periodic that sets
// the analysis rate, and the wake-up that ends the loop.
//
// The main thread runs the default loop of libev. Everything on the loop happens on that thread; from other
// threads only shbf_event_broadcast and algo_shbf_signal_handler may be called.
//
// Order of a process: algo_shbf_init, algo_shbf_run, algo_shbf_fini, each once.
#ifndef ALGO_SHBF_H
#define ALGO_SHBF_H

#include "event_channels.h"

// Sets up, in this order: the receiving side, the broadcasters (algo_shbf_server_init), the receiver of the
// raw stream, the frame-request periodic (every 0.2 s) and the wake-up. 0, or -1 when a broadcaster could not
// be started (everything else is set up all the same, but for want of an event loop, without which nothing
// is). Trouble with the receiver is logged and is no failure: without frames the daemon still serves its
// settings. A second call logs it and returns 0. Event loop only.
int algo_shbf_init(void);

// Runs the loop on the calling thread until algo_shbf_signal_handler wakes and ends it; a wake-up sent
// between init and here counts. Returns 0. Event loop only.
int algo_shbf_run(void);

// Destroys the receiver and the loop and stops the receiving side; also right when the loop never ran. The
// broadcasters stay on purpose: worker threads may still broadcast while and after this runs, which is
// harmless. Returns 0; a call without algo_shbf_init logs it and does nothing. Event loop only.
int algo_shbf_fini(void);

// Stops and starts the frame-request periodic: frames cease and come again. Between init and fini. Event loop
// only.
void algo_shbf_stop(void);
void algo_shbf_restart(void);

// Sends the wake-up that ends algo_shbf_run. Any thread, at any time, also from a signal handler; before init
// and from fini on it does nothing.
void algo_shbf_signal_handler(void);

// The set-up of the broadcasters, as algo_shbf_init uses it: channel 0, then channel 3. 0, or -1 as soon as
// one cannot be started, which is logged. Event loop only, before threads start.
int algo_shbf_server_init(void);
int shbf_server_create(void);

// Sends `len` bytes to every receiver of channel `index` (EVENT_CHANNEL_...) and returns the broadcaster's
// result: 0, or negative when nothing could be sent. What is for the motor channel goes to the motor's
// mailbox instead, with algo_shm_write_wrap's result: `buf` is taken as a text that ends with a zero byte,
// whatever `len` says. Another channel without a broadcaster (one that failed to start, an index that does
// not exist) is logged and counts as done: 0. `buf` stays the caller's and is free on return. Any thread, at
// any time, no lock across a send.
int shbf_event_broadcast(int index, const void *buf, int len);

// Changes the frame-request rate; the periodic keeps running, and the new interval holds from its next firing
// on.
//   fps       10    5      4     3    2
//   interval  0.1   0.125  0.25  0.3  0.5   seconds
// 5 is deliberately served with eight requests a second, so that five frames come even when some requests go
// unanswered. The value given last does nothing; any other value is logged, remembered as the last one, and
// leaves the interval as it is. Between init and fini. Event loop only.
void update_ev_peroid_timer(int fps);

#endif
