// What the desk camera's picture side is set to, and what each command does to it and answers. Pure functions
// over a record; the media server owns the one that counts.
#ifndef ISP_STATE_H
#define ISP_STATE_H

#include <stdint.h>

#include "ipc_request.h"
#include "naro_ipc_wire.h"

enum { ISP_MODE_DAY = 0, ISP_MODE_NIGHT = 1 };

struct isp_state {
    uint32_t mode; // ISP_MODE_DAY or ISP_MODE_NIGHT
    bool wdr;      // wide dynamic range
    bool colour_transform;
    bool motion_grid;            // the camera's own motion detection
    uint8_t grid[NARO_MD_CELLS]; // its cells, as sent (already one more than the caller's value)
    uint32_t pwm_duty_percent;   // 0 to 100
    bool tracking;               // since the last track_run, until a track_stop
    naro_isp_track_param track;  // boxes of the last track_run
    uint32_t sound;              // 1: a loud sound is heard
    naro_isp_ev_attr exposure;
    naro_isp_wb_attr white_balance;
};

// A camera in a lit room, by day.
void isp_state_init(isp_state *isp);

// Does a request that was parsed as good: its result (enum ipc_ret), with the reply's data in `data`.
int32_t isp_state_apply(isp_state *isp, const ipc_request *request, uint8_t data[NARO_IPC_MAX_REPLY]);

// The boxes in the payload of a tracking command.
naro_isp_track_param isp_track_boxes(const uint8_t payload[sizeof(naro_isp_track_param)]);

#endif
