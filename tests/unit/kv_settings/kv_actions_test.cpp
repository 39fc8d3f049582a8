// What the settings of the daemon act on: every line of the table.
#include "kv_actions.h"

#include <gtest/gtest.h>

#include "colortrans.h"
#include "ircut.h"
#include "mid_hchd.h"
#include "wdr.h"

std::atomic<int> g_uvo_hdr_flag, g_motor_position_v_p;
int ircut_init(void)
{
    return 0;
}
int ircut_mode_switch(int)
{
    return 0;
}
int ircut_mode_config(int)
{
    return 0;
}
int fullcolor_mode_config(int)
{
    return 0;
}
int set_white_led_alarm_info(int, const int *)
{
    return 0;
}
int wdr_mode_switch(int)
{
    return 0;
}
int wdr_mode_config(int)
{
    return 0;
}
int mid_hchd_sensitivity_set(int)
{
    return 0;
}
int mid_hchd_people_sensitivity_set(int)
{
    return 0;
}
int set_mid_people_region(int, int, int, int)
{
    return 0;
}

TEST(KvActions, Detection)
{
    EXPECT_EQ(kv_actions.sensitivity_set, mid_hchd_sensitivity_set);
    EXPECT_EQ(kv_actions.people_sensitivity_set, mid_hchd_people_sensitivity_set);
    EXPECT_EQ(kv_actions.people_region_set, set_mid_people_region);
}

TEST(KvActions, LightAndPicture)
{
    EXPECT_EQ(kv_actions.ircut_init, ircut_init);
    EXPECT_EQ(kv_actions.ircut_mode_switch, ircut_mode_switch);
    EXPECT_EQ(kv_actions.ircut_mode_config, ircut_mode_config);
    EXPECT_EQ(kv_actions.fullcolor_mode_config, fullcolor_mode_config);
    EXPECT_EQ(kv_actions.wdr_mode_switch, wdr_mode_switch);
    EXPECT_EQ(kv_actions.wdr_mode_config, wdr_mode_config);
    EXPECT_EQ(kv_actions.white_led_alarm, set_white_led_alarm_info);
    EXPECT_EQ(kv_actions.hdr_flag, &g_uvo_hdr_flag);
    EXPECT_EQ(kv_actions.motor_position_v, &g_motor_position_v_p);
}

// Each of these leaves the list when its module joins the daemon.
TEST(KvActions, ModulesThatAreStillToCome)
{
    EXPECT_EQ(kv_actions.fav_area_update, nullptr);
    EXPECT_EQ(kv_actions.track_mode_config, nullptr);
    EXPECT_EQ(kv_actions.motor_mailbox_init, nullptr);
    EXPECT_EQ(kv_actions.motor_mailbox_fini, nullptr);
    EXPECT_EQ(kv_actions.sdcard_writable, nullptr);
    EXPECT_EQ(kv_actions.face_detect, nullptr);
    EXPECT_EQ(kv_actions.human_detect, nullptr);
    EXPECT_EQ(kv_actions.baby_cry_detect, nullptr);
}

TEST(KvActions, WhatIsMissingIsLeftOut)
{
    int (*const nobody)(int, const int *) = nullptr;
    std::atomic<int> *const nowhere = nullptr;
    kv_act(nobody, 1, static_cast<const int *>(nullptr));
    kv_put(nowhere, 1);
}
