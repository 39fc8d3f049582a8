// The command socket's framing, from the side that is asked.
#include "ipc_request.h"

#include <string.h>

namespace
{

enum {
    HEADER = sizeof(naro_ipc_cmd_header),
    REQUEST_PLAIN = HEADER + 4, // a request without payload
    AT_MAGIC = offsetof(naro_ipc_cmd_header, magic),
    AT_LENGTH = offsetof(naro_ipc_cmd_header, length),
    AT_CMD_NO = offsetof(naro_ipc_cmd_header, cmd_no),
    AT_CMD_TYPE = offsetof(naro_ipc_cmd_header, cmd_type),
};

} // namespace

uint32_t ipc_get_word(const uint8_t *bytes)
{
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[3]) << 24;
}

void ipc_put_word(uint8_t *bytes, uint32_t word)
{
    for (int i = 0; i < 4; i++)
        bytes[i] = static_cast<uint8_t>(word >> 8 * i);
}

size_t ipc_request_parse(const uint8_t *bytes, size_t length, ipc_request *request)
{
    if (length < HEADER)
        return 0;
    const uint32_t declared = ipc_get_word(bytes + AT_LENGTH);
    *request = {};
    request->cmd_no = ipc_get_word(bytes + AT_CMD_NO);
    request->cmd_type = ipc_get_word(bytes + AT_CMD_TYPE);
    request->payload = bytes + HEADER;
    request->command = naro_ipc_command_find(request->cmd_no);
    request->reply_data = request->command ? request->command->data : 0;
    // Where a request begins or ends is not known after these two: there is no way back into the stream.
    if (ipc_get_word(bytes + AT_MAGIC) != NARO_IPC_MAGIC)
        request->ret = IPC_RET_BAD_MAGIC;
    else if (request->command ? declared != naro_ipc_request_length(*request->command)
                              : declared < REQUEST_PLAIN || declared > IPC_REQUEST_MAX)
        request->ret = IPC_RET_BAD_LENGTH;
    if (request->ret != IPC_RET_OK) {
        request->close = true;
        return length;
    }
    if (length < declared)
        return 0;
    if (!request->command)
        request->ret = IPC_RET_UNKNOWN_COMMAND;
    else if (request->cmd_type != request->command->cmd_type)
        request->ret = IPC_RET_BAD_TYPE;
    else if (ipc_get_word(bytes + declared - 4) != NARO_IPC_TAIL)
        request->ret = IPC_RET_BAD_TAIL;
    return declared;
}

size_t ipc_reply_build(uint8_t reply[NARO_IPC_MAX_REPLY], const ipc_request *request, const uint8_t *data)
{
    const uint32_t length = IPC_REPLY_PLAIN + request->reply_data;
    memset(reply, 0, NARO_IPC_MAX_REPLY);
    ipc_put_word(reply + AT_MAGIC, NARO_IPC_MAGIC);
    ipc_put_word(reply + AT_LENGTH, length);
    ipc_put_word(reply + AT_CMD_NO, request->cmd_no + 1);
    ipc_put_word(reply + AT_CMD_TYPE, request->cmd_type);
    ipc_put_word(reply + NARO_IPC_REPLY_RET_OFFSET, static_cast<uint32_t>(request->ret));
    if (data && request->reply_data > 0)
        memcpy(reply + NARO_IPC_REPLY_DATA_OFFSET, data, request->reply_data);
    ipc_put_word(reply + length - 4, NARO_IPC_TAIL);
    return length;
}
