// The event loop and the channels on it.
#ifndef ALGO_SHBF_H
#define ALGO_SHBF_H

#include "event_channels.h"

int algo_shbf_init(void);
int algo_shbf_run(void);
int algo_shbf_fini(void);
void algo_shbf_stop(void);
void algo_shbf_restart(void);
void algo_shbf_signal_handler(void);
int algo_shbf_server_init(void);
int shbf_server_create(void);
int shbf_event_broadcast(int index, const void *buf, int len);
void update_ev_peroid_timer(int fps);

#endif
