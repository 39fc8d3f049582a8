// Cutting requests out of a stream, and the bytes of replies.
#include "ipc_request.h"

#include <gtest/gtest.h>
#include <vector>

#include "camera_wire.h"

namespace
{

ipc_request parse(const Bytes &bytes, size_t *used)
{
    ipc_request request = {};
    *used = ipc_request_parse(bytes.data(), bytes.size(), &request);
    return request;
}

TEST(IpcRequest, EveryCommandOfTheTableIsTakenWhole)
{
    for (const naro_ipc_command &command : naro_ipc_commands) {
        const Bytes bytes = request_for(command.cmd_no);
        ASSERT_EQ(bytes.size(), 20 + command.payload) << command.function;
        size_t used;
        const ipc_request request = parse(bytes, &used);
        EXPECT_EQ(used, bytes.size());
        EXPECT_EQ(request.ret, IPC_RET_OK) << command.function;
        EXPECT_EQ(request.cmd_no, command.cmd_no);
        EXPECT_EQ(request.cmd_type, command.cmd_type);
        EXPECT_EQ(request.reply_data, command.data);
        EXPECT_EQ(request.command->cmd_no, command.cmd_no);
        EXPECT_EQ(request.payload, bytes.data() + 16);
        EXPECT_FALSE(request.close);
    }
}

TEST(IpcRequest, APartIsNotARequestYet)
{
    const Bytes bytes = request_for(NARO_CMD_TRACK_RUN);
    for (size_t length = 0; length < bytes.size(); length++) {
        ipc_request request;
        EXPECT_EQ(ipc_request_parse(bytes.data(), length, &request), 0u) << length;
    }
}

TEST(IpcRequest, OfTwoRequestsTheFirstIsTaken)
{
    Bytes bytes = request_for(NARO_CMD_WDR_ENABLE);
    const Bytes second = request_for(NARO_CMD_TRACK_STOP);
    bytes.insert(bytes.end(), second.begin(), second.end());
    size_t used;
    EXPECT_EQ(parse(bytes, &used).cmd_no, static_cast<uint32_t>(NARO_CMD_WDR_ENABLE));
    EXPECT_EQ(used, 20u);
}

TEST(IpcRequest, AWrongMagicUsesUpEverythingAndCloses)
{
    for (size_t byte = 0; byte < 4; byte++) {
        Bytes bytes = request_for(NARO_CMD_DAYNIGHT_MODE_GET);
        bytes[byte] ^= 1;
        bytes.resize(40);
        size_t used;
        const ipc_request request = parse(bytes, &used);
        EXPECT_EQ(used, 40u);
        EXPECT_EQ(request.ret, IPC_RET_BAD_MAGIC);
        EXPECT_TRUE(request.close);
        EXPECT_EQ(request.reply_data, 4u) << "a refusal has the command's full reply";
    }
}

TEST(IpcRequest, AWrongMagicIsSeenWithTheHeader)
{
    Bytes bytes = request_for(NARO_CMD_TRACK_RUN);
    bytes[0] = 'X';
    ipc_request request;
    EXPECT_EQ(ipc_request_parse(bytes.data(), 15, &request), 0u);
    EXPECT_EQ(ipc_request_parse(bytes.data(), 16, &request), 16u);
}

TEST(IpcRequest, ALengthThatIsNotTheCommandsCloses)
{
    for (const uint32_t length : {0u, 19u, 21u, 24u, 0xffffffffu}) {
        Bytes bytes = request_for(NARO_CMD_WDR_ENABLE);
        put_word(&bytes[4], length);
        size_t used;
        const ipc_request request = parse(bytes, &used);
        EXPECT_EQ(request.ret, IPC_RET_BAD_LENGTH) << length;
        EXPECT_TRUE(request.close);
        EXPECT_EQ(used, bytes.size());
    }
}

TEST(IpcRequest, AnUnknownNumberIsReadByItsOwnLengthAndRefused)
{
    for (const uint32_t length : {20u, 21u, 1024u}) {
        Bytes bytes = request_bytes(4098, NARO_IPC_SET, Bytes(length - 20));
        size_t used;
        const ipc_request request = parse(bytes, &used);
        EXPECT_EQ(used, length);
        EXPECT_EQ(request.ret, IPC_RET_UNKNOWN_COMMAND);
        EXPECT_FALSE(request.close);
        EXPECT_EQ(request.reply_data, 0u);
        EXPECT_EQ(request.command, nullptr);
    }
}

TEST(IpcRequest, AnUnknownNumberOfAnImpossibleLengthCloses)
{
    for (const uint32_t length : {19u, 1025u}) {
        Bytes bytes = request_bytes(1, NARO_IPC_SET, Bytes(1005));
        put_word(&bytes[4], length);
        size_t used;
        const ipc_request request = parse(bytes, &used);
        EXPECT_EQ(request.ret, IPC_RET_BAD_LENGTH);
        EXPECT_TRUE(request.close);
    }
}

TEST(IpcRequest, AWrongTypeOrTailIsRefusedAndTheStreamGoesOn)
{
    Bytes type = request_for(NARO_CMD_WDR_ENABLE);
    put_word(&type[12], NARO_IPC_QUERY);
    Bytes tail = request_for(NARO_CMD_WDR_ENABLE);
    tail[16] ^= 1;
    size_t used;
    EXPECT_EQ(parse(type, &used).ret, IPC_RET_BAD_TYPE);
    EXPECT_EQ(used, 20u);
    EXPECT_FALSE(parse(type, &used).close);
    EXPECT_EQ(parse(tail, &used).ret, IPC_RET_BAD_TAIL);
    EXPECT_FALSE(parse(tail, &used).close);
}

TEST(IpcReply, CarriesTheNumberAfterTheCommandsAndTheData)
{
    for (const naro_ipc_command &command : naro_ipc_commands) {
        const Bytes bytes = request_for(command.cmd_no);
        size_t used;
        const ipc_request request = parse(bytes, &used);
        uint8_t data[32], reply[NARO_IPC_MAX_REPLY];
        for (size_t i = 0; i < sizeof data; i++)
            data[i] = static_cast<uint8_t>(i + 1);
        const size_t length = ipc_reply_build(reply, &request, data);
        ASSERT_EQ(length, 24 + command.data) << command.function;
        EXPECT_EQ(get_word(reply), static_cast<uint32_t>(NARO_IPC_MAGIC));
        EXPECT_EQ(get_word(reply + 4), length);
        EXPECT_EQ(get_word(reply + 8), command.cmd_no + 1);
        EXPECT_EQ(get_word(reply + 12), command.cmd_type);
        EXPECT_EQ(get_word(reply + 16), 0u);
        EXPECT_EQ(Bytes(reply + 20, reply + 20 + command.data), Bytes(data, data + command.data));
        EXPECT_EQ(get_word(reply + length - 4), 0xA5A5u);
    }
}

TEST(IpcReply, ARefusalIsOfFullLengthWithoutData)
{
    const Bytes bytes = request_for(NARO_CMD_WB_ATTR_GET);
    size_t used;
    ipc_request request = parse(bytes, &used);
    request.ret = -3;
    uint8_t reply[NARO_IPC_MAX_REPLY];
    EXPECT_EQ(ipc_reply_build(reply, &request, nullptr), 56u);
    EXPECT_EQ(get_word(reply + 16), 0xfffffffdu);
    EXPECT_EQ(Bytes(reply + 20, reply + 52), Bytes(32));
}

TEST(IpcWords, AreLittleEndianAtAnyAddress)
{
    uint8_t bytes[5] = {0, 0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(ipc_get_word(bytes + 1), 0x12345678u);
    ipc_put_word(bytes, 0xfedcba98u);
    EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{0x98, 0xba, 0xdc, 0xfe}));
}

} // namespace
