// What the settings act on. A module joins by its line.
#include "kv_actions.h"

#include "mid_hchd.h"

const kv_action_table kv_actions = {
    mid_hchd_sensitivity_set,
    mid_hchd_people_sensitivity_set,
    set_mid_people_region,
    nullptr, // fav_area_update: no care regions yet
    nullptr, // ircut_init
    nullptr, // ircut_mode_switch
    nullptr, // ircut_mode_config
    nullptr, // fullcolor_mode_config
    nullptr, // wdr_mode_switch
    nullptr, // wdr_mode_config
    nullptr, // white_led_alarm
    nullptr, // hdr_flag
    nullptr, // track_mode_config: no tracking yet
    nullptr, // motor_mailbox_init: no mailbox yet
    nullptr, // motor_mailbox_fini
    nullptr, // motor_position_v
    nullptr, // sdcard_writable: no records yet
    nullptr, // face_detect
    nullptr, // human_detect
    nullptr, // baby_cry_detect
};
