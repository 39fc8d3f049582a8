// Watches the locks and semaphores that live in one stretch of memory: what was called in which order, a lock
// that is made to fail, a thread that is held right before it takes the lock. Works by the linker's --wrap.
#ifndef SYNC_SPY_H
#define SYNC_SPY_H

#include <semaphore.h>
#include <stddef.h>
#include <string>
#include <vector>

// Watches objects inside [memory, memory + size), and forgets what it knew.
void sync_spy_watch(const void *memory, size_t size);
void sync_spy_ignore(void);

// The calls since the last question, such as {"lock", "post", "unlock"}.
std::vector<std::string> sync_spy_calls(void);
// The semaphore that was initialised; its value right now (a waiter does not count).
int sync_spy_semaphore(void);

// The n-th lock from now on (1 = the next) fails with EINVAL and does nothing.
void sync_spy_fail_lock(int nth);

// The next thread that wants the lock is held in front of it, until released.
void sync_spy_hold_next_lock(void);
void sync_spy_wait_held(void);
void sync_spy_release(void);
// Returns once a thread is inside sem_wait.
void sync_spy_wait_waiting(void);

#endif
