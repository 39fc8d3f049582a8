// The way of a text to the motor: a queue, and a thread that puts one text after the other into the mailbox
// shared with the motor's process (include/motor_mailbox.h), with a little patience for the motor's moves.
//
// Whoever queues a text never meets the other process: only the thread touches the segment, and it waits a
// bounded time for it, so a motor process that hangs, dies inside the segment's lock or writes nonsense into
// the segment costs texts and nothing else.
#ifndef ALGO_SHM_H
#define ALGO_SHM_H

// Starts the thread. 0; -1 when it runs already, which is logged; the negative errno of a thread that could
// not be created, logged too. The segment is made and attached by the thread; where that fails the process
// ends with status 1, to be started anew by whoever watches over it. Any thread but the writer's.
int algo_shm_init(void);

// Stops the thread, within its current step, and detaches the segment, which stays for the motor's process.
// Texts that still wait are dropped: they tell of a scene that will be long gone when somebody starts again.
// 0, or -1 when there is nothing to stop, which is logged. Ends the process with status 1 when the segment
// cannot be detached. Any thread but the writer's.
int algo_shm_fini(void);

// Queues a copy of `text`, at most 31 characters and a terminating zero. 0; -1 with an error line, and
// nothing queued, when the text is longer (no part of it is sent) or null, when 1024 texts wait already, or
// without memory. While the thread does not run the text is dropped and counts as done, 0, as on a channel
// that is not served; the first such text says so. Any thread, at any time; never waits for the other
// process.
int algo_shm_write_wrap(const char *text);

#endif
