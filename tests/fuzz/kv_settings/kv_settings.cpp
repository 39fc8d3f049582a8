// Any text as the value of any setting. The first byte of the input says which handler gets the rest; what
// comes out on the other side must be something that the modules behind it can be given, and nothing may be
// left behind.
#include "kv_settings.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>

#include "algo_shbf.h"
#include "fake_vardex.h"
#include "kv_actions.h"
#include "kv_client.h"
#include "mid_hchd_fav_area.h"
#include "naro_util.h"

namespace
{

void require(bool condition)
{
    if (!condition)
        abort();
}

std::atomic<int> hdr_flag, motor_position_v;
std::atomic<uint8_t> sdcard_writable, face_detect, human_detect, baby_cry_detect;

template <int lowest, int highest> int number(int given)
{
    require(given >= lowest && given <= highest);
    return 0;
}
int any_number(int)
{
    return 0;
}
int nothing()
{
    return 0;
}
int people_region(int, int, int, int)
{
    return 0;
}
int broadcasts;
// The real table behind it, and somebody who looks into it after each change.
int fav_area(int x1, int y1, int x2, int y2, const char *roi_name, const char *event_type)
{
    require(strlen(roi_name) < 32 && strlen(event_type) < 32);
    const int result = mid_hchd_fav_area_algo_update(x1, y1, x2, y2, roi_name, event_type);
    require(result >= -1 && result <= 2);
    broadcasts = 0;
    mid_hchd_fav_area_algo_detect(x1, y1, x2, y2, event_type);
    require(broadcasts <= fav_area_algo_NUM);
    return result;
}
int alarm_light(int flag, const int *words)
{
    require(flag == 1 && words[0] >= 0 && words[1] >= 0 && words[2] >= 0);
    return 0;
}

} // namespace

const kv_action_table kv_actions = {
    number<0, 2>, any_number,    people_region,    fav_area,     nothing,           number<0, 9>,
    number<0, 9>, number<0, 1>,  number<1, 2>,     number<1, 1>, alarm_light,       &hdr_flag,
    number<0, 1>, nothing,       nothing,          nothing,      &motor_position_v, &sdcard_writable,
    &face_detect, &human_detect, &baby_cry_detect,
};

int shbf_event_broadcast(int, const void *name, int length)
{
    require(length >= 2 && length <= FAV_AREA_TEXT_BYTES &&
            strlen(static_cast<const char *>(name)) + 1 == static_cast<size_t>(length));
    broadcasts++;
    return 0;
}

int kv_sys_param_init(void *)
{
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    naro_log_set_sink([](void *, naro_log_level, const char *) {}, nullptr);
    return freopen("/dev/null", "w", stdout) ? 0 : 1; // what is printed
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    int (*const config[])(void *, void *) = {config_cb_motion_region, config_cb_wdr_mode,
                                             config_cb_night_mode, config_cb_fullcolor};
    int (*const sync[])(char *) = {sync_cb_motion_region, sync_cb_wdr_mode, sync_cb_night_mode,
                                   sync_cb_fullcolor, sync_cb_track_mode};
    if (size == 0)
        return 0;
    mid_hchd_fav_area_algo_init(); // each input begins with the same table
    const std::string value(reinterpret_cast<const char *>(data + 1), size - 1);
    size_t which = *data % (KV_SETTINGS + std::size(config) + std::size(sync));
    FakeResponse response(which < KV_SETTINGS ? kv_settings[which].key : "any", value.c_str());
    if (which < KV_SETTINGS)
        kv_settings[which].change_cb(&response, nullptr);
    else if ((which -= KV_SETTINGS) < std::size(config))
        config[which](&response, nullptr);
    else
        sync[which - std::size(config)](strdup(value.c_str()));
    require(fake_vardex().live_pairs == 0 && fake_vardex().live_data == 0);
    require(hdr_flag <= 1 && sdcard_writable <= 1 && face_detect <= 1 && human_detect <= 1 &&
            baby_cry_detect <= 1);
    return 0;
}
