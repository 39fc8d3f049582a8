// The media server's command wire: what the daemon sends and the media server answers. Little-endian 32-bit
// words.
//
// request: header | payload (n bytes) | tail            20 + n bytes
// reply:   header (cmd_no + 1) | ret | data (m) | tail  24 + m bytes
//
// `ret` is 0 for success, otherwise the media server's error code. The stream has no other framing: each
// side reads exactly the length that the table below gives, so both must agree on it. Words are written as
// this machine holds them, which is why the byte order is asserted.
#ifndef NARO_IPC_WIRE_H
#define NARO_IPC_WIRE_H

#include <stddef.h>
#include <stdint.h>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "messages are built from the machine's own words");

// Name in the abstract namespace, from sun_path[1]. The rest of the 108 bytes is zero and part of the name.
#define NARO_IPC_SOCKET_NAME "naro_IPCsock"

enum : uint32_t {
    NARO_IPC_MAGIC = 0x4F52414Eu, // the bytes "NARO"
    NARO_IPC_TAIL = 0x0000A5A5u,
};
enum : uint32_t { NARO_IPC_SET = 1, NARO_IPC_QUERY = 2 };

struct naro_ipc_cmd_header {
    uint32_t magic;
    uint32_t length; // whole message, header and tail included
    uint32_t cmd_no;
    uint32_t cmd_type;
};
static_assert(sizeof(naro_ipc_cmd_header) == 16, "wire layout");

enum : uint32_t {
    NARO_CMD_MD_SET = 4097,
    NARO_CMD_MD_GET = 4099,
    NARO_CMD_MD_ENABLE = 4101,
    NARO_CMD_MD_DISABLE = 4103,
    NARO_CMD_WDR_ENABLE = 4109,
    NARO_CMD_WDR_DISABLE = 4111,
    NARO_CMD_DAYNIGHT_MODE_GET = 4118,
    NARO_CMD_DAYNIGHT_MODE_SET = 4120,
    NARO_CMD_EV_ATTR_GET = 4122,
    NARO_CMD_WB_ATTR_GET = 4126,
    NARO_CMD_PWM_DUTY_SET = 4135,
    NARO_CMD_TRACK_RUN = 4139,
    NARO_CMD_TRACK_STOP = 4141,
    NARO_CMD_SOUND_RESULT_GET = 4145,
    NARO_CMD_COLORTRANS_ENABLE = 4149,
    NARO_CMD_COLORTRANS_DISABLE = 4151,
};

enum { NARO_IPC_MAX_REQUEST = 116, NARO_IPC_MAX_REPLY = 56 };

// One row for each command: what the request carries, what the reply brings, and the daemon's function that
// issues it (the name stands in its log lines).
struct naro_ipc_command {
    uint32_t cmd_no;
    uint32_t cmd_type; // NARO_IPC_SET or NARO_IPC_QUERY
    uint32_t payload;  // bytes between the request's header and its tail
    uint32_t data;     // bytes between the reply's ret and its tail
    const char *function;
};

