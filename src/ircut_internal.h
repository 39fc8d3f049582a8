// The inside of the ircut module, shared by its sources and looked at by its tests. No other module includes
// this, the platform table apart, which names the task's entry.
//
//   ircut.cpp        start, stop, mode changes
//   ircut_task.cpp   the task: sampling, sequences, modes 0, 3 and 6
//   ircut_color.cpp  modes 4 and 5
//   ircut_alarm.cpp  the alarm light, and what others ask of the modes
//   ircut_basic.cpp  a simpler controller that no table selects
//   ircut_decide.cpp all decisions
#ifndef IRCUT_INTERNAL_H
#define IRCUT_INTERNAL_H

#include <pthread.h>
#include <stdint.h>

#include <atomic>

#include "ircut.h"
#include "ircut_decide.h"

struct ircut_state {
    // The ircut lock: start, stop and mode changes, one after the other, the joining of the task included.
    // The task never takes it.
    pthread_mutex_t lock;
    // Held by the task for one step and by a mode change for one fixed sequence with its change of `mode`. So
    // a step is over before a fixed sequence begins, or sees that it has nothing to do any more; otherwise
    // the two could leave a picture that is half night in a mode in which nobody would ever mend it. Taken
    // under the ircut lock or alone, never the other way round, and not while the task is joined.
    pthread_mutex_t step_lock;
    pthread_mutex_t full_color_lock; // protects full_color
    int full_color;
    pthread_t task; // there is one to join while task_running; ircut lock

    // Read by several threads without a lock; each a word of its own.
    std::atomic<int> inited;                 // written under the ircut lock
    std::atomic<int> mode;                   // the mode asked for; written under the ircut lock
    std::atomic<int> applied_mode;           // the mode that the task has entered; written by the task
    std::atomic<int> task_running;           // cleared, it ends the task and the alarm-light thread
    std::atomic<int> sensor_ssc3338;         // which sensor ircut_init has found
    std::atomic<uint32_t> isp_mode_snapshot; // what the task has read last; for whoever looks at a core dump
    std::atomic<int> full_color_night;       // mode 4 has the white LED on for the night
    std::atomic<int> smart_night;            // mode 5 is in its night
    std::atomic<int> alarm_flag;             // 1: an alarm light is asked for
    std::atomic<uint64_t> alarm_light;       // light type and duration in one word, so that they fit together
    std::atomic<uintptr_t> alarm_thread; // number of the alarm-light thread that may go on; each has its own
};
extern ircut_state ircut;

// The task's own.
struct ircut_task {
    int d2n_count, n2d_count; // samples in a row
    int white_led_now;        // the white LED as it is,
    int white_led_seen;       // and as mode 5 has acted on it last
    uint32_t isp_mode;        // the processor's running mode as the task knows it
    uint64_t samples;         // so far
    naro_isp_ev_attr ev;      // what was read last, where a reading fails
    naro_isp_wb_attr wb;
    ircut_sample sample; // the same in the units of decisions
};

// The task's entry, and one round of it: returns how many milliseconds to sleep.
void *mstar_ircut_ctrl_smart(void *);
unsigned ircut_task_round(ircut_task *task);

// Steps: what a mode does with one sample. The task, step_lock held.
void ircut_step_night_day(ircut_task *task, int mode);
void ircut_step_full_color(ircut_task *task);
void ircut_step_smart(ircut_task *task);

// Reads the statistics; true on every 60th time (about 30 s), which is when the sample is logged.
void ircut_sample_take(ircut_task *task);
bool ircut_sample_is_logged(const ircut_task *task);
// "<mode's name>___day mode____..." with the sample.
void ircut_sample_log_day(const ircut_task *task, const char *name);

// Publishes the time of a switch between day and night as "time_night".
void ircut_stamp(void);
// The picture of modes 1 and 2. Not on the task.
void ircut_fixed_day(void);
void ircut_fixed_night(void);
// Asks the processor for day, waits and reads back. False when it refused, which is logged; otherwise
// *isp_mode is day, whatever was read back.
bool ircut_isp_day(uint32_t *isp_mode, const char *caller);
// The same for night in two parts, between which the lights change: the request with its wait, and the
// reading back.
bool ircut_isp_night(void);
void ircut_isp_night_read_back(uint32_t *isp_mode, const char *caller);
// Day to night as modes 3 and 5 do it, after the decision. False when the processor refused.
bool ircut_go_infrared_night(ircut_task *task);
// Puts out the infrared light, and moves the filter to day.
void ircut_infrared_off(void);

// The alarm light: the thread's entry (its number is the argument), and one round of it: returns how many
// milliseconds to sleep.
void *white_led_status_and_alarm_check(void *number);
unsigned ircut_alarm_round(alarm_counts *counts);

// The basic controller.
struct ircut_basic {
    ircut_task task; // d2n_count, n2d_count and white_led_* of it are used as in the others
    ircut_level_counts levels;
};
void *mstar_ircut_ctrl(void *);
unsigned ircut_basic_round(ircut_basic *basic);

#endif
