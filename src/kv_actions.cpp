// What the settings act on. A module joins by its line.
#include "kv_actions.h"

#include "algo_shm.h"
#include "colortrans.h"
#include "ircut.h"
#include "mid_hchd.h"
#include "mid_hchd_fav_area.h"
#include "motion_event_record.h"
#include "motion_track.h"
#include "wdr.h"

const kv_action_table kv_actions = {
    mid_hchd_sensitivity_set,
    mid_hchd_people_sensitivity_set,
    set_mid_people_region,
    mid_hchd_fav_area_algo_update,
    ircut_init,
    ircut_mode_switch,
    ircut_mode_config,
    fullcolor_mode_config,
    wdr_mode_switch,
    wdr_mode_config,
    set_white_led_alarm_info,
    &g_uvo_hdr_flag,
    motion_track_mode_config,
    motion_track_mode_get,
    algo_shm_init,
    algo_shm_fini,
    &g_motor_position_v_p,
    &motion_record_settings.sdcard_writable,
    &motion_record_settings.face_detect,
    &motion_record_settings.human_detect,
    &motion_record_settings.baby_cry_detect,
};
