// The tables of the client, and what a change of each setting does.
#include "kv_settings.h"

#include <json-c/json.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "kv_actions.h"
#include "kv_client.h"
#include "kv_values.h"
#include "libvardex.h"
#include "light_modes.h"
#include "naro_util.h"
#include "wdr.h"

// Shared timeout callbacks and repeated tags are deliberate: people who read the logs know them so.
const kv_setting kv_settings[KV_SETTINGS] = {
    {"motion_region", KV_LAYER_NVRAM, notify_cb_motion_region, notify_timeout_cb_motion_region,
     "motion_region"},
    {"night_mode", KV_LAYER_NVRAM, notify_cb_night_mode, notify_timeout_cb_night_mode, "night_mode"},
    {"full_color", KV_LAYER_NVRAM, notify_cb_fullcolor, notify_timeout_cb_fullcolor, "fullcolor"},
    {"wdr", KV_LAYER_NVRAM, notify_cb_wdr_mode, notify_timeout_cb_wdr_mode, "wdr_enable"},
    {"hdr_switch", KV_LAYER_NVRAM, notify_cb_hdr_mode, notify_timeout_cb_wdr_mode, "wdr_enable"},
    {"track_switch", KV_LAYER_MEM, notify_cb_track_mode, notify_timeout_cb_track_mode, "track_mode"},
    {"power", KV_LAYER_NVRAM, notify_cb_power_mode, notify_timeout_cb_power_mode, "power_mode"},
    {"sdcard_rw", KV_LAYER_MEM, notify_cb_sdcard_rw, notify_timeout_cb_sdcard_rw, "power_mode"},
    {"face_detect", KV_LAYER_MEM, notify_cb_AI_detect, notify_timeout_cb_AI_detect, "power_mode"},
    {"baby_cry_detect", KV_LAYER_MEM, notify_cb_AI_detect, notify_timeout_cb_AI_detect, "power_mode"},
    {"human_detect", KV_LAYER_MEM, notify_cb_AI_detect, notify_timeout_cb_AI_detect, "power_mode"},
    {"motor", KV_LAYER_NVRAM, notify_cb_motor, notify_timeout_cb_motor, "power_mode"},
    {"people_sensitivity", KV_LAYER_MEM, notify_cb_people_sensitivity, notify_timeout_cb_motor,
     "people_sensitivity"},
    {"alarm_event", KV_LAYER_MEM, notify_cb_alarm_event, notify_timeout_cb_alarm_event,
     "motion_region_detect"},
    {"people_region_detect", KV_LAYER_MEM, notify_cb_people_region_detect, notify_timeout_cb_alarm_event,
     "motion_region_detect"},
    {"fav_area_rect", KV_LAYER_MEM, notify_cb_fav_area, notify_timeout_cb_fav_area, "care_region"},
};

const kv_stored_setting kv_stored_settings[KV_STORED_SETTINGS] = {
    {"motion_region", KV_LAYER_NVRAM, sync_cb_motion_region},
    {"wdr", KV_LAYER_NVRAM, sync_cb_wdr_mode},
    {"night_mode", KV_LAYER_NVRAM, sync_cb_night_mode},
    {"full_color", KV_LAYER_NVRAM, sync_cb_fullcolor},
    {"track_switch", KV_LAYER_MEM, nullptr}, // asked for, and dropped: see sync_cb_track_mode
};

