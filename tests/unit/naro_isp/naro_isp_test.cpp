// Every command, byte by byte, over a channel that the test plays.
#include "naro_isp.h"

#include <gmock/gmock.h>
#include <limits.h>
#include <string.h>

#include "log_capture.h"
#include "naro_ipc.h"

using Calls = std::vector<std::string>;
using Lines = std::vector<LogCapture::Line>;
using testing::ElementsAre;

namespace
{

// The channel: what was asked of it, and what it answers.
struct Channel {
    Calls calls;
    std::string request;
    size_t reply_length = 0;
    std::string reply;
    bool snd_fails = false, rcv_fails = false;
} channel;

std::string words(std::initializer_list<uint32_t> values)
{
    std::string bytes;
    for (uint32_t value : values)
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string counted_bytes(size_t count, int first)
{
    std::string bytes;
    for (size_t i = 0; i < count; i++)
        bytes += static_cast<char>(first + static_cast<int>(i));
    return bytes;
}

// What each function is called with, what it must send, and what the reply carries.
md_cell cells[NARO_MD_CELLS];
naro_isp_track_param boxes;
naro_isp_ev_attr exposure;
naro_isp_wb_attr white_balance;
uint32_t word;

struct Row {
    const char *name;
    uint32_t cmd_no, cmd_type;
    size_t payload, request, reply;
    int (*call)(void);
    void *output;
};
const Row rows[] = {
    {"naro_isp_md_set", 0x1001, 1, 32, 52, 24, [] { return naro_isp_md_set(cells); }, nullptr},
    {"naro_isp_md_get", 0x1003, 2, 0, 20, 56, [] { return naro_isp_md_get(cells); }, cells},
    {"naro_isp_md_enable", 0x1005, 1, 0, 20, 24, naro_isp_md_enable, nullptr},
    {"naro_isp_md_disable", 0x1007, 1, 0, 20, 24, naro_isp_md_disable, nullptr},
    {"naro_isp_wdr_enable", 0x100D, 1, 0, 20, 24, naro_isp_wdr_enable, nullptr},
    {"naro_isp_wdr_disable", 0x100F, 1, 0, 20, 24, naro_isp_wdr_disable, nullptr},
    {"naro_isp_daynight_mode_get", 0x1016, 2, 0, 20, 28, [] { return naro_isp_daynight_mode_get(&word); },
     &word},
    {"naro_isp_daynight_mode_set", 0x1018, 1, 4, 24, 24, [] { return naro_isp_daynight_mode_set(word); },
     nullptr},
    {"naro_isp_ev_attr_get", 0x101A, 2, 0, 20, 52, [] { return naro_isp_ev_attr_get(&exposure); }, &exposure},
    {"naro_isp_wb_attr_get", 0x101E, 2, 0, 20, 56, [] { return naro_isp_wb_attr_get(&white_balance); },
     &white_balance},
    {"naro_isp_pwm_duty_set", 0x1027, 1, 4, 24, 24, [] { return naro_isp_pwm_duty_set(word); }, nullptr},
    {"naro_isp_track_run", 0x102B, 1, 96, 116, 24, [] { return naro_isp_track_run(&boxes, 3); }, nullptr},
    {"naro_isp_track_stop", 0x102D, 1, 0, 20, 24, naro_isp_track_stop, nullptr},
    {"naro_audio_sound_result_get", 0x1031, 2, 0, 20, 28, [] { return naro_audio_sound_result_get(&word); },
     &word},
    {"naro_isp_COLORTRANS_enable", 0x1035, 1, 0, 20, 24, naro_isp_COLORTRANS_enable, nullptr},
    {"naro_isp_COLORTRANS_disable", 0x1037, 1, 0, 20, 24, naro_isp_COLORTRANS_disable, nullptr},
};

size_t output_size(const Row &row)
{
    return row.output == cells ? sizeof cells : row.reply - 24;
}

std::string output_bytes(const Row &row)
{
    return row.output ? std::string(static_cast<const char *>(row.output), output_size(row)) : "";
}

// A reply of the row's length: its data count up from 0xC1.
std::string reply_of(const Row &row, uint32_t cmd_no, uint32_t ret)
{
    return words({0x4F52414E, static_cast<uint32_t>(row.reply), cmd_no, row.cmd_type, ret}) +
           counted_bytes(row.reply - 24, 0xC1) + words({0xA5A5});
}

class Isp : public testing::Test
{
  protected:
    void SetUp() override
    {
        channel = Channel();
        for (int i = 0; i < NARO_MD_CELLS; i++)
            cells[i] = {-1, -2, -3, -4, 1000 + i, 2000 + i, 3000 + i};
        for (int i = 0; i < NARO_TRACK_BOXES; i++)
            boxes.box[i] = {4 * i + 101, 4 * i + 102, 4 * i + 103, 4 * i + 104};
        memset(&exposure, 0x5A, sizeof exposure);
        memset(&white_balance, 0x5A, sizeof white_balance);
        word = 0x01020304;
    }
    LogCapture log;
};

class EveryCommand : public Isp, public testing::WithParamInterface<Row>
{
  protected:
    std::string payload() const
    {
        std::string bytes;
        if (row.cmd_no == 0x1001) {
            for (const md_cell &cell : cells)
                bytes += static_cast<char>(cell.value + 1);
        } else if (row.cmd_no == 0x102B) {
            for (const naro_track_box &box : boxes.box)
                bytes += words({static_cast<uint32_t>(box.x1), static_cast<uint32_t>(box.y1),
                                static_cast<uint32_t>(box.x2), static_cast<uint32_t>(box.y2)});
        } else if (row.payload == 4) {
            bytes = words({0x01020304});
        }
        return bytes;
    }
    std::string line(const std::string &rest) const { return "[" + std::string(row.name) + "]" + rest; }
    std::string cmd_no() const { return std::to_string(row.cmd_no); }

    const Row &row = GetParam();
};

TEST_P(EveryCommand, SendsItsRequestAndTakesItsReply)
{
    channel.reply = reply_of(row, row.cmd_no + 1, 0);
    const std::string expected_payload = payload();
    EXPECT_EQ(row.call(), 0);
    EXPECT_THAT(channel.calls, ElementsAre("lock", "snd", "rcv", "unlock"));
    ASSERT_EQ(expected_payload.size(), row.payload);
    EXPECT_EQ(channel.request, "NARO" +
                                   words({static_cast<uint32_t>(row.request), row.cmd_no, row.cmd_type}) +
                                   expected_payload + words({0x0000A5A5}));
    EXPECT_EQ(channel.request.size(), row.request);
    EXPECT_EQ(channel.reply_length, row.reply);
    if (row.output && row.output != cells) {
        EXPECT_EQ(output_bytes(row), counted_bytes(row.reply - 24, 0xC1));
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST_P(EveryCommand, FailsWhenTheRequestCannotBeSent)
{
    channel.snd_fails = true;
    const std::string before = output_bytes(row);
    EXPECT_EQ(row.call(), -1);
    EXPECT_THAT(channel.calls, ElementsAre("lock", "snd", "unlock"));
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, line("[snd][cmd_no=" + cmd_no() + "][fail]\n")}}));
    EXPECT_EQ(output_bytes(row), before);
}

