// The decisions of the day/night controller.
#include "ircut_decide.h"

#include <stddef.h>

#include "light_modes.h"

ircut_sample ircut_sample_of(const naro_isp_ev_attr &ev, const naro_isp_wb_attr &wb)
{
    const float red = static_cast<float>(wb.word[0]) / 1024.f;
    const float blue = static_cast<float>(wb.word[1]) / 1024.f;
    ircut_sample sample;
    sample.ev = ev.word[0];
    sample.bv = ev.word[1];
    sample.expr_us = ev.word[2];
    sample.again = ev.word[3];
    sample.dgain = ev.word[4];
    sample.total_gain = static_cast<uint64_t>(sample.again) * sample.dgain;
    sample.rgain = static_cast<int>(red);
    sample.bgain = static_cast<int>(blue);
    sample.gain_sum = static_cast<int>(red + blue);
    return sample;
}

// The conditions that hold as bits, the first lowest.
template <size_t COUNT> static unsigned bits(const bool (&conditions)[COUNT])
{
    unsigned result = 0;
    for (size_t i = 0; i < COUNT; i++)
        result |= static_cast<unsigned>(conditions[i]) << i;
    return result;
}

unsigned ircut_dark_reasons(const ircut_sample &s)
{
    return bits({
        s.ev <= 3 && s.expr_us >= 66666 && s.again >= 14500 && s.gain_sum >= -7000,
        s.ev == 0 && s.expr_us >= 95000,
    });
}

bool ircut_dark(const ircut_sample &s)
{
    return ircut_dark_reasons(s) != 0;
}

bool ircut_dark_full_color(const ircut_sample &s)
{
    return s.ev <= 10 && s.bv <= 0xFFFEE6C0u && s.expr_us >= 66666;
}

bool ircut_dark_basic(const ircut_sample &s, int full_color)
{
    if (full_color == 1)
        return s.ev <= 3 && s.again >= 16000 && (s.gain_sum >= -4600 || s.bv <= 0xFFFE3EC8u);
    return s.ev <= 3 && s.expr_us >= 66666;
}

// Infrared night: any of five pictures of a day.
unsigned ircut_bright_reasons(const ircut_sample &s)
{
    return bits({
        s.ev >= 13 && s.again <= 13999 && s.expr_us >= 50000 && s.gain_sum <= -6100,
        s.ev >= 30 && s.again <= 6600 && s.expr_us <= 64999 && (s.rgain <= -1150 || s.bgain <= -2660),
        s.ev >= 40 && s.again <= 3600 && s.expr_us <= 64999 && (s.rgain <= -250 || s.bgain <= -500),
        s.ev >= 48 && s.again <= 4500 && s.expr_us <= 64999 && s.gain_sum <= 1800 && s.rgain <= -100,
        s.ev >= 85 && s.again <= 1000,
    });
}

bool ircut_bright(const ircut_sample &s, int mode, int white_led_on, bool other_sensor)
{
    switch (mode) {
    case NARO_IRCUT_MODE_AUTO:
    case NARO_IRCUT_MODE_AUTO_NIGHT_DAY:
        return ircut_bright_reasons(s) != 0;
    case NARO_IRCUT_MODE_AUTO_FULL_COLOR:
        return s.ev >= 50 && s.again <= 1849 && s.expr_us <= (other_sensor ? 50000u : 45000u) &&
               s.gain_sum <= -7001;
    case NARO_IRCUT_MODE_AUTO_SMART:
        return white_led_on == 0 && ircut_bright_reasons(s) != 0;
    default:
        return false;
    }
}

bool ircut_bright_basic(const ircut_sample &s)
{
    return (s.ev >= 13 && s.again <= 12999 && s.expr_us >= 50000 && s.gain_sum <= -600) ||
           (s.ev >= 40 && s.again <= 3500 && s.expr_us <= 64999 && (s.rgain <= -250 || s.bgain <= -500)) ||
           (s.ev >= 48 && s.again <= 4500 && s.expr_us <= 64999 && s.gain_sum <= 1800 && s.rgain <= -100) ||
           (s.ev >= 85 && s.again <= 1000);
}

ircut_level_step ircut_level_look(uint32_t ev, ircut_level_counts *counts)
{
    if (ev <= 29)
        *counts = {counts->low + 1, 0};
    else if (ev >= 81)
        *counts = {0, counts->high + 1};
    if (counts->low > IRCUT_BASIC_LEVEL_COUNT) {
        counts->low = 0;
        return IRCUT_LEVEL_UP;
    }
    if (counts->high > IRCUT_BASIC_LEVEL_COUNT) {
        counts->high = 0;
        return IRCUT_LEVEL_DOWN;
    }
    return IRCUT_LEVEL_STAY;
}

ircut_reaction ircut_white_light(int now, int seen, int smart_night, uint32_t isp_mode)
{
    if (smart_night != 1)
        return IRCUT_STAY;
    if (now != 0 && now != seen && isp_mode == NARO_ISP_RUNNING_MODE_NIGHT)
        return IRCUT_TO_COLOR;
    if (now == 0 && seen != 0 && isp_mode == NARO_ISP_RUNNING_MODE_DAY)
        return IRCUT_TO_INFRARED;
    return IRCUT_STAY;
}

alarm_verdict alarm_serve(int mode, int full_color_night, int smart_night, int person_light)
{
    switch (mode) {
    case NARO_IRCUT_MODE_AUTO_NIGHT_DAY:
        return ALARM_SERVED;
    case NARO_IRCUT_MODE_AUTO_FULL_COLOR:
        return full_color_night == 1 ? ALARM_DROPPED_FULL_COLOR : ALARM_SERVED;
    case NARO_IRCUT_MODE_AUTO_SMART:
        return smart_night == 1 && person_light != 0 ? ALARM_DROPPED_SMART : ALARM_SERVED;
    default:
        return ALARM_WAITS;
    }
}

alarm_tick alarm_tick_of(int light, int duration_s, int white, alarm_counts *counts)
{
    alarm_tick tick = {};
    if (light == 0 || light == 1)
        tick.on = white == 0;
    if (light == 1 && counts->blink > 2) {
        tick.off = true;
        counts->blink = 0;
    }
    counts->blink++;
    counts->alarm++;
    if (counts->alarm > static_cast<uint32_t>(duration_s) * 1000u / 500u) {
        tick.end = true;
        *counts = {0, 0};
    }
    return tick;
}
