// The command socket: every command of the set, from several clients, on the event loop.
#ifndef MEDIA_SERVER_H
#define MEDIA_SERVER_H

#include "isp_state.h"
#include "scenario.h"

struct ev_loop;

enum { MEDIA_SERVER_CLIENTS_MAX = 32 };

// Called on the event loop for each tracking command, after everything else that was readable when it arrived
// (the events of the same frame above all) has been handled, and before its reply is sent.
typedef void (*media_server_on_track)(const naro_isp_track_param *track);

struct media_server_settings {
    scenario *script;               // null: behave; must outlive the server
    media_server_on_track on_track; // null: nobody cares
};

struct media_server_counts {
    uint64_t commands; // requests answered, refusals included
    uint64_t refused;
    uint64_t track_commands;
    double last_command_at; // ev_now of the last request; 0: none yet
    int clients;            // connected now
};

// Binds the machine's one command socket and serves it on `loop`. 0, or -1 after saying why: another camera
// on the machine above all. Event loop only, as are all of these.
int media_server_start(struct ev_loop *loop, const media_server_settings *settings);
void media_server_stop(void);
const isp_state *media_server_isp(void);
const media_server_counts *media_server_get_counts(void);

#endif
