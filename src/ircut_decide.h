// The decisions of the day/night controller, as pure functions of the processor's statistics: any thread, no
// state, no clock.
//
// The processor measures in its own units: `ev` is a brightness that is near 0 in the dark and grows with the
// light that no exposure can hold back; exposure time is in microseconds; gains have 1024 = 1x. A scene in
// visible light has a strongly negative gain sum of the white balance, one in infrared light is near zero or
// above: that is how a lit night is told from a day. The bounds are those that the camera's sensor was tuned
// with; nothing derives them.
#ifndef IRCUT_DECIDE_H
#define IRCUT_DECIDE_H

#include <stdint.h>

#include "naro_ipc_wire.h"

struct ircut_sample {
    uint32_t ev;
    uint32_t bv; // a signed value that is deliberately compared as unsigned
    uint32_t expr_us;
    uint32_t again;
    uint32_t dgain;
    uint64_t total_gain; // again x dgain
    int rgain, bgain;    // red, blue / 1024, towards zero
    int gain_sum;        // their sum, made whole once at the end
};

ircut_sample ircut_sample_of(const naro_isp_ev_attr &ev, const naro_isp_wb_attr &wb);

// ---- Day to night ----------------------------------------------------------------------------------------

// Modes 0, 3 and 5: any of two conditions.
bool ircut_dark(const ircut_sample &sample);
// Which of them hold, bit 0 for the first in the source; reports name the condition that fired.
unsigned ircut_dark_reasons(const ircut_sample &sample);
// Mode 4. Deliberate: `bv` passes when it is at most -72000 read as unsigned, so every value that is not
// negative passes too.
bool ircut_dark_full_color(const ircut_sample &sample);
// The basic controller, by the full-colour setting; `bv` as above with -115000.
bool ircut_dark_basic(const ircut_sample &sample, int full_color);

// ---- Night to day ----------------------------------------------------------------------------------------

// Whether a night sample counts towards day in a light mode. Mode 5 never counts while the white LED is lit;
// mode 4 is measured with it lit, and knows a sensor (`other_sensor`, "/tmp/SSC3338") that exposes for
// longer; the modes that decide nothing never count.
bool ircut_bright(const ircut_sample &sample, int mode, int white_led_on, bool other_sensor);
// Which of the five conditions of modes 0, 3 and 5 hold, bit 0 for the first in the source.
unsigned ircut_bright_reasons(const ircut_sample &sample);
// The basic controller.
bool ircut_bright_basic(const ircut_sample &sample);

// ---- Counting --------------------------------------------------------------------------------------------

// Samples in a row that must be passed before the controller changes sides: with a period of 0.5 s, 10 is 5.5
// s.
enum {
    IRCUT_DARK_COUNT = 10,
    IRCUT_BRIGHT_COUNT = 10,       // modes 0 and 3
    IRCUT_BRIGHT_COUNT_WHITE = 20, // modes 4 and 5
    IRCUT_BASIC_DARK_COUNT = 5,
    IRCUT_BASIC_BRIGHT_COUNT = 6,
    IRCUT_BASIC_LEVEL_COUNT = 3, // for a rung of the infrared ladder
};
// One more, or from the beginning.
constexpr int ircut_count(int count, bool hit)
{
    return hit ? count + 1 : 0;
}

// The basic controller's infrared brightness: dim samples (`ev` at most 29) and glaring ones (at least 81) in
// a row; those between leave the counts as they are.
struct ircut_level_counts {
    int low, high;
};
enum ircut_level_step { IRCUT_LEVEL_STAY, IRCUT_LEVEL_UP, IRCUT_LEVEL_DOWN };
ircut_level_step ircut_level_look(uint32_t ev, ircut_level_counts *counts);

// ---- White light in mode 5 -------------------------------------------------------------------------------

// What the night picture does when the white LED was lit or went out: `now` is its state, `seen` the one that
// was acted on last, `isp_mode` the processor's running mode.
enum ircut_reaction { IRCUT_STAY, IRCUT_TO_COLOR, IRCUT_TO_INFRARED };
ircut_reaction ircut_white_light(int now, int seen, int smart_night, uint32_t isp_mode);

// ---- Alarm light -----------------------------------------------------------------------------------------

// Whether an alarm light that is asked for is served: in modes 3, 4 and 5 only, and not where the night is
// lit white already. `person_light`: the white LED is lit for a person.
enum alarm_verdict { ALARM_WAITS, ALARM_DROPPED_FULL_COLOR, ALARM_DROPPED_SMART, ALARM_SERVED };
alarm_verdict alarm_serve(int mode, int full_color_night, int smart_night, int person_light);

// One tick, every 0.5 s, of an alarm light that is served: `light` 0 steady, 1 flashing (on for 1.5 s, then
// off for 0.5 s and on for 1 s in turn), anything else dark. `white` is the LED's state. It ends when more
// ticks have passed than the duration has, in unsigned 32-bit arithmetic: 0 s end in the first tick, and a
// negative duration lasts for years.
struct alarm_counts {
    uint32_t blink, alarm; // ticks; 0 at the start, and again after the end
};
struct alarm_tick {
    bool on;  // light the LED,
    bool off; // then put it out,
    bool end; // then the alarm is over: put it out and take the request back
};
alarm_tick alarm_tick_of(int light, int duration_s, int white, alarm_counts *counts);

#endif
