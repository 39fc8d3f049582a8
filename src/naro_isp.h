// The media server's command set, one function for each command.
#ifndef NARO_ISP_H
#define NARO_ISP_H

#include <stdint.h>

#include "naro_ipc_wire.h"

int naro_isp_md_set(const md_cell *cells);
int naro_isp_md_get(md_cell *cells);
int naro_isp_md_enable(void);
int naro_isp_md_disable(void);
int naro_isp_wdr_enable(void);
int naro_isp_wdr_disable(void);
int naro_isp_daynight_mode_get(uint32_t *mode);
int naro_isp_daynight_mode_set(uint32_t mode);
int naro_isp_ev_attr_get(naro_isp_ev_attr *attr);
int naro_isp_wb_attr_get(naro_isp_wb_attr *attr);
int naro_isp_pwm_duty_set(uint32_t duty);
int naro_isp_track_run(const naro_isp_track_param *param, int count);
int naro_isp_track_stop(void);
int naro_audio_sound_result_get(uint32_t *result);
int naro_isp_COLORTRANS_enable(void);
int naro_isp_COLORTRANS_disable(void);

#endif