namespace
{

// ---- What the callbacks do alike --------------------------------------------------------------------------

// The pair of a response (null: it has none); false when there is no telling.
bool parsed(const char *name, void *response, xpair **pair)
{
    int status = 0;
    *pair = xresponse_parse(response, &status);
    if (status == 0)
        return true;
    if (name)
        fprintf(stderr, "[%s]parse recv notify value error.\n", name);
    xpair_basefree(*pair);
    return false;
}

bool complete(const char *name, const xpair *pair)
{
    if (pair && pair->key && pair->value)
        return true;
    log_err("[%s] key or value is null\n", name);
    return false;
}

// By its beginning: "full_color" is also the key of "full_color_2".
bool key_is(const xpair *pair, const char *key)
{
    return strncmp(pair->key, key, strlen(key)) == 0;
}

// A value that nobody understands and that has no line of its own.
void not_understood(const char *name, const xpair *pair)
{
    log_err("[%s] %s = %s is not understood, nothing changes\n", name, pair->key, pair->value);
}

enum complaint { COMPLAIN, KEEP_QUIET }; // of a response that cannot be parsed

// A whole change: `apply` gets the pair if its key is the right one (null: whatever it is).
int change(const char *name, const char *key, void *response, void (*apply)(const char *name, xpair *pair),
           complaint if_not_parsed = COMPLAIN)
{
    xpair *pair;
    if (!parsed(if_not_parsed == COMPLAIN ? name : nullptr, response, &pair))
        return 0;
    log_info("[%s]\r\n", name);
    if (complete(name, pair)) {
        log_info("[key=%s][value=%s]\r\n", pair->key, pair->value);
        if (!key || key_is(pair, key))
            apply(name, pair);
    }
    xpair_basefree(pair);
    return 0;
}

// ---- Detection --------------------------------------------------------------------------------------------

void apply_motion_region(const char *name, xpair *pair)
{
    log_info("[%s]motion_region length = %d\n", name, static_cast<int>(strlen(pair->value)));
    const int level = kv_value_sensitivity(kv_value_int(pair->value));
    if (level < 0)
        not_understood(name, pair);
    else
        kv_act(kv_actions.sensitivity_set, level);
}

void apply_people_sensitivity(const char *name, xpair *pair)
{
    const int level = kv_value_int(pair->value);
    if (level < KV_PEOPLE_LEVEL_MIN || level > KV_PEOPLE_LEVEL_MAX)
        not_understood(name, pair);
    kv_act(kv_actions.people_sensitivity_set,
           level); // which takes no other level, and logs what it was given
}

void apply_people_region(const char *, xpair *pair)
{
    int n[4];
    kv_value_numbers(pair->value, "#-#-#-#", n, 4);
    log_info("(x,y,w,h): %d-%d-%d-%d", n[0], n[1], n[2], n[3]);
    // Crossed on purpose: the setter takes both x before both y. What is called a width and a height here is
    // used as the right and the lower edge.
    kv_act(kv_actions.people_region_set, n[0], n[2], n[1], n[3]);
}

// ---- Light and picture ------------------------------------------------------------------------------------

void apply_night_mode(const char *name, xpair *pair)
{
    const int mode = kv_value_digit(pair->value);
    if (mode < NARO_IRCUT_MODE_AUTO || mode > NARO_IRCUT_MODE_LIGHTS_OFF)
        not_understood(name, pair);
    if (mode >= 0)
        kv_act(kv_actions.ircut_mode_switch, mode); // which does nothing on another mode
}

void apply_fullcolor(const char *name, xpair *pair)
{
    const kv_switch on = kv_value_switch_prefix(pair->value);
    if (on == KV_NEITHER)
        not_understood(name, pair);
    else
        kv_act(kv_actions.fullcolor_mode_config, on == KV_ON ? 1 : 0);
}

void apply_wdr(const char *name, xpair *pair)
{
    const kv_switch on = kv_value_switch(pair->value);
    if (on == KV_NEITHER)
        log_err("[%s] not support wdr_mode = %s\n", name, pair->value);
    else
        kv_act(kv_actions.wdr_mode_switch, on == KV_ON ? NARO_ISP_WDR_MODE_ON : NARO_ISP_WDR_MODE_OFF);
}

void apply_hdr(const char *name, xpair *pair)
{
    const kv_switch on = kv_value_switch(pair->value);
    if (on == KV_NEITHER)
        log_err("[%s] not support wdr_mode = %s\n", name, pair->value); // says wdr: known so
    else
        kv_put(kv_actions.hdr_flag, on == KV_ON ? 1 : 0);
}

void apply_alarm_event(const char *, xpair *pair)
{
    int words[KV_ALARM_NUMBERS];
    kv_value_alarm(pair->value, words);
    kv_act(kv_actions.white_led_alarm, 1, static_cast<const int *>(words));
}

// ---- Power ------------------------------------------------------------------------------------------------

void power_on(const char *name, void *handle)
{
    if (kv_sys_param_init(handle) < 0) {
        log_err("[%s] kv_sys_param_init fail, exit\n", name);
        _exit(0); // and not exit: other threads are alive
    }
    kv_act(kv_actions.ircut_init);
}

void apply_power(const char *name, xpair *pair, void *handle)
{
    const kv_switch on = kv_value_switch(pair->value);
    if (on == KV_ON)
        power_on(name, handle);
    else if (on == KV_NEITHER)
        log_err("[%s] not support power_mode = %s\n", name, pair->value);
}

// ---- Tracking and records ---------------------------------------------------------------------------------

// Only what changes something: turning on what is on would start the tracker anew.
void track_switch(int on)
{
    if (kv_actions.track_mode_get && kv_actions.track_mode_get() == on)
        return;
    kv_act(kv_actions.track_mode_config, on);
    kv_act(on == 1 ? kv_actions.motor_mailbox_init : kv_actions.motor_mailbox_fini);
}

void apply_track(const char *name, xpair *pair)
{
    const kv_switch on = kv_value_switch(pair->value);
    if (on == KV_NEITHER)
        log_err("[%s] not support track_mode = %s\n", name, pair->value);
    else
        track_switch(on == KV_ON ? 1 : 0);
}

void apply_motor(const char *, xpair *pair)
{
    int position[2]; // horizontal, vertical
    kv_value_numbers(pair->value, "[#,#]", position, 2);
    kv_put(kv_actions.motor_position_v, position[1]);
}

void apply_sdcard(const char *, xpair *pair)
{
    kv_put(kv_actions.sdcard_writable, strncmp(pair->value, "rdwr", 4) == 0 ? 1 : 0);
}

void apply_detect(const char *name, xpair *pair)
{
    const struct {
        const char *key;
        std::atomic<uint8_t> *flag;
    } flags[] = {
        {"face_detect", kv_actions.face_detect},
        {"baby_cry_detect", kv_actions.baby_cry_detect},
        {"human_detect", kv_actions.human_detect},
    };
    for (const auto &detect : flags) {
        if (!key_is(pair, detect.key))
            continue;
        const kv_switch on = kv_value_switch_prefix(pair->value);
        if (on == KV_ON)
            kv_put(detect.flag, 1); // and "off" never clears it
        else if (on == KV_NEITHER)
            not_understood(name, pair);
        return;
    }
}

// ---- Care regions -----------------------------------------------------------------------------------------

void fav_area(json_object *region)
{
    int x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    char roi_name[32] = "", event_type[32] = "";
    const char *text = json_object_to_json_string(region); // the region's own, as long as it lives
    json_verify_get_int(text, "x1", &x1);
    json_verify_get_int(text, "y1", &y1);
    json_verify_get_int(text, "x2", &x2);
    json_verify_get_int(text, "y2", &y2);
    json_verify_get_string(text, "roi_name", roi_name, sizeof roi_name);
    json_verify_get_string(text, "event_type", event_type, sizeof event_type);
    log_info("cb:%d %d %d %d name=%s event_type = %s \n", x1, y1, x2, y2, roi_name, event_type);
    kv_act(kv_actions.fav_area_update, x1, y1, x2, y2, static_cast<const char *>(roi_name),
           static_cast<const char *>(event_type));
}

void apply_fav_area(const char *name, xpair *pair)
{
    json_object *root = json_tokener_parse(pair->value);
    if (!root) {
        log_err(" json_verify fail\n");
        return;
    }
    log_info(" json format is right \n");
    if (json_object_is_type(root, json_type_array)) {
        const size_t length = json_object_array_length(root);
        log_info("j->array = %d \n", static_cast<int>(length));
        for (size_t i = 0; i < length; i++) {
            json_object *region = json_object_array_get_idx(root, i);
            if (!region) {
                log_err(" temp NULL \n");
                break;
            }
            fav_area(region);
        }
    } else {
        not_understood(name, pair);
    }
    json_object_put(root);
}

int timed_out(const char *name)
{
    fprintf(stderr, "[%s]notify timeout.\n", name);
    return 0;
}

} // namespace

