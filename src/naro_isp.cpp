// One implementation of a command, driven by the wire's table, and a function for each row.
#include "naro_isp.h"

#include <pthread.h>
#include <string.h>

#include "naro_ipc.h"
#include "naro_util.h"

namespace
{

enum class outcome { done, refused, failed };

// With the lock held: `message` holds the request and then the reply.
outcome exchange(const naro_ipc_command &command, uint8_t *message, void *data)
{
    if (naro_ipc_cmd_snd(message, naro_ipc_request_length(command)) != 0) {
        log_err("[%s][snd][cmd_no=%d][fail]\n", command.function, static_cast<int>(command.cmd_no));
        return outcome::failed;
    }
    if (naro_ipc_cmd_rcv(message, naro_ipc_reply_length(command)) != 0) {
        log_err("[%s][rcv][cmd_no=%d][fail][1]\n", command.function, static_cast<int>(command.cmd_no));
        return outcome::failed;
    }
    naro_ipc_cmd_header head;
    int32_t ret;
    memcpy(&head, message, sizeof head);
    memcpy(&ret, message + NARO_IPC_REPLY_RET_OFFSET, sizeof ret);
    // Magic, length, type and tail of a reply are deliberately not looked at.
    if (head.cmd_no != command.cmd_no + 1 || ret != 0) {
        // One command's line has always ended differently; whoever searches logs for it finds it as it was.
        if (command.cmd_no == NARO_CMD_MD_GET)
            log_err("[%s][cmd_no=%d][ret=%d][param] get error\r\n", command.function,
                    static_cast<int>(head.cmd_no), ret);
        else
            log_err("[%s][cmd_no=%d][ret=%d][param] get error\n", command.function,
                    static_cast<int>(head.cmd_no), ret);
        return outcome::refused;
    }
    if (data)
        memcpy(data, message + NARO_IPC_REPLY_DATA_OFFSET, command.data);
    return outcome::done;
}

// `payload` and `data` are as long as the row says, null where it says 0. `data` is written only when done.
outcome issue(const naro_ipc_command &command, const void *payload, void *data)
{
    uint8_t message[NARO_IPC_MAX_REQUEST] = {};
    static_assert(sizeof message >= NARO_IPC_MAX_REPLY, "the reply comes into the same buffer");
    const naro_ipc_cmd_header head = {NARO_IPC_MAGIC, naro_ipc_request_length(command), command.cmd_no,
                                      command.cmd_type};
    const uint32_t tail = NARO_IPC_TAIL;
    memcpy(message, &head, sizeof head);
    if (payload)
        memcpy(message + sizeof head, payload, command.payload);
    memcpy(message + sizeof head + command.payload, &tail, sizeof tail);

    int cancel_state;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE,
                           &cancel_state); // request and reply are one, see the header
    naro_ipc_lock();
    const outcome result = exchange(command, message, data);
    naro_ipc_unlock();
    pthread_setcancelstate(cancel_state, nullptr);
    return result;
}

template <uint32_t cmd_no> outcome issue(const void *payload, void *data)
{
    constexpr const naro_ipc_command &command = *naro_ipc_command_find(cmd_no); // none: does not compile
    return issue(command, payload, data);
}

template <uint32_t cmd_no> int run(const void *payload = nullptr, void *data = nullptr)
{
    return issue<cmd_no>(payload, data) == outcome::done ? 0 : -1;
}

} // namespace

int naro_isp_md_set(const md_cell *cells)
{
    uint8_t levels[NARO_MD_CELLS];
    for (int i = 0; i < NARO_MD_CELLS; i++)
        levels[i] = static_cast<uint8_t>(static_cast<uint8_t>(cells[i].value) + 1);
    return run<NARO_CMD_MD_SET>(levels);
}

int naro_isp_md_get(md_cell *cells)
{
    const int cell_width = 80, cell_height = 90; // of a 640 x 360 picture
    uint8_t results[NARO_MD_CELLS];
    if (run<NARO_CMD_MD_GET>(nullptr, results) != 0)
        return -1;
    for (int row = 0; row < NARO_MD_ROWS; row++)
        for (int column = 0; column < NARO_MD_COLUMNS; column++) {
            const int index = row * NARO_MD_COLUMNS + column;
            md_cell &cell = cells[index];
            cell.x = cell_width * column;
            cell.y = cell_height * row;
            cell.w = cell_width;
            cell.h = cell_height;
            cell.result = results[index];
        }
    return 0;
}

int naro_isp_md_enable(void)
{
    return run<NARO_CMD_MD_ENABLE>();
}

int naro_isp_md_disable(void)
{
    return run<NARO_CMD_MD_DISABLE>();
}

int naro_isp_wdr_enable(void)
{
    return run<NARO_CMD_WDR_ENABLE>();
}

int naro_isp_wdr_disable(void)
{
    return run<NARO_CMD_WDR_DISABLE>();
}

int naro_isp_daynight_mode_get(uint32_t *mode)
{
    return run<NARO_CMD_DAYNIGHT_MODE_GET>(nullptr, mode);
}

int naro_isp_daynight_mode_set(uint32_t mode)
{
    return run<NARO_CMD_DAYNIGHT_MODE_SET>(&mode);
}

int naro_isp_ev_attr_get(naro_isp_ev_attr *attr)
{
    return run<NARO_CMD_EV_ATTR_GET>(nullptr, attr);
}

int naro_isp_wb_attr_get(naro_isp_wb_attr *attr)
{
    return run<NARO_CMD_WB_ATTR_GET>(nullptr, attr);
}

int naro_isp_pwm_duty_set(uint32_t duty)
{
    return run<NARO_CMD_PWM_DUTY_SET>(&duty);
}

int naro_isp_track_run(const naro_isp_track_param *param, int count)
{
    (void)count;
    if (!param) {
        // The number has always been there, and is not this line's.
        log_err("[%s %d] param err ", __func__, 642);
        return -1;
    }
    return issue<NARO_CMD_TRACK_RUN>(param, nullptr) == outcome::failed ? -1 : 0;
}

int naro_isp_track_stop(void)
{
    return run<NARO_CMD_TRACK_STOP>();
}

int naro_audio_sound_result_get(uint32_t *result)
{
    return run<NARO_CMD_SOUND_RESULT_GET>(nullptr, result);
}

int naro_isp_COLORTRANS_enable(void)
{
    return run<NARO_CMD_COLORTRANS_ENABLE>();
}

int naro_isp_COLORTRANS_disable(void)
{
    return run<NARO_CMD_COLORTRANS_DISABLE>();
}
