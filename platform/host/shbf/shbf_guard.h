// The two guards that a call from any thread needs.
#ifndef SHBF_GUARD_H
#define SHBF_GUARD_H

#include <pthread.h>

// A thread that is cancelled (the daemon ends its tasks so) must not die in a send and take a lock with it:
// the cancellation waits until the call is over.
struct shbf_no_cancel {
    shbf_no_cancel() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before); }
    ~shbf_no_cancel() { pthread_setcancelstate(before, nullptr); }
    shbf_no_cancel(const shbf_no_cancel &) = delete;
    shbf_no_cancel &operator=(const shbf_no_cancel &) = delete;
    int before;
};

struct shbf_locked {
    explicit shbf_locked(pthread_mutex_t *m) : mutex(m) { pthread_mutex_lock(mutex); }
    ~shbf_locked() { pthread_mutex_unlock(mutex); }
    shbf_locked(const shbf_locked &) = delete;
    shbf_locked &operator=(const shbf_locked &) = delete;
    pthread_mutex_t *mutex;
};

#endif