// ---- The callbacks ----------------------------------------------------------------------------------------

int notify_cb_motion_region(void *response, void *)
{
    xpair *pair;
    if (!parsed(__func__, response, &pair))
        return 0;
    log_info("[%s]\r\n", __func__);
    log_info("[%s]################stat=%d\r\n", __func__, 0); // another status has not come so far
    if (complete(__func__, pair)) {
        log_info("[key=%s][value=%s]\r\n", pair->key, pair->value);
        if (key_is(pair, "motion_region"))
            apply_motion_region(__func__, pair);
    }
    xpair_basefree(pair);
    return 0;
}

int notify_cb_night_mode(void *response, void *)
{
    return change(__func__, "night_mode", response, apply_night_mode);
}

int notify_cb_fullcolor(void *response, void *)
{
    return change(__func__, "full_color", response, apply_fullcolor);
}

int notify_cb_wdr_mode(void *response, void *)
{
    return change(__func__, "wdr", response, apply_wdr);
}

int notify_cb_hdr_mode(void *response, void *)
{
    return change(__func__, "hdr_switch", response, apply_hdr);
}

int notify_cb_track_mode(void *response, void *)
{
    return change(__func__, "track_switch", response, apply_track);
}

int notify_cb_power_mode(void *response, void *handle)
{
    xpair *pair;
    if (!parsed(__func__, response, &pair))
        return 0;
    log_info("[%s]\r\n", __func__);
    if (complete(__func__, pair)) {
        log_info("[key=%s][value=%s]\r\n", pair->key, pair->value);
        if (key_is(pair, "power"))
            apply_power(__func__, pair, handle);
    } else { // power without a value is power
        log_info("[%s] init ircut and motion\n", __func__);
        power_on(__func__, handle);
    }
    xpair_basefree(pair);
    return 0;
}

