// Day or night: the controller that moves the IR-cut filter, the infrared light and the white LED and
// switches the image signal processor, in seven light modes (light_modes.h).
//
// Modes 1 and 2 are carried out at once by whoever asks for them. The others are run by the ircut task, one
// thread, which looks at the processor's statistics every 0.5 s; it changes sides only after many samples in
// a row (ircut_decide.h). A second thread gives the alarm light; while an alarm is on, the task holds still.
//
// The calls that move hardware (init, exit, mode_switch) run one after the other under the ircut lock and
// take their time: a pulse of the filter's coil takes 0.5 s, a fixed night 0.7 s, the end of the task up to a
// second and the sequence that it is in. The task never takes that lock. Not cancellation points that may be
// hit: a thread that can be cancelled calls them with cancellation disabled.
#ifndef IRCUT_H
#define IRCUT_H

#include <stdint.h>

#include <atomic>

#include "light_modes.h"
#include "naro_ipc_wire.h"

// Sets the drivers up, forces day (modes 0, 3, 4, 5) and starts the task and the alarm-light thread, or
// carries out mode 1 or 2 without any thread. 0 when done or when inited before ("already inited"; the
// platform table is then filled once more all the same); a driver's negative result; -1 for a mode that
// cannot be started in (6 and anything unknown) or when the task cannot be created. On failure the drivers
// are released again and nothing is inited. Waits up to 3 s for the processor to say that it is in day mode,
// and goes on without. Existence of "/tmp/SSC3338" selects the other sensor's exposure bound, from here on.
// Any thread.
int ircut_init(void);

// Ends the task (and lets the alarm-light thread end by itself), puts all lights out, releases the drivers.
// Always 0; "already exit" where nothing was inited. Not by the task, and not while holding a lock that the
// task takes in a call of the modules it uses. Any other thread.
int ircut_exit(void);

// A new "night_mode" at run time; always 0. Not inited: logged, and the mode is not even kept. Mode 0 becomes
// 5 (but stays 0 where it is 0). Modes 1 and 2 move the hardware here and broadcast "NightToDay" or
// "DayToNight" when they are new; they leave a running task idle, but end it where the mode was 0. Modes 3 to
// 6 start the task where there is none; a running one notices at its next round. The alarm-light thread is
// not started here: after a start in mode 1 or 2 there is none. Any other value does nothing. Any thread but
// the task.
int ircut_mode_switch(int mode);

// Keeps the mode for the next ircut_init, or for a running task's next round; does nothing else, always 0.
// Any thread but the task.
int ircut_mode_config(int mode);

// Whether ircut_init has succeeded and ircut_exit has not yet been called. Any thread, no lock.
bool ircut_is_inited(void);

// The "full_color" setting (1 on, which it is at the start, 0 off): shown in the log lines of the day, and
// the other dark test of the basic controller. It decides nothing else. config returns 0. Any thread.
int fullcolor_mode_config(int value);
int fullcolor_mode_get(void);

// Asks for the alarm light (flag 1), or takes the request back (flag 0; what is lit then stays as it is).
// `info` has three words: the first is not looked at; the light, 0 steady or 1 flashing; its duration in
// seconds. 0, or -1 with a log line for a null `info`, and nothing has changed. The alarm-light thread serves
// it in modes 3, 4 and 5; in 0, 1 and 2 the request stays, and the task stays frozen with it; mode 6 drops
// it. It is dropped too when mode 4 has its white light on for the night, or mode 5 at night while a person
// has lit it: the scene is lit already. Any thread.
int set_white_led_alarm_info(int flag, const int *info);

// *night: 1 while mode 5 is in its night. *mode: the mode that the task has last entered, which right after a
// change is still the old one. *alarm: 1 while an alarm light is asked for. 0, or -1 with a log line when a
// pointer is null, and then nothing is written. Any thread, no lock; three independent words.
int get_current_night_mode(int *night, int *mode, int *alarm);

// 1 when a sample taken at night counts towards day in `mode`, else 0: the bounds of ircut_decide.h, with the
// exposure bound of the sensor found at ircut_init. `white_led_on`: mode 5 never counts while it is lit. Logs
// the sample on the first and then every 60th call. The task.
int ircut_check_night_to_day(const naro_isp_ev_attr *ev, const naro_isp_wb_attr *wb, int mode,
                             int white_led_on);

// The tilt at which the view rests, as the "motor" setting gave it last; shown in a log line, decides
// nothing. Any thread.
extern std::atomic<int> g_motor_position_v_p;

#endif
