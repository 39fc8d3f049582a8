// The life of the daemon's process: what is started in which order, and what is torn down.
#ifndef LIFECYCLE_H
#define LIFECYCLE_H

// Installs the signal dispositions, starts the subsystems, runs the event loop on the calling thread, tears
// the subsystems down. Returns 0, also after a start-up step that failed. Once, before threads start.
//
// SIGINT, SIGQUIT and SIGTERM end the process at once, from any thread and at any point, with status 255 and
// without any teardown: the operating system takes back what it lent. SIGPIPE is ignored, so that a write to
// a peer that has gone returns an error.
int lifecycle_run(void);

#endif
