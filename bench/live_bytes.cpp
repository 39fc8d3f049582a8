// See live_bytes.h. The C library's own entry points do the work.
#include "live_bytes.h"

#include <atomic>
#include <errno.h>
#include <malloc.h>
#include <stdint.h>
#include <unistd.h>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *memory);
}

namespace
{

struct {
    std::atomic<size_t> live;
    std::atomic<size_t> peak;
} count;

void *taken(void *memory)
{
    if (!memory)
        return memory;
    const size_t bytes = malloc_usable_size(memory);
    const size_t now = count.live.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    size_t before = count.peak.load(std::memory_order_relaxed);
    while (before < now && !count.peak.compare_exchange_weak(before, now, std::memory_order_relaxed)) {
    }
    return memory;
}

void given(void *memory)
{
    count.live.fetch_sub(malloc_usable_size(memory), std::memory_order_relaxed);
}

} // namespace

size_t live_bytes(void)
{
    return count.live.load(std::memory_order_relaxed);
}

size_t live_bytes_peak(void)
{
    return count.peak.load(std::memory_order_relaxed);
}

void live_bytes_restart(void)
{
    count.peak.store(live_bytes(), std::memory_order_relaxed);
}

extern "C" {

void *malloc(size_t size)
{
    return taken(__libc_malloc(size));
}

void *calloc(size_t number, size_t size)
{
    return taken(__libc_calloc(number, size));
}

void *realloc(void *memory, size_t size)
{
    const size_t before = memory ? malloc_usable_size(memory) : 0;
    void *result = __libc_realloc(memory, size);
    if (result || size == 0)
        count.live.fetch_sub(before, std::memory_order_relaxed);
    return taken(result);
}

void free(void *memory)
{
    if (!memory)
        return;
    given(memory);
    __libc_free(memory);
}

void *memalign(size_t alignment, size_t size)
{
    return taken(__libc_memalign(alignment, size));
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return taken(__libc_memalign(alignment, size));
}

int posix_memalign(void **result, size_t alignment, size_t size)
{
    if (alignment % sizeof(void *) != 0 || (alignment & (alignment - 1)) != 0 || alignment == 0)
        return EINVAL;
    void *memory = __libc_memalign(alignment, size);
    if (!memory)
        return ENOMEM;
    *result = taken(memory);
    return 0;
}

void *valloc(size_t size)
{
    return taken(__libc_memalign(static_cast<size_t>(sysconf(_SC_PAGESIZE)), size));
}

} // extern "C"
