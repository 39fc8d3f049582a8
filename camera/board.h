// The camera's board: GPIO lines and PWM channels as the kernel would show them, as plain files under the
// root, and what hangs on them: the filter's coil, the infrared LED, the white LED, the infrared lamp.
//
// The daemon writes the files; the board follows them by file notification, so that nothing needs a privilege
// and nothing is polled. A file is written by truncating it and writing it, so that it can be seen empty for
// a moment: that says nothing yet.
#ifndef BOARD_H
#define BOARD_H

#include <stdint.h>

struct ev_loop;

enum board_line { BOARD_IR_LED, BOARD_WHITE_LED, BOARD_COIL_NIGHT, BOARD_COIL_DAY, BOARD_LINES };
// Their GPIO numbers, in that order: 45, 47, 78, 79.
extern const int board_line_numbers[BOARD_LINES];

enum {
    BOARD_PULSE_MIN_MS = 100,  // a shorter pulse does not move the filter
    BOARD_PULSE_MAX_MS = 1000, // a longer one burns the coil
};

struct board_state {
    bool high[BOARD_LINES];
    bool filter_day;                // the filter is before the sensor
    unsigned pwm_percent;           // of the infrared lamp: its duty while its channel is enabled, else 0
    uint64_t moves;                 // of the filter from one side to the other: its wear
    uint64_t pulses;                // of the coil, also those that found the filter there already
    uint64_t breaches;              // both coil lines high, or a pulse that took too long
    uint64_t since_ms[BOARD_LINES]; // when a line last changed; monotonic
    bool breached[BOARD_LINES];     // the present pulse has been reported
};

// A board after power-on: lines low, the filter on the day side.
void board_init(board_state *board);
// A line takes a level at a time (monotonic). Returns why that is a breach, or null. A line that has the
// level already is left alone.
const char *board_set_line(board_state *board, board_line line, bool high, uint64_t now_ms);
// Looks for a pulse that takes too long. As board_set_line.
const char *board_check(board_state *board, uint64_t now_ms);

// Makes the files anew and follows them on `loop`; `on_change` is called after each change of the state
// (null: nobody asks). Breaches are said. 0, or -1 after saying why. The root has been entered. Event loop
// only, as are all of these.
int board_start(struct ev_loop *loop, void (*on_change)(void));
const board_state *board_get(void);
void board_stop(void);

#endif
