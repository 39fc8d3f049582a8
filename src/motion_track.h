// Motion tracking: turns the camera toward what moves.
//
// While tracking is on, "motion_track_task" takes each moving rectangle that detection finds and asks the
// motor, on the motor channel, to turn by so many whole degrees. It does not know the motor, nor where the
// view stands: the text "[h,v,number]" says how far from where it looks now, and numbers the requests from
// 0. Two rules keep it calm: motion within less than 10 degrees of the middle is left alone, and a request
// within 151 ms of the one before is not sent.
//
// One axis at a time: a request that pans does not tilt.
//
// The rectangle passes from detection to the tracker in one atomic word, without a lock: neither ever waits
// for the other, the newest counts, and it is never seen half changed. Each rectangle also counts up a
// semaphore; the tracker may be behind and then looks at the newest several times.
#ifndef MOTION_TRACK_H
#define MOTION_TRACK_H

// 1 turns tracking on: a thread is started. Any other mode turns it off: the thread is ended and waited
// for. Turning on what is on starts another thread in place of the one that runs, which is ended first; so
// whoever calls this sends changes only. A thread that cannot be started is logged and leaves the mode as
// asked for. Always 0. Any thread but the tracker's; not while holding a lock that a broadcast may take.
int motion_track_mode_config(int mode);
int motion_track_mode_get(void); // any thread; never waits

// The two halves of motion_track_mode_config, without the mode; for it alone. create forgets the last
// rectangle and what was posted, and starts the thread: 0, or the error of pthread_create. destroy ends it
// and waits; where none runs it does nothing.
int motion_track_create_task(void);
void motion_track_destroy_task(void);

// Something moves in x, y, w, h, in pixels of the 320x192 picture (what goes beyond 16 bits is cut to
// them). 0. Any thread, whether tracking is on or not; never waits.
int motion_track_coordinate_config(int x, int y, int w, int h);

// The angles to the last rectangle, in whole degrees, right and down positive; v is 0 wherever h is not. 0,
// or -1 with an error line when an output is null. Any thread.
int motion_track_calcu_rotate_angle(int *h_out, int *v_out);

// ---- For whoever refines the tracker; nothing calls them --------------------------------------------------

// Whether a rectangle is new (1), or the last one over again (0, which is logged): new when its x is more
// than 4 away from the last one's. Else the time decides: the wall clock in seconds less the time of the
// last motion_track_dis_between_ori_point in milliseconds. The units are mixed deliberately, as they always
// were; 0 to 500 is a duplicate. Only x is looked at. Any thread.
int motion_track_filter_duplicate_coordinate(int x, int y, int w, int h);
// Notes how far the view is from where it began (-1: nobody has said), and when that was said. 0. Any
// thread.
int motion_track_dis_between_ori_point(int distance);
// `value` itself: the motor hangs the right way up.
int motion_track_rotate_opposite(int value);

#endif
