// What is done with values that were stored before: read at power-on (sync), or replied to a get (config).
#include "kv_settings.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kv_actions.h"
#include "kv_values.h"
#include "libvardex.h"
#include "light_modes.h"
#include "naro_util.h"
#include "wdr.h"

namespace
{

// ---- Values; `name` is the handler whose lines they are ---------------------------------------------------

void log_motion_list(const char *name, const int list[KV_MOTION_CELLS])
{
    char text[KV_MOTION_CELLS * (sizeof "-1," - 1) + 1] = "";
    size_t length = 0;
    for (int i = 0; i < KV_MOTION_CELLS; i++)
        length += static_cast<size_t>(snprintf(text + length, sizeof text - length, "%d,", list[i]));
    log_info("[%s] motion_region=[%s]\n", name, text);
}

enum motion_use { APPLY, LOG_ONLY };

void motion_region(const char *name, const char *value, motion_use use)
{
    int list[KV_MOTION_CELLS];
    log_info("[%s] motion_region = %s\n", name, value);
    log_info("[%s] motion_region length = %d\n", name, static_cast<int>(strlen(value)));
    const int count = kv_value_motion_list(value, list);
    // Only the last digit counts, also of a list that broke off, and only two of the four say something.
    const int last = count > 0 ? list[count - 1] : -1;
    if (use == APPLY && last == 2)
        kv_act(kv_actions.sensitivity_set, 1);
    else if (use == APPLY && last == 0)
        kv_act(kv_actions.sensitivity_set, 0);
    if (count == KV_MOTION_CELLS) {
        log_info("[%s] motion_area_update\n", name);
        log_motion_list(name, list);
    } else if (kv_value_sensitivity(kv_value_int(value)) < 0) {
        // A number is what was set at run time, and acted then: stored, it says nothing, and is no mistake.
        log_err("[%s] motion_region is no list of %d digits from 0 to 3\n", name, +KV_MOTION_CELLS);
    }
}

void no_motion_region(const char *name)
{
    int list[KV_MOTION_CELLS];
    log_err("[%s] get faild: set motion region sensitive middle\n", name);
    for (int &entry : list)
        entry = 1;
    log_motion_list(name, list);
}

void wdr_mode(const char *name, const char *value)
{
    log_info("[%s] wdr_mode = %s\n", name, value);
    const kv_switch on = kv_value_switch(value);
    if (on == KV_NEITHER)
        log_err("[%s] not support wdr_mode = %s\n", name, value);
    else
        kv_act(kv_actions.wdr_mode_switch, on == KV_ON ? NARO_ISP_WDR_MODE_ON : NARO_ISP_WDR_MODE_OFF);
}

void no_wdr_mode(const char *name)
{
    log_err("[%s] get faild: set wdr mode off\n", name);
    kv_act(kv_actions.wdr_mode_config, NARO_ISP_WDR_MODE_OFF);
}

// `zero` is what a stored 0 becomes.
void night_mode(const char *name, const char *value, int zero)
{
    log_info("[%s] night_mode = %s\n", name, value);
    const int mode = kv_value_digit(value);
    if (mode < 0)
        log_err("[%s] night_mode = %s is not understood, nothing changes\n", name, value);
    else
        kv_act(kv_actions.ircut_mode_config, mode == 0 ? zero : mode);
}

void no_night_mode(const char *name, int mode)
{
    log_err("[%s] get faild: set ircut mode auto\n", name);
    kv_act(kv_actions.ircut_mode_config, mode);
}

void fullcolor(const char *name, const char *value)
{
    log_info("[%s] full_color = %s\n", name, value);
    const kv_switch on = kv_value_switch_prefix(value);
    if (on == KV_NEITHER)
        log_err("[%s] not support full_color = %s\n", name, value);
    else
        kv_act(kv_actions.fullcolor_mode_config, on == KV_ON ? 1 : 0);
}

void no_fullcolor(const char *name)
{
    log_err("[%s] get faild: set fullcolor on\n", name);
    kv_act(kv_actions.fullcolor_mode_config, 1);
}

void track_mode(const char *name, const char *value)
{
    log_info("[%s] track_mode = %s\n", name, value);
    const kv_switch on = kv_value_switch(value);
    if (on == KV_NEITHER)
        log_err("[%s] not support track_mode = %s\n", name, value);
    else
        kv_act(kv_actions.track_mode_config, on == KV_ON ? 1 : 0);
}

void no_track_mode(const char *name)
{
    log_err("[%s] get faild: set track mode off\n", name);
    kv_act(kv_actions.track_mode_config, 0);
}

// ---- Replies to a get -------------------------------------------------------------------------------------

// The data of a reply, null when the get failed; its text in `*value`, null (after saying so) when it has
// none.
xdata *reply_open(const char *name, void *response, char **value)
{
    xdata *data = xcontrol_get_response(response);
    *value = data ? xdata_value_as_char(data) : nullptr;
    if (data && !*value)
        log_err("[%s] data is null\n", name);
    return data;
}

int reply_close(xdata *data, char *value)
{
    free(value);
    xdata_free(data);
    return 0;
}

} // namespace

// ---- Sync handlers ----------------------------------------------------------------------------------------

int sync_cb_motion_region(char *value)
{
    if (value)
        motion_region(__func__, value, APPLY);
    else
        no_motion_region(__func__);
    free(value);
    return 0;
}

int sync_cb_wdr_mode(char *value)
{
    if (value)
        wdr_mode(__func__, value);
    else
        no_wdr_mode(__func__);
    free(value);
    return 0;
}

int sync_cb_night_mode(char *value)
{
    if (value)
        night_mode(__func__, value, NARO_IRCUT_MODE_AUTO_SMART);
    else
        no_night_mode(__func__, NARO_IRCUT_MODE_AUTO_SMART);
    free(value);
    return 0;
}

int sync_cb_fullcolor(char *value)
{
    if (value)
        fullcolor(__func__, value);
    else
        no_fullcolor(__func__);
    free(value);
    return 0;
}

int sync_cb_track_mode(char *value)
{
    if (value)
        track_mode(__func__, value);
    else
        no_track_mode(__func__);
    free(value);
    return 0;
}

// ---- Get-reply handlers -----------------------------------------------------------------------------------

int config_cb_motion_region(void *response, void *)
{
    char *value;
    xdata *data = reply_open(__func__, response, &value);
    if (value)
        motion_region(__func__, value, LOG_ONLY);
    else if (!data)
        no_motion_region(__func__);
    return reply_close(data, value);
}

int config_cb_wdr_mode(void *response, void *)
{
    char *value;
    xdata *data = reply_open(__func__, response, &value);
    if (value)
        wdr_mode(__func__, value);
    else if (!data)
        no_wdr_mode(__func__);
    return reply_close(data, value);
}

int config_cb_night_mode(void *response, void *)
{
    char *value;
    xdata *data = reply_open(__func__, response, &value);
    if (value)
        night_mode(__func__, value, 0);
    else if (!data)
        no_night_mode(__func__, 0);
    return reply_close(data, value);
}

int config_cb_fullcolor(void *response, void *)
{
    char *value;
    xdata *data = reply_open(__func__, response, &value);
    if (value)
        fullcolor(__func__, value);
    else if (!data)
        no_fullcolor(__func__);
    return reply_close(data, value);
}