// The whole command set, in the order of the numbers. Both ends read their lengths here.
inline constexpr naro_ipc_command naro_ipc_commands[] = {
    {NARO_CMD_MD_SET, NARO_IPC_SET, 32, 0, "naro_isp_md_set"},
    {NARO_CMD_MD_GET, NARO_IPC_QUERY, 0, 32, "naro_isp_md_get"},
    {NARO_CMD_MD_ENABLE, NARO_IPC_SET, 0, 0, "naro_isp_md_enable"},
    {NARO_CMD_MD_DISABLE, NARO_IPC_SET, 0, 0, "naro_isp_md_disable"},
    {NARO_CMD_WDR_ENABLE, NARO_IPC_SET, 0, 0, "naro_isp_wdr_enable"},
    {NARO_CMD_WDR_DISABLE, NARO_IPC_SET, 0, 0, "naro_isp_wdr_disable"},
    {NARO_CMD_DAYNIGHT_MODE_GET, NARO_IPC_QUERY, 0, 4, "naro_isp_daynight_mode_get"},
    {NARO_CMD_DAYNIGHT_MODE_SET, NARO_IPC_SET, 4, 0, "naro_isp_daynight_mode_set"},
    {NARO_CMD_EV_ATTR_GET, NARO_IPC_QUERY, 0, 28, "naro_isp_ev_attr_get"},
    {NARO_CMD_WB_ATTR_GET, NARO_IPC_QUERY, 0, 32, "naro_isp_wb_attr_get"},
    {NARO_CMD_PWM_DUTY_SET, NARO_IPC_SET, 4, 0, "naro_isp_pwm_duty_set"},
    {NARO_CMD_TRACK_RUN, NARO_IPC_SET, 96, 0, "naro_isp_track_run"},
    {NARO_CMD_TRACK_STOP, NARO_IPC_SET, 0, 0, "naro_isp_track_stop"},
    {NARO_CMD_SOUND_RESULT_GET, NARO_IPC_QUERY, 0, 4, "naro_audio_sound_result_get"},
    {NARO_CMD_COLORTRANS_ENABLE, NARO_IPC_SET, 0, 0, "naro_isp_COLORTRANS_enable"},
    {NARO_CMD_COLORTRANS_DISABLE, NARO_IPC_SET, 0, 0, "naro_isp_COLORTRANS_disable"},
};

// The row of a command, or null where the number is none of ours (which a peer may well send). Any thread.
constexpr const naro_ipc_command *naro_ipc_command_find(uint32_t cmd_no)
{
    for (const naro_ipc_command &command : naro_ipc_commands)
        if (command.cmd_no == cmd_no)
            return &command;
    return nullptr;
}
// Whole messages in bytes: header, payload and tail; header, ret, data and tail.
constexpr uint32_t naro_ipc_request_length(const naro_ipc_command &command)
{
    return sizeof(naro_ipc_cmd_header) + command.payload + 4;
}
constexpr uint32_t naro_ipc_reply_length(const naro_ipc_command &command)
{
    return sizeof(naro_ipc_cmd_header) + 4 + command.data + 4;
}
// Where a reply's ret and its data begin.
enum { NARO_IPC_REPLY_RET_OFFSET = 16, NARO_IPC_REPLY_DATA_OFFSET = 20 };

constexpr bool naro_ipc_commands_fit()
{
    uint32_t request = 0, reply = 0;
    for (const naro_ipc_command &command : naro_ipc_commands) {
        request = naro_ipc_request_length(command) > request ? naro_ipc_request_length(command) : request;
        reply = naro_ipc_reply_length(command) > reply ? naro_ipc_reply_length(command) : reply;
    }
    return request == NARO_IPC_MAX_REQUEST && reply == NARO_IPC_MAX_REPLY;
}
static_assert(naro_ipc_commands_fit(), "the longest messages are those of the table");

// The motion grid: 32 cells, row-major, 8 columns by 4 rows. Words in wire order.
struct md_cell {
    int32_t x, y, w, h; // pixels
    int32_t reserved;   // carried, never touched
    int32_t value;      // sent by naro_isp_md_set (low byte + 1)
    int32_t result;     // received by naro_isp_md_get
};
enum { NARO_MD_COLUMNS = 8, NARO_MD_ROWS = 4, NARO_MD_CELLS = 32 };

struct naro_isp_ev_attr {
    uint32_t word[7]; // ev, bv, exposure in microseconds, analogue gain, digital gain (1024 = 1x), 0, 0
};
struct naro_isp_wb_attr {
    int32_t word[8]; // red, blue (signed), then zeros
};

// The tracking block: six boxes of four 32-bit words x1, y1, x2, y2 in pixels of the 320 x 192 frame;
// unused boxes are zero.
enum { NARO_TRACK_BOXES = 6 };
struct naro_track_box {
    int32_t x1, y1, x2, y2;
};
struct naro_isp_track_param {
    naro_track_box box[NARO_TRACK_BOXES];
};
static_assert(sizeof(naro_isp_track_param) == 96, "wire layout");
static_assert(sizeof(md_cell) == 28, "wire layout");
static_assert(sizeof(naro_isp_ev_attr) == 28 && sizeof(naro_isp_wb_attr) == 32, "wire layout");

#endif
