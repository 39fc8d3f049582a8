// What each command does to the picture side, and what it answers.
#include "isp_state.h"

#include <gtest/gtest.h>
#include <string.h>

#include "camera_wire.h"

namespace
{

struct Isp : testing::Test {
    Isp() { isp_state_init(&isp); }

    int32_t apply(uint32_t cmd_no, const Bytes &payload = {})
    {
        bytes = request_bytes(cmd_no, naro_ipc_command_find(cmd_no)->cmd_type, payload);
        ipc_request request;
        EXPECT_EQ(ipc_request_parse(bytes.data(), bytes.size(), &request), bytes.size());
        EXPECT_EQ(request.ret, IPC_RET_OK);
        memset(data, 0, sizeof data);
        return isp_state_apply(&isp, &request, data);
    }

    isp_state isp;
    Bytes bytes;
    uint8_t data[NARO_IPC_MAX_REPLY];
};

TEST_F(Isp, StartsByDayWithEverythingOff)
{
    EXPECT_EQ(isp.mode, static_cast<uint32_t>(ISP_MODE_DAY));
    EXPECT_FALSE(isp.wdr || isp.colour_transform || isp.motion_grid || isp.tracking);
    EXPECT_EQ(isp.pwm_duty_percent, 0u);
    EXPECT_EQ(isp.sound, 0u);
}

TEST_F(Isp, TheGridIsGivenBackAsItWasSent)
{
    Bytes grid(32);
    for (size_t i = 0; i < grid.size(); i++)
        grid[i] = static_cast<uint8_t>(200 + i);
    EXPECT_EQ(apply(NARO_CMD_MD_SET, grid), 0);
    EXPECT_EQ(apply(NARO_CMD_MD_GET), 0);
    EXPECT_EQ(Bytes(data, data + 32), grid);
}

TEST_F(Isp, SwitchesAreSwitched)
{
    struct {
        uint32_t on, off;
        bool *state;
    } switches[] = {
        {NARO_CMD_MD_ENABLE, NARO_CMD_MD_DISABLE, &isp.motion_grid},
        {NARO_CMD_WDR_ENABLE, NARO_CMD_WDR_DISABLE, &isp.wdr},
        {NARO_CMD_COLORTRANS_ENABLE, NARO_CMD_COLORTRANS_DISABLE, &isp.colour_transform},
    };
    for (const auto &one : switches) {
        EXPECT_EQ(apply(one.on), 0);
        EXPECT_TRUE(*one.state);
        EXPECT_EQ(isp.motion_grid + isp.wdr + isp.colour_transform, 1) << "and no other";
        EXPECT_EQ(apply(one.off), 0);
        EXPECT_FALSE(*one.state);
    }
}

TEST_F(Isp, TheModeIsDayOrNight)
{
    EXPECT_EQ(apply(NARO_CMD_DAYNIGHT_MODE_SET, words({1})), 0);
    EXPECT_EQ(apply(NARO_CMD_DAYNIGHT_MODE_GET), 0);
    EXPECT_EQ(get_word(data), 1u);
    EXPECT_EQ(apply(NARO_CMD_DAYNIGHT_MODE_SET, words({2})), IPC_RET_BAD_VALUE);
    EXPECT_EQ(isp.mode, 1u) << "a refused value changes nothing";
    EXPECT_EQ(apply(NARO_CMD_DAYNIGHT_MODE_SET, words({0})), 0);
    EXPECT_EQ(apply(NARO_CMD_DAYNIGHT_MODE_GET), 0);
    EXPECT_EQ(get_word(data), 0u);
}

TEST_F(Isp, TheDutyIsAPercentage)
{
    EXPECT_EQ(apply(NARO_CMD_PWM_DUTY_SET, words({100})), 0);
    EXPECT_EQ(isp.pwm_duty_percent, 100u);
    EXPECT_EQ(apply(NARO_CMD_PWM_DUTY_SET, words({101})), IPC_RET_BAD_VALUE);
    EXPECT_EQ(isp.pwm_duty_percent, 100u);
}

TEST_F(Isp, TrackingKeepsTheBoxesUntilItIsStopped)
{
    std::vector<uint32_t> boxes(24);
    for (uint32_t i = 0; i < 24; i++)
        boxes[i] = i == 3 ? static_cast<uint32_t>(-5) : i + 1;
    EXPECT_EQ(apply(NARO_CMD_TRACK_RUN, words(boxes)), 0);
    EXPECT_TRUE(isp.tracking);
    EXPECT_EQ(isp.track.box[0].x1, 1);
    EXPECT_EQ(isp.track.box[0].y1, 2);
    EXPECT_EQ(isp.track.box[0].x2, 3);
    EXPECT_EQ(isp.track.box[0].y2, -5);
    EXPECT_EQ(isp.track.box[5].y2, 24);
    EXPECT_EQ(apply(NARO_CMD_TRACK_STOP), 0);
    EXPECT_FALSE(isp.tracking);
    EXPECT_EQ(isp.track.box[0].x1, 0);
}

TEST_F(Isp, ASoundIsHeardOrNot)
{
    EXPECT_EQ(apply(NARO_CMD_SOUND_RESULT_GET), 0);
    EXPECT_EQ(get_word(data), 0u);
    isp.sound = 1;
    EXPECT_EQ(apply(NARO_CMD_SOUND_RESULT_GET), 0);
    EXPECT_EQ(get_word(data), 1u);
}

// The figures must read as a lit room by day to every rule of the day/night decision.
TEST_F(Isp, ExposureReadsAsALitRoom)
{
    EXPECT_EQ(apply(NARO_CMD_EV_ATTR_GET), 0);
    const uint32_t ev = get_word(data), exposure_us = get_word(data + 8), again = get_word(data + 12);
    EXPECT_GE(ev, 85u);
    EXPECT_LE(exposure_us, 45000u);
    EXPECT_LE(again, 1000u);
    EXPECT_EQ(get_word(data + 16), 1024u) << "digital gain: 1x";
    EXPECT_EQ(get_word(data + 20), 0u);
    EXPECT_EQ(get_word(data + 24), 0u);
}

TEST_F(Isp, WhiteBalanceReadsAsVisibleLight)
{
    EXPECT_EQ(apply(NARO_CMD_WB_ATTR_GET), 0);
    const int32_t red = static_cast<int32_t>(get_word(data)), blue = static_cast<int32_t>(get_word(data + 4));
    EXPECT_LE(red / 1024 + blue / 1024, -7001);
    for (int word = 2; word < 8; word++)
        EXPECT_EQ(get_word(data + 4 * word), 0u);
}

} // namespace
