// The lights on GPIO lines: the infrared LED and the white LED, and the timer that keeps the white one on for
// a while after a person was seen.
//
// A person lights it for 30 s; a person seen while it is lit makes it 30 s from then, as long as it is less
// than 30 minutes since it last went out (the very first time: since it was lit); once out, it cannot be lit
// again for 30 s. These are seconds of the wall clock: set back, it refuses to light until the old time is
// reached again; set forward, the refusals end early, and a light that is on may go out after its current 30
// s. The 30 s themselves are the timer's and do not move with the wall clock.
//
// The timer belongs to the event loop. Other threads only leave there what is to become of it, the latest
// wish counts, and wake the loop; a wish made before the timer's firing has been dealt with wins over the
// firing.
#ifndef IR_WHITE_LED_H
#define IR_WHITE_LED_H

#include <stdint.h>

#include <atomic>

struct ev_loop;
struct ev_timer;

enum {
    IR_LED_GPIO = 45,
    WHITE_LED_GPIO = 47,
};

// ---- Lines -----------------------------------------------------------------------------------------------

// Requests both lines (white first), makes each an output where it is none yet, and puts the timer's watchers
// on the default loop. 0, or the first failure's -1 after the rest was tried all the same: without lines
// there is no light, and everything else works. Event loop only, after algo_shbf_init, before threads start.
int ir_white_led_init(void);
// Releases both lines, white first. 0, or the first failure's -1. Any thread.
int ir_white_led_fini(void);
// Switches a line: on 1, off 0. What GPIO_set_value returns. Any thread.
int ir_white_led_crtl(int gpio, int on);
// The value of a line as it is now, or -1. Any thread.
int ir_white_get_led_status(int gpio);

// A dimmable light on a PWM channel, of which this board has none: `duty` in percent, `pwm` the number of the
// channel as text, of which three characters count. 0, or -1 with a log line (null `pwm`, a file that cannot
// be opened or written). Any thread.
int ir_white_brightness_crtl(int duty, const char *pwm);
// Does nothing; an entry kept for those who call it.
void white_led_blink(void);

// ---- Timer of the white LED ------------------------------------------------------------------------------

// A person was seen: lights the white LED, extends its time, or does nothing, by the rules above. 0. Any
// thread.
int led_task_set_white_led_on(void);
// Lets the timer fire 30 s from now: `restart` 0 begins, 1 begins again; it is the same. Any other value does
// nothing. 0. Any thread.
int led_task_set_timer(int restart);
// Whoever takes the white LED into their own hands ends the timer's reign with this; the line stays as it is.
// Where the timer had not lit it, nothing happens. 0. Any thread.
int led_task_set_timer_stop(void);
// 1 while the white LED is lit by the rules above (not by an alarm, not by mode 4), else 0. Any thread, no
// lock.
int ir_white_get_light_status(void);
// The timer's callback: puts the white LED out. Event loop only.
void timer_action(struct ev_loop *loop, struct ev_timer *timer, int events);

// The white light's enable: 3 at the start, and only 3 lets a person light it. Nothing changes it. Any
// thread.
extern std::atomic<int> g_white_led_switch;

// What a person seen at `now_s` does, as a pure function: the rules above as code.
enum white_led_verdict { WHITE_LED_NOTHING, WHITE_LED_LIGHT, WHITE_LED_EXTEND };
white_led_verdict white_led_on_person(int64_t now_s, int64_t last_off_s, int light_on, int enable);

#endif
