// The command socket: every command of the set, from several clients, on the event loop.
#ifndef COMMAND_SERVER_H
#define COMMAND_SERVER_H

#include "isp_state.h"
#include "scenario.h"

struct ev_loop;

enum { COMMAND_SERVER_CLIENTS_MAX = 32 };

// Called on the event loop for each tracking command, after everything else that was readable when it arrived
// (the events of the same frame above all) has been handled, and before its reply is sent.
typedef void (*command_server_on_track)(const naro_isp_track_param *track);

struct command_server_settings {
    scenario *script;                 // null: behave; must outlive the server
    command_server_on_track on_track; // null: nobody cares
    void (*on_client)(void);          // someone has connected; null: nobody cares
    uint32_t (*sound)(void) =
        nullptr; // what to answer when asked for the sound result; null: what isp_state says
};

struct command_server_counts {
    uint64_t commands; // requests answered, refusals included
    uint64_t refused;
    uint64_t track_commands;
    double last_command_at; // ev_now of the last request; 0: none yet
    int clients;            // connected now
};

// Binds the machine's one command socket and serves it on `loop`. 0, or -1 after saying why: another camera
// on the machine above all. Event loop only, as are all of these.
int command_server_start(struct ev_loop *loop, const command_server_settings *settings);
void command_server_stop(void);
const isp_state *command_server_isp(void);
// What the ISP reports of the light from now on.
void command_server_set_light(const naro_isp_ev_attr *exposure, const naro_isp_wb_attr *white_balance);
const command_server_counts *command_server_get_counts(void);

#endif
