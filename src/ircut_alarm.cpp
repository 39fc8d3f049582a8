// The alarm light, and what other modules ask of the modes.
//
// An alarm event asks for the white LED to shine or flash for some seconds. The request is a flag and one
// word; the alarm-light thread serves it tick by tick, and the ircut task makes no decision while the flag is
// 1.
#include "ircut_internal.h"

#include <sys/prctl.h>

#include "ir_white_led.h"
#include "naro_util.h"

enum { TICK_MS = 500 };

int set_white_led_alarm_info(int flag, const int *info)
{
    if (!info) {
        log_err("%s param err ", __func__);
        return -1;
    }
    log_info("[%s %d] alarm_flag:%d ", __func__, __LINE__, flag);
    // The light before the flag: a tick between the two must not take an old duration for the new one's.
    ircut.alarm_light =
        static_cast<uint64_t>(static_cast<uint32_t>(info[1])) << 32 | static_cast<uint32_t>(info[2]);
    ircut.alarm_flag = flag;
    return 0;
}

int get_current_night_mode(int *night, int *mode, int *alarm)
{
    if (!night || !mode || !alarm) {
        log_err("%s param err ", __func__);
        return -1;
    }
    *night = ircut.smart_night;
    *mode = ircut.applied_mode;
    *alarm = ircut.alarm_flag;
    return 0;
}

static void tick(int white, alarm_counts *counts)
{
    const uint64_t light = ircut.alarm_light;
    const alarm_tick t =
        alarm_tick_of(static_cast<int>(light >> 32), static_cast<int>(light & 0xFFFFFFFFu), white, counts);
    if (t.on)
        ir_white_led_crtl(WHITE_LED_GPIO, 1);
    if (t.off)
        ir_white_led_crtl(WHITE_LED_GPIO, 0);
    if (t.end) {
        // Out before the task is let go: from then on the LED may be lit for the night.
        ir_white_led_crtl(WHITE_LED_GPIO, 0);
        ircut.alarm_flag = 0;
    }
}

unsigned ircut_alarm_round(alarm_counts *counts)
{
    if (ircut.alarm_flag != 1)
        return TICK_MS;
    const int white = ir_white_get_led_status(WHITE_LED_GPIO);
    switch (alarm_serve(ircut.mode, ircut.full_color_night, ircut.smart_night, ir_white_get_light_status())) {
    case ALARM_WAITS:
        break;
    // Dropped, the counts deliberately stay, and the next look is at once.
    case ALARM_DROPPED_FULL_COLOR:
        log_info("[%s %d] current full color and night stop alarm\n", "white_led_status_and_alarm_check",
                 __LINE__);
        ircut.alarm_flag = 0;
        return 0;
    case ALARM_DROPPED_SMART:
        log_info("[%s %d] current smart mode and night stop alarm\n", "white_led_status_and_alarm_check",
                 __LINE__);
        ircut.alarm_flag = 0;
        return 0;
    case ALARM_SERVED:
        tick(white, counts);
        break;
    }
    return TICK_MS;
}

void *white_led_status_and_alarm_check(void *number)
{
    prctl(PR_SET_NAME, "white_led_status_and_alarm_check");
    const uintptr_t mine = reinterpret_cast<uintptr_t>(number);
    alarm_counts counts = {0, 0};
    while (ircut.task_running && ircut.alarm_thread == mine)
        if (const unsigned ms = ircut_alarm_round(&counts))
            naro_clock_sleep_ms(ms);
    return nullptr;
}
