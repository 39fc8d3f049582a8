// Requests on the media server's command socket, as bytes from outside: cut out of a stream, checked,
// answered. Pure functions; any thread.
#ifndef IPC_REQUEST_H
#define IPC_REQUEST_H

#include <stddef.h>
#include <stdint.h>

#include "naro_ipc_wire.h"

// The `ret` of a reply. Other numbers than 0 are this camera's own.
enum ipc_ret : int32_t {
    IPC_RET_OK = 0,
    IPC_RET_UNKNOWN_COMMAND = 1,
    IPC_RET_BAD_MAGIC = 2,
    IPC_RET_BAD_LENGTH = 3,
    IPC_RET_BAD_TYPE = 4, // set instead of query, or the other way round
    IPC_RET_BAD_TAIL = 5,
    IPC_RET_BAD_VALUE = 6, // the payload says something that there is not
};

enum {
    // Requests of numbers that this camera does not know are read and refused up to this length.
    IPC_REQUEST_MAX = 1024,
    IPC_REPLY_PLAIN = 24, // a reply without data
};

struct ipc_request {
    uint32_t cmd_no;
    uint32_t cmd_type;
    int32_t ret;                     // IPC_RET_OK, or why it is refused
    bool close;                      // the stream is of no more use after the answer
    uint32_t reply_data;             // bytes of data in its reply
    const uint8_t *payload;          // in the caller's bytes; of the length that the command's row says
    const naro_ipc_command *command; // null: unknown
};

// Takes the first request from `length` bytes: how many bytes it used up, with *request filled, or 0 when it
// is not complete yet. A wrong magic or length uses up everything (and sets `close`).
size_t ipc_request_parse(const uint8_t *bytes, size_t length, ipc_request *request);

// Writes the reply to `request` with its `ret`, and `data` (its reply_data bytes; null: zeros). Its length.
size_t ipc_reply_build(uint8_t reply[NARO_IPC_MAX_REPLY], const ipc_request *request, const uint8_t *data);

// Little-endian words, at any address.
uint32_t ipc_get_word(const uint8_t *bytes);
void ipc_put_word(uint8_t *bytes, uint32_t word);

#endif
