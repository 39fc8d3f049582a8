// What the settings act on. A module joins by its line.
#include "kv_actions.h"

#include "colortrans.h"
#include "ircut.h"
#include "mid_hchd.h"
#include "wdr.h"

const kv_action_table kv_actions = {
    mid_hchd_sensitivity_set,
    mid_hchd_people_sensitivity_set,
    set_mid_people_region,
    nullptr, // fav_area_update: no care regions yet
    ircut_init,
    ircut_mode_switch,
    ircut_mode_config,
    fullcolor_mode_config,
    wdr_mode_switch,
    wdr_mode_config,
    set_white_led_alarm_info,
    &g_uvo_hdr_flag,
    nullptr, // track_mode_config: no tracking yet
    nullptr, // motor_mailbox_init: no mailbox yet
    nullptr, // motor_mailbox_fini
    &g_motor_position_v_p,
    nullptr, // sdcard_writable: no records yet
    nullptr, // face_detect
    nullptr, // human_detect
    nullptr, // baby_cry_detect
};
