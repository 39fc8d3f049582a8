// The settings behind the command set.
#include "isp_state.h"

#include <initializer_list>
#include <string.h>

void isp_state_init(isp_state *isp)
{
    *isp = {};
    isp->mode = ISP_MODE_DAY;
    // What a sensor reads in a well-lit room: bright (ev), a short exposure, hardly any gain (1024 = 1x; the
    // sensor's low conversion gain reads below that). Fixed until the picture itself is metered; every rule
    // that asks "has it become dark" says no, and every rule that asks "is it bright again" says yes.
    const naro_isp_ev_attr exposure = {{100, static_cast<uint32_t>(-50000), 10000, 900, 1024, 0, 0}};
    // Visible light has much red and blue to balance, so that the sum of both gains (each divided by 1024) is
    // strongly negative: -4200 and -5100 here. Light from an infrared lamp, which falls on all pixels alike,
    // would bring it near zero.
    const naro_isp_wb_attr white_balance = {{-4200 * 1024, -5100 * 1024, 0, 0, 0, 0, 0, 0}};
    isp->exposure = exposure;
    isp->white_balance = white_balance;
}

static void put_words(uint8_t *bytes, const void *words, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        uint32_t word;
        memcpy(&word, static_cast<const uint8_t *>(words) + 4 * i, sizeof word);
        ipc_put_word(bytes + 4 * i, word);
    }
}

naro_isp_track_param isp_track_boxes(const uint8_t *payload)
{
    naro_isp_track_param track;
    for (naro_track_box &box : track.box) {
        for (int32_t *word : {&box.x1, &box.y1, &box.x2, &box.y2}) {
            *word = static_cast<int32_t>(ipc_get_word(payload));
            payload += 4;
        }
    }
    return track;
}

int32_t isp_state_apply(isp_state *isp, const ipc_request *request, uint8_t data[NARO_IPC_MAX_REPLY])
{
    const uint8_t *payload = request->payload;
    switch (request->cmd_no) {
    case NARO_CMD_MD_SET:
        memcpy(isp->grid, payload, sizeof isp->grid);
        return IPC_RET_OK;
    case NARO_CMD_MD_GET:
        memcpy(data, isp->grid, sizeof isp->grid);
        return IPC_RET_OK;
    case NARO_CMD_MD_ENABLE:
    case NARO_CMD_MD_DISABLE:
        isp->motion_grid = request->cmd_no == NARO_CMD_MD_ENABLE;
        return IPC_RET_OK;
    case NARO_CMD_WDR_ENABLE:
    case NARO_CMD_WDR_DISABLE:
        isp->wdr = request->cmd_no == NARO_CMD_WDR_ENABLE;
        return IPC_RET_OK;
    case NARO_CMD_DAYNIGHT_MODE_GET:
        ipc_put_word(data, isp->mode);
        return IPC_RET_OK;
    case NARO_CMD_DAYNIGHT_MODE_SET:
        if (ipc_get_word(payload) > ISP_MODE_NIGHT)
            return IPC_RET_BAD_VALUE;
        isp->mode = ipc_get_word(payload);
        return IPC_RET_OK;
    case NARO_CMD_EV_ATTR_GET:
        put_words(data, isp->exposure.word, 7);
        return IPC_RET_OK;
    case NARO_CMD_WB_ATTR_GET:
        put_words(data, isp->white_balance.word, 8);
        return IPC_RET_OK;
    case NARO_CMD_PWM_DUTY_SET:
        if (ipc_get_word(payload) > 100)
            return IPC_RET_BAD_VALUE;
        isp->pwm_duty_percent = ipc_get_word(payload);
        return IPC_RET_OK;
    case NARO_CMD_TRACK_RUN:
        isp->track = isp_track_boxes(payload);
        isp->tracking = true;
        return IPC_RET_OK;
    case NARO_CMD_TRACK_STOP:
        isp->track = {};
        isp->tracking = false;
        return IPC_RET_OK;
    case NARO_CMD_SOUND_RESULT_GET:
        ipc_put_word(data, isp->sound);
        return IPC_RET_OK;
    case NARO_CMD_COLORTRANS_ENABLE:
    case NARO_CMD_COLORTRANS_DISABLE:
        isp->colour_transform = request->cmd_no == NARO_CMD_COLORTRANS_ENABLE;
        return IPC_RET_OK;
    default:
        return IPC_RET_UNKNOWN_COMMAND;
    }
}
