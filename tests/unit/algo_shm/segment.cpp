#include "segment.h"

#include <errno.h>
#include <mutex>
#include <pthread.h>
#include <semaphore.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/prctl.h>

#include "lock_watch.h"

Segment segment;

namespace
{

std::mutex lock;
std::vector<std::string> calls;

void called(const std::string &call)
{
    const std::string line = call + " in " + std::to_string(locks_held());
    std::lock_guard<std::mutex> guard(lock);
    calls.push_back(line);
}

// Of the texts, and of nothing else that allocates.
const size_t node_bytes = 2 * sizeof(void *) + MOTOR_MAILBOX_TEXT_BYTES;

} // namespace

std::vector<std::string> segment_calls(void)
{
    std::lock_guard<std::mutex> guard(lock);
    return std::move(calls);
}

extern "C" {

int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
int __real_pthread_cancel(pthread_t);
int __real_pthread_join(pthread_t, void **);
int __real_sem_init(sem_t *, int, unsigned);
int __real_sem_destroy(sem_t *);
int __real_sem_wait(sem_t *);
int __real_sem_post(sem_t *);
int __real_fflush(FILE *);
int __real_prctl(int, ...);
void *__real_calloc(size_t, size_t);

int __wrap_shmget(key_t key, size_t size, int flags)
{
    called("get " + std::to_string(key) + " " + std::to_string(size) + " " + std::to_string(flags));
    errno = segment.get_error;
    return segment.get_error ? -1 : segment.number;
}

void *__wrap_shmat(int number, const void *wanted, int flags)
{
    called(number == segment.number && !wanted && flags == 0 ? "map" : "map, but wrongly");
    __atomic_store_n(&segment.mapped, true, __ATOMIC_RELEASE);
    if (segment.map_to_null)
        return nullptr;
    errno = segment.map_error;
    return segment.map_error ? reinterpret_cast<void *>(-1) : segment.box;
}

int __wrap_shmdt(const void *address)
{
    called(address == segment.box ? "unmap" : "unmap something else");
    errno = segment.unmap_error;
    return segment.unmap_error ? -1 : 0;
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                          void *argument)
{
    if (segment.create_error)
        return segment.create_error;
    return __real_pthread_create(thread, attributes, routine, argument);
}

int __wrap_pthread_cancel(pthread_t thread)
{
    called("cancel");
    __real_pthread_cancel(thread);
    if (segment.on_cancel)
        segment.on_cancel();
    return segment.cancel_result;
}

int __wrap_pthread_join(pthread_t thread, void **result)
{
    const int done = __real_pthread_join(thread, result);
    called("join");
    return segment.join_result ? segment.join_result : done;
}

int __wrap_sem_init(sem_t *semaphore, int shared, unsigned value)
{
    called("init " + std::to_string(shared) + " " + std::to_string(value));
    return __real_sem_init(semaphore, shared, value);
}

int __wrap_sem_destroy(sem_t *semaphore)
{
    called("destroy");
    return __real_sem_destroy(semaphore);
}

int __wrap_sem_wait(sem_t *semaphore)
{
    if (segment.on_wait)
        segment.on_wait();
    return __real_sem_wait(semaphore);
}

int __wrap_sem_post(sem_t *semaphore)
{
    called("post");
    return __real_sem_post(semaphore);
}

int __wrap_fflush(FILE *stream)
{
    if (segment.on_told && stream == stdout)
        segment.on_told();
    return __real_fflush(stream);
}

int __wrap_prctl(int option, ...)
{
    va_list list;
    va_start(list, option);
    const char *name = va_arg(list, const char *);
    va_end(list);
    if (option != PR_SET_NAME)
        return __real_prctl(option, name);
    called(std::string("name ") + name);
    if (segment.on_name)
        segment.on_name();
    return segment.prctl_result;
}

void *__wrap_calloc(size_t count, size_t size)
{
    if (segment.no_memory && count * size == node_bytes) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_calloc(count, size);
}
}
