// The media server's command set: image signal processor, filter and light PWM, motion grid, tracking, sound.
//
// Each function sends one command of naro_ipc_wire.h's table, waits for its reply and returns 0, or -1 with
// a log_err line that names the function:
//   "[%s][snd][cmd_no=%d][fail]\n"                 the request could not be sent (the request's number)
//   "[%s][rcv][cmd_no=%d][fail][1]\n"              no reply of the right length came (the request's number)
//   "[%s][cmd_no=%d][ret=%d][param] get error\n"   another command's reply, or a refusal (the reply's words)
// Outputs are untouched on -1. No pointer may be null, unless said otherwise.
//
// Any thread; commands of several threads run one after the other under the channel's lock. A call waits as
// long as the server takes to answer, and where the connection was lost as long as it takes the server to
// come back: never call while holding a lock that the server's work or another command's caller may need.
// Not a cancellation point: a thread cancelled between request and reply would leave a reply in the stream
// for the next command to trip over.
#ifndef NARO_ISP_H
#define NARO_ISP_H

#include <stdint.h>

#include "naro_ipc_wire.h"

// The motion grid (NARO_MD_CELLS cells, row-major). set sends of each cell the low byte of `value`, plus 1,
// in 8 bits: 255 and -1 arrive as 0. get does not undo that; it brings `result` as it is on the wire and
// sets x, y, w and h of every cell to a 640 x 360 picture cut into cells of 80 x 90 pixels, whatever stood
// there; `reserved` and `value` stay. get's line for a wrong reply ends in "\r\n".
int naro_isp_md_set(const md_cell *cells);
int naro_isp_md_get(md_cell *cells);
int naro_isp_md_enable(void);
int naro_isp_md_disable(void);

int naro_isp_wdr_enable(void);
int naro_isp_wdr_disable(void);

// Running mode: 0 day, 1 night.
int naro_isp_daynight_mode_get(uint32_t *mode);
int naro_isp_daynight_mode_set(uint32_t mode);

int naro_isp_ev_attr_get(naro_isp_ev_attr *attr);
int naro_isp_wb_attr_get(naro_isp_wb_attr *attr);

// Percent of the period.
int naro_isp_pwm_duty_set(uint32_t duty);

// The boxes of the people seen in one frame. All 96 bytes are sent, `count` is not looked at. A refusal (or
// another command's reply) is logged but returns 0, unlike everywhere else: the next frame brings new boxes
// anyway. Null logs "[naro_isp_track_run 642] param err " and returns -1, and nothing is sent.
int naro_isp_track_run(const naro_isp_track_param *param, int count);
int naro_isp_track_stop(void);

// What the media server has heard last.
int naro_audio_sound_result_get(uint32_t *result);

int naro_isp_COLORTRANS_enable(void);
int naro_isp_COLORTRANS_disable(void);

#endif
