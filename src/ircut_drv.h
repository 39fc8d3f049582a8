// The coil of the IR-cut filter: two GPIO lines, one for each direction. A pulse of half a second moves the
// filter, which then stays where it is without current.
//
// The lines' numbers are those of the platform table. One lock lets two threads never pulse together: both
// lines high, or one high for longer than its pulse, would burn the coil. Failures are log_err lines, and
// nothing done before them is undone. Any thread, unless it could be cancelled in here.
#ifndef IRCUT_DRV_H
#define IRCUT_DRV_H

enum {
    IRCUT_POSITION_NIGHT = 0, // the filter is out of the light's way: infrared passes
    IRCUT_POSITION_DAY = 1,
    IRCUT_PULSE_MS = 500,
};

// Requests both lines and makes them outputs, which sets them low. A line that is there already is fine. 0,
// or -1 at the first failure.
int _mstar_ircut_drv_init(void);
// Gives both lines back. 0 or -1.
int _mstar_ircut_drv_exit(void);
// Moves the filter to a position and returns when the pulse is over and both lines are low again; any other
// position is logged and leaves both lines low, without a wait. 0, or -1 when a line cannot be opened
// (nothing has moved) or written (every other write is tried all the same, so that no line stays high).
int _mstar_ircut_drv_sw(int position);

#endif