TEST_P(EveryCommand, FailsWhenNoReplyComes)
{
    channel.rcv_fails = true;
    channel.reply = reply_of(row, row.cmd_no + 1, 0);
    const std::string before = output_bytes(row);
    EXPECT_EQ(row.call(), -1);
    EXPECT_THAT(channel.calls, ElementsAre("lock", "snd", "rcv", "unlock"));
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, line("[rcv][cmd_no=" + cmd_no() + "][fail][1]\n")}}));
    EXPECT_EQ(output_bytes(row), before);
}

// A refusal, another command's reply, the request's own number, both wrong: all the same.
TEST_P(EveryCommand, TellsARefusalAndAnotherCommandsReply)
{
    const struct {
        uint32_t cmd_no, ret;
        const char *text; // of ret
    } wrong[] = {{row.cmd_no + 1, 5, "5"},
                 {row.cmd_no + 1, 1, "1"},
                 {row.cmd_no + 1, UINT32_MAX, "-1"},
                 {row.cmd_no + 1, 0x80000000, "-2147483648"},
                 {row.cmd_no, 0, "0"},
                 {row.cmd_no + 2, 0, "0"},
                 {0, 0, "0"},
                 {row.cmd_no, 7, "7"}};
    for (const auto &reply : wrong) {
        log.clear();
        channel.calls.clear();
        channel.reply = reply_of(row, reply.cmd_no, reply.ret);
        const std::string before = output_bytes(row);
        // The boxes of the next frame make up for those that were refused.
        EXPECT_EQ(row.call(), row.cmd_no == 0x102B ? 0 : -1);
        EXPECT_THAT(channel.calls, ElementsAre("lock", "snd", "rcv", "unlock"));
        const char *end = row.cmd_no == 0x1003 ? "\r\n" : "\n";
        EXPECT_EQ(log.lines(),
                  (Lines{{NARO_LOG_ERR, line("[cmd_no=" + std::to_string(reply.cmd_no) +
                                             "][ret=" + reply.text + "][param] get error" + end)}}));
        EXPECT_EQ(output_bytes(row), before);
    }
}

