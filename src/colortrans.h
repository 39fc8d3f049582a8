// The colour-transform watcher: turns the processor's colour transform on while the sensor's gain is large,
// and off again when it has become much smaller.
#ifndef COLORTRANS_H
#define COLORTRANS_H

#include <stdint.h>

#include <atomic>

// 1 while the "hdr_switch" setting is on: the watcher then pauses. Any thread; one word of its own.
extern std::atomic<int> g_uvo_hdr_flag;

// With 1, starts the watcher (a detached thread, "COLORTRANS") unless it has been started before: 0, or -1
// with a log line when the thread cannot be created (a later call tries again). Anything else does nothing:
// 0. There is no way to stop it; it lives as long as the process. Nothing calls this yet: it is where the
// feature would be switched on. Any thread.
int ircut_set_COLORTRANS(int on);

// The watcher: 10 s after its start, and then every second, it reads the gains; it makes no call to the
// processor while HDR is on or the ircut module is not inited, and looks again every 2 s.
void *ircut_set_COLORTRANS_thread(void *);

// One look at the gains: which command is due. Each is due once for a crossing; between the two bounds
// nothing is. Before the first crossing a low gain counts as one, so the transform is once disabled without
// ever having been enabled. Pure.
struct colortrans_state {
    int on, off; // which way the watcher switched last; both 0 at the start
};
enum colortrans_action { COLORTRANS_NOTHING, COLORTRANS_ENABLE, COLORTRANS_DISABLE };
colortrans_action colortrans_look(uint32_t gain, colortrans_state *state);
// `again` times `dgain` in 32 bits, over 1024: 1024 = 1x. Pure.
uint32_t colortrans_gain(uint32_t again, uint32_t dgain);

#endif