int notify_cb_sdcard_rw(void *response, void *)
{
    return change(__func__, "sdcard_rw", response, apply_sdcard);
}

int notify_cb_AI_detect(void *response, void *)
{
    return change(__func__, nullptr, response, apply_detect);
}

int notify_cb_motor(void *response, void *)
{
    return change(__func__, "motor", response, apply_motor);
}

int notify_cb_people_sensitivity(void *response, void *)
{
    return change(__func__, "people_sensitivity", response, apply_people_sensitivity);
}

int notify_cb_alarm_event(void *response, void *)
{
    return change(__func__, "alarm_event", response, apply_alarm_event, KEEP_QUIET);
}

int notify_cb_people_region_detect(void *response, void *)
{
    return change(__func__, nullptr, response, apply_people_region, KEEP_QUIET); // whatever the key is
}

int notify_cb_fav_area(void *response, void *)
{
    xpair *pair;
    if (!parsed(nullptr, response, &pair))
        return 0;
    log_info("[%s] \r\n", __func__);
    if (complete(__func__, pair)) {
        log_info("key=%s value=%s\r\n", pair->key, pair->value);
        if (key_is(pair, "fav_area_rect"))
            apply_fav_area(__func__, pair);
    }
    xpair_basefree(pair);
    return 0;
}

int notify_timeout_cb_motion_region(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_night_mode(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_fullcolor(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_wdr_mode(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_track_mode(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_power_mode(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_sdcard_rw(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_AI_detect(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_motor(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_alarm_event(void *, void *)
{
    return timed_out(__func__);
}

int notify_timeout_cb_fav_area(void *, void *)
{
    log_err("[%s]notify timeout.\n", __func__);
    return 0;
}
