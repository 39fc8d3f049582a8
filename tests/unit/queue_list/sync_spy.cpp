#include "sync_spy.h"

#include <atomic>
#include <errno.h>
#include <mutex>
#include <pthread.h>
#include <stdint.h>

extern "C" {
int __real_pthread_mutex_init(pthread_mutex_t *, const pthread_mutexattr_t *);
int __real_pthread_mutex_destroy(pthread_mutex_t *);
int __real_pthread_mutex_lock(pthread_mutex_t *);
int __real_pthread_mutex_unlock(pthread_mutex_t *);
int __real_sem_init(sem_t *, int, unsigned);
int __real_sem_destroy(sem_t *);
int __real_sem_post(sem_t *);
int __real_sem_wait(sem_t *);
int __real_sem_trywait(sem_t *);
}

namespace
{

struct spy {
    std::atomic<uintptr_t> begin{0}, end{0};
    std::mutex mutex; // protects calls; itself outside of what is watched
    std::vector<std::string> calls;
    std::atomic<sem_t *> semaphore{nullptr};
    std::atomic<int> fail_lock{0};
    std::atomic<bool> hold{false};
    sem_t held, release, waiting;

    spy()
    {
        __real_sem_init(&held, 0, 0);
        __real_sem_init(&release, 0, 0);
        __real_sem_init(&waiting, 0, 0);
    }
};

spy &the()
{
    static spy *instance = new spy; // outlives every thread
    return *instance;
}

bool watched(const void *object)
{
    const uintptr_t at = reinterpret_cast<uintptr_t>(object);
    return at >= the().begin && at < the().end;
}

void note(const std::string &call)
{
    std::lock_guard<std::mutex> guard(the().mutex);
    the().calls.push_back(call);
}

void wait_for(sem_t *semaphore)
{
    while (__real_sem_wait(semaphore) != 0 && errno == EINTR) {
    }
}

} // namespace

void sync_spy_watch(const void *memory, size_t size)
{
    the().begin = reinterpret_cast<uintptr_t>(memory);
    the().end = reinterpret_cast<uintptr_t>(memory) + size;
    sync_spy_calls();
}

void sync_spy_ignore(void)
{
    the().begin = the().end = 0;
}

std::vector<std::string> sync_spy_calls(void)
{
    std::lock_guard<std::mutex> guard(the().mutex);
    std::vector<std::string> result;
    result.swap(the().calls);
    return result;
}

int sync_spy_semaphore(void)
{
    int value = -1;
    sem_getvalue(the().semaphore, &value);
    return value;
}

void sync_spy_fail_lock(int nth)
{
    the().fail_lock = nth;
}

void sync_spy_hold_next_lock(void)
{
    the().hold = true;
}

void sync_spy_wait_held(void)
{
    wait_for(&the().held);
}

void sync_spy_release(void)
{
    __real_sem_post(&the().release);
}

void sync_spy_wait_waiting(void)
{
    wait_for(&the().waiting);
}

extern "C" {

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes)
{
    if (watched(mutex))
        note(attributes ? "mutex_init with attributes" : "mutex_init");
    return __real_pthread_mutex_init(mutex, attributes);
}

int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex)
{
    if (watched(mutex))
        note("mutex_destroy");
    return __real_pthread_mutex_destroy(mutex);
}

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex)
{
    if (watched(mutex)) {
        if (the().fail_lock > 0 && --the().fail_lock == 0)
            return EINVAL;
        if (the().hold.exchange(false)) {
            __real_sem_post(&the().held);
            wait_for(&the().release);
        }
        note("lock");
    }
    return __real_pthread_mutex_lock(mutex);
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex)
{
    if (watched(mutex))
        note("unlock");
    return __real_pthread_mutex_unlock(mutex);
}

int __wrap_sem_init(sem_t *semaphore, int shared, unsigned value)
{
    if (watched(semaphore)) {
        note("sem_init " + std::to_string(shared) + " " + std::to_string(value));
        the().semaphore = semaphore;
    }
    return __real_sem_init(semaphore, shared, value);
}

int __wrap_sem_destroy(sem_t *semaphore)
{
    if (watched(semaphore))
        note("sem_destroy");
    return __real_sem_destroy(semaphore);
}

int __wrap_sem_post(sem_t *semaphore)
{
    if (watched(semaphore))
        note("post");
    return __real_sem_post(semaphore);
}

int __wrap_sem_wait(sem_t *semaphore)
{
    if (watched(semaphore)) {
        note("wait");
        __real_sem_post(&the().waiting);
    }
    return __real_sem_wait(semaphore);
}

int __wrap_sem_trywait(sem_t *semaphore)
{
    if (watched(semaphore))
        note("trywait");
    return __real_sem_trywait(semaphore);
}
}
