// Person and motion detection: one thread that turns the frames of the motion queue into events and boxes.
//
// For each frame: the blocks that differ from the frame before give a moving rectangle, which the tracker
// is told of; the detector looks at that part of the picture only; "PeopleMotion" or "ObjectMotion" goes
// out on the md channel; the boxes go to the media server. Events are not throttled here: every frame with
// something to say says it. The boxes follow the event, so that whoever receives a frame's boxes knows that
// its event has been sent. In the night of the smart light mode, while no alarm light is on, the first
// frame with people and every third one after it asks for the white LED, before its event.
#ifndef MID_HCHD_H
#define MID_HCHD_H

// Creates the engine, the detector and the thread. The motion queue must exist. 0, or -1 when the detector
// cannot be created (no thread then); a failure of the image engine is reported and otherwise ignored, the
// task then finds no motion. The argument is accepted and ignored. Settings made before keep their values,
// but for the care regions: their table is emptied. Once for a motion queue: the quit element of an earlier
// fini may still lie in it. While the task runs it changes nothing: 0. Before the event loop runs.
int mid_hchd_init(int ignored);

// Ends the thread (a quit element wakes it where no frame comes), waits for it, and frees everything;
// always 0. Prints what each release answered. Safe also after a failed init. Not while holding a lock that
// the thread can take.
int mid_hchd_fini(void);

// How different a block must be to count as moved: level 0 least sensitive, 1, 2 most (the start value).
// Another level changes nothing. Takes effect at the next frame. 0. Any thread, also before init.
int mid_hchd_sensitivity_set(int level);

// How sure the detector must be of a person: level 1 (0.7, surest) to 5 (0.3); 3 (0.5) is the start value.
// Another level changes nothing. Takes effect at the next frame. 0. Any thread, also before init.
int mid_hchd_people_sensitivity_set(int level);

// The region in which people are looked for, in 1/10000 of the frame; at the start all of it. Note the
// order of the arguments. What is used is the part inside the frame; where that holds no pair of pixels in
// either direction an error line says so and the old region stays. Motion that reaches outside the region
// makes the detector look at all of the region. Takes effect at the next frame. 0. Any thread, also before
// init.
int set_mid_people_region(int x1, int x2, int y1, int y2);

#endif