// Magic, length, type and tail of a reply are the server's own business.
TEST_P(EveryCommand, LooksAtNumberAndRetOnly)
{
    std::string reply = reply_of(row, row.cmd_no + 1, 0);
    reply.replace(0, 8, 8, '\xEE');
    reply.replace(12, 4, 4, '\xEE');
    reply.replace(reply.size() - 4, 4, 4, '\xEE');
    channel.reply = reply;
    EXPECT_EQ(row.call(), 0);
    EXPECT_TRUE(log.lines().empty());
}

INSTANTIATE_TEST_SUITE_P(Table, EveryCommand, testing::ValuesIn(rows),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST_F(Isp, TheWiresTableIsTheWholeSet)
{
    ASSERT_EQ(std::size(naro_ipc_commands), 16u);
    ASSERT_EQ(std::size(rows), 16u);
    for (size_t i = 0; i < 16; i++) {
        const naro_ipc_command &command = naro_ipc_commands[i];
        EXPECT_EQ(command.cmd_no, rows[i].cmd_no);
        EXPECT_EQ(command.cmd_type, rows[i].cmd_type);
        EXPECT_STREQ(command.function, rows[i].name);
        EXPECT_EQ(naro_ipc_request_length(command), rows[i].request);
        EXPECT_EQ(naro_ipc_reply_length(command), rows[i].reply);
        EXPECT_EQ(naro_ipc_command_find(command.cmd_no), &command);
        EXPECT_EQ(naro_ipc_command_find(command.cmd_no + 1), nullptr);
    }
}

// ---- The motion grid

TEST_F(Isp, TheGridIsSentAsTheLowBytesPlusOne)
{
    const struct {
        int32_t value;
        uint8_t sent;
    } levels[] = {{0, 1},  {1, 2},    {254, 255},   {255, 0},     {256, 1},
                  {-1, 0}, {-2, 255}, {0x17F, 128}, {INT_MAX, 0}, {INT_MIN, 1}};
    int cell = 0;
    for (const auto &level : levels)
        cells[cell++].value = level.value;
    channel.reply = reply_of(rows[0], 0x1002, 0);
    EXPECT_EQ(naro_isp_md_set(cells), 0);
    cell = 0;
    for (const auto &level : levels)
        EXPECT_EQ(static_cast<uint8_t>(channel.request[static_cast<size_t>(16 + cell++)]), level.sent)
            << level.value;
    for (; cell < NARO_MD_CELLS; cell++)
        EXPECT_EQ(static_cast<uint8_t>(channel.request[static_cast<size_t>(16 + cell)]),
                  static_cast<uint8_t>(2000 + cell + 1));
}

TEST_F(Isp, TheGridComesBackAsAPictureOf640By360)
{
    channel.reply = reply_of(rows[1], 0x1004, 0);
    EXPECT_EQ(naro_isp_md_get(cells), 0);
    for (int i = 0; i < 32; i++) {
        EXPECT_EQ(cells[i].x, 80 * (i % 8));
        EXPECT_EQ(cells[i].y, 90 * (i / 8));
        EXPECT_EQ(cells[i].w, 80);
        EXPECT_EQ(cells[i].h, 90);
        EXPECT_EQ(cells[i].reserved, 1000 + i);
        EXPECT_EQ(cells[i].value, 2000 + i);
        EXPECT_EQ(cells[i].result, 0xC1 + i); // a byte, never negative
    }
}

// ---- Tracking

TEST_F(Isp, NoBoxesIsNoRequest)
{
    EXPECT_EQ(naro_isp_track_run(nullptr, 1), -1);
    EXPECT_TRUE(channel.calls.empty());
    EXPECT_EQ(log.lines(), (Lines{{NARO_LOG_ERR, "[naro_isp_track_run 642] param err "}}));
}

TEST_F(Isp, AllBoxesAreSentWhateverTheCount)
{
    channel.reply = reply_of(rows[11], 0x102C, 0);
    std::string first;
    for (int count : {-1, 0, 1, 6, 100}) {
        EXPECT_EQ(naro_isp_track_run(&boxes, count), 0);
        EXPECT_EQ(channel.request.size(), 116u);
        if (first.empty())
            first = channel.request;
        EXPECT_EQ(channel.request, first);
    }
}

} // namespace

int naro_ipc_lock(void)
{
    channel.calls.push_back("lock");
    return 0;
}

int naro_ipc_unlock(void)
{
    channel.calls.push_back("unlock");
    return 0;
}

int naro_ipc_cmd_snd(const void *buf, size_t len)
{
    channel.calls.push_back("snd");
    channel.request.assign(static_cast<const char *>(buf), len);
    return channel.snd_fails ? -1 : 0;
}

int naro_ipc_cmd_rcv(void *buf, size_t len)
{
    channel.calls.push_back("rcv");
    channel.reply_length = len;
    memcpy(buf, channel.reply.data(), std::min(len, channel.reply.size()));
    return channel.rcv_fails ? -1 : 0;
}
