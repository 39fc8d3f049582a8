// What the settings of the daemon act on: every line of the table.
#include "kv_actions.h"

#include <gtest/gtest.h>

#include "algo_shm.h"
#include "colortrans.h"
#include "ircut.h"
#include "mid_hchd.h"
#include "mid_hchd_fav_area.h"
#include "motion_event_record.h"
#include "motion_track.h"
#include "wdr.h"

motion_record_words motion_record_settings;
std::atomic<int> g_uvo_hdr_flag, g_motor_position_v_p;
int algo_shm_init(void)
{
    return 0;
}
int algo_shm_fini(void)
{
    return 0;
}
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
int mid_hchd_fav_area_algo_update(int, int, int, int, const char *, const char *)
{
    return 0;
}
int motion_track_mode_config(int)
{
    return 0;
}
int motion_track_mode_get(void)
{
    return 0;
}

TEST(KvActions, Detection)
{
    EXPECT_EQ(kv_actions.sensitivity_set, mid_hchd_sensitivity_set);
    EXPECT_EQ(kv_actions.people_sensitivity_set, mid_hchd_people_sensitivity_set);
    EXPECT_EQ(kv_actions.people_region_set, set_mid_people_region);
    EXPECT_EQ(kv_actions.fav_area_update, mid_hchd_fav_area_algo_update);
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

TEST(KvActions, Records)
{
    EXPECT_EQ(kv_actions.sdcard_writable, &motion_record_settings.sdcard_writable);
    EXPECT_EQ(kv_actions.face_detect, &motion_record_settings.face_detect);
    EXPECT_EQ(kv_actions.human_detect, &motion_record_settings.human_detect);
    EXPECT_EQ(kv_actions.baby_cry_detect, &motion_record_settings.baby_cry_detect);
}

TEST(KvActions, Tracking)
{
    EXPECT_EQ(kv_actions.track_mode_config, motion_track_mode_config);
    EXPECT_EQ(kv_actions.track_mode_get, motion_track_mode_get);
}

TEST(KvActions, MotorMailbox)
{
    EXPECT_EQ(kv_actions.motor_mailbox_init, algo_shm_init);
    EXPECT_EQ(kv_actions.motor_mailbox_fini, algo_shm_fini);
}

TEST(KvActions, WhatIsMissingIsLeftOut)
{
    int (*const nobody)(int, const int *) = nullptr;
    std::atomic<int> *const nowhere = nullptr;
    kv_act(nobody, 1, static_cast<const int *>(nullptr));
    kv_put(nowhere, 1);
}
