// Requests for the command socket as bytes, made independently of the code under test.
#ifndef CAMERA_WIRE_H
#define CAMERA_WIRE_H

#include <stdint.h>
#include <vector>

#include "naro_ipc_wire.h"

using Bytes = std::vector<uint8_t>;

inline void put_word(uint8_t *bytes, uint32_t word)
{
    for (int i = 0; i < 4; i++)
        bytes[i] = static_cast<uint8_t>(word >> (8 * i));
}

inline uint32_t get_word(const uint8_t *bytes)
{
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[3]) << 24;
}

inline Bytes words(const std::vector<uint32_t> &values)
{
    Bytes bytes(4 * values.size());
    for (size_t i = 0; i < values.size(); i++)
        put_word(&bytes[4 * i], values[i]);
    return bytes;
}

inline Bytes request_bytes(uint32_t cmd_no, uint32_t cmd_type, const Bytes &payload)
{
    Bytes bytes = words({0x4F52414E, static_cast<uint32_t>(20 + payload.size()), cmd_no, cmd_type});
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    const Bytes tail = words({0xA5A5});
    bytes.insert(bytes.end(), tail.begin(), tail.end());
    return bytes;
}

// A correct request, its payload zeros.
inline Bytes request_for(uint32_t cmd_no)
{
    const naro_ipc_command *command = naro_ipc_command_find(cmd_no);
    return request_bytes(cmd_no, command->cmd_type, Bytes(command->payload));
}

#endif
