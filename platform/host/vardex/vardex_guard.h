// The two guards that a call from any thread needs.
#ifndef VARDEX_GUARD_H
#define VARDEX_GUARD_H

#include <pthread.h>

// A thread that is cancelled must not die with a transaction open or a lock held: the cancellation waits
// until the call is over.
struct vardex_no_cancel {
    vardex_no_cancel() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~vardex_no_cancel() { pthread_setcancelstate(before, nullptr); }
    vardex_no_cancel(const vardex_no_cancel &) = delete;
    vardex_no_cancel &operator=(const vardex_no_cancel &) = delete;
    int before;
};

struct vardex_locked {
    explicit vardex_locked(pthread_mutex_t *m) : mutex(m) { pthread_mutex_lock(mutex); }
    ~vardex_locked() { pthread_mutex_unlock(mutex); }
    vardex_locked(const vardex_locked &) = delete;
    vardex_locked &operator=(const vardex_locked &) = delete;
    pthread_mutex_t *mutex;
};

#endif
