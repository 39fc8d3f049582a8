// Which locks the calling thread holds, so that a fake can tell whether it is called inside or outside of
// one, and a lock that is given back without having been taken shows.
//
//   int naro_isp_wdr_enable(void)            // a fake
//   {
//       EXPECT_EQ(locks_held(), 1u);
//       EXPECT_TRUE(lock_is_held(&ircut.lock));
//
// Link with -Wl,--wrap=pthread_mutex_lock -Wl,--wrap=pthread_mutex_unlock. Any thread.
#ifndef NARO_TESTS_LOCK_WATCH_H
#define NARO_TESTS_LOCK_WATCH_H

#include <pthread.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

extern "C" int __real_pthread_mutex_lock(pthread_mutex_t *);
extern "C" int __real_pthread_mutex_unlock(pthread_mutex_t *);

// A plain array, and an end of the process instead of a failed expectation: the test's own machinery takes
// locks, too, and must not be called from here.
inline thread_local pthread_mutex_t *lock_watch_held[16];
inline thread_local size_t lock_watch_count;

inline size_t locks_held()
{
    return lock_watch_count;
}

inline bool lock_is_held(const pthread_mutex_t *mutex)
{
    for (size_t i = 0; i < lock_watch_count; i++)
        if (lock_watch_held[i] == mutex)
            return true;
    return false;
}

// Called right before a lock is taken or given back, while nobody else may be between the two: the place to
// look what has been done on which side of it, or to do what another thread might do there. It takes no lock
// itself.
inline void (*lock_watch_look)(const pthread_mutex_t *mutex, bool taken) = nullptr;

extern "C" inline __attribute__((used)) int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex)
{
    if (lock_watch_look)
        lock_watch_look(mutex, true);
    const int result = __real_pthread_mutex_lock(mutex);
    if (result == 0 && lock_watch_count < sizeof lock_watch_held / sizeof *lock_watch_held)
        lock_watch_held[lock_watch_count++] = mutex;
    return result;
}

extern "C" inline __attribute__((used)) int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex)
{
    size_t at = lock_watch_count;
    while (at > 0 && lock_watch_held[at - 1] != mutex)
        at--;
    if (at == 0) {
        fputs("a lock is given back that this thread has not taken\n", stderr);
        abort();
    }
    if (lock_watch_look)
        lock_watch_look(mutex, false);
    for (; at < lock_watch_count; at++)
        lock_watch_held[at - 1] = lock_watch_held[at];
    lock_watch_count--;
    return __real_pthread_mutex_unlock(mutex);
}

#endif
