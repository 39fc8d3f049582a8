// Names of settings: what the daemon follows, and what it and the motor publish.
#include "setting_keys.h"

#include <string.h>

const setting_key setting_keys[SETTING_KEYS] = {
    {"alarm_event", "mem"},
    {"baby_cry_detect", "mem"},
    {"face_detect", "mem"},
    {"fav_area_rect", "mem"},
    {"full_color", "nvram"},
    {"hdr_switch", "nvram"},
    {"human_detect", "mem"},
    {"motion_region", "nvram"},
    {"motor", "nvram"},
    {"night_mode", "nvram"},
    {"people_region_detect", "mem"},
    {"people_sensitivity", "mem"},
    {"power", "nvram"},
    {"sdcard_rw", "mem"},
    {"time_night", "mem"}, // published by the daemon: when it last changed between day and night
    {"track", "mem"},      // published by the daemon: the motor's state
    {"track_switch", "mem"},
    {"wdr", "nvram"},
};

const char *setting_layer(const char *key)
{
    for (const setting_key &known : setting_keys)
        if (strcmp(known.key, key) == 0)
            return known.layer;
    return nullptr;
}
