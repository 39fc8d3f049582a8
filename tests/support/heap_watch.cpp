// The watched allocator: see heap_watch.h.
#include "heap_watch.h"

#include <errno.h>
#include <malloc.h>
#include <new>

namespace
{

using namespace heap_watch;

bool refuse(size_t size)
{
    return calls++ == failing || size >= failing_from;
}
void *add(void *memory)
{
    if (memory) {
        live_blocks++;
        const int64_t now = live_bytes += static_cast<int64_t>(malloc_usable_size(memory));
        int64_t peak = peak_bytes;
        while (now > peak && !peak_bytes.compare_exchange_weak(peak, now)) {
        }
    }
    return memory;
}
void subtract(void *memory)
{
    if (memory) {
        live_blocks--;
        live_bytes -= static_cast<int64_t>(malloc_usable_size(memory));
    }
}

} // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void __real_free(void *memory);
int __real_posix_memalign(void **out, size_t alignment, size_t size);

void *__wrap_malloc(size_t size)
{
    return refuse(size) ? nullptr : add(__real_malloc(size));
}
void *__wrap_calloc(size_t count, size_t size)
{
    return refuse(count * size) ? nullptr : add(__real_calloc(count, size));
}
void __wrap_free(void *memory)
{
    subtract(memory);
    __real_free(memory);
}
int __wrap_posix_memalign(void **out, size_t alignment, size_t size)
{
    if (refuse(size))
        return ENOMEM;
    const int result = __real_posix_memalign(out, alignment, size);
    if (result == 0)
        add(*out);
    return result;
}
}

// Here malloc and free are the watched ones.
void *operator new(size_t size, const std::nothrow_t &) noexcept
{
    return malloc(size ? size : 1);
}
void *operator new[](size_t size, const std::nothrow_t &) noexcept
{
    return malloc(size ? size : 1);
}
void *operator new(size_t size)
{
    if (void *memory = malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
void *operator new[](size_t size)
{
    if (void *memory = malloc(size ? size : 1))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept
{
    free(memory);
}
void operator delete[](void *memory) noexcept
{
    free(memory);
}
void operator delete(void *memory, size_t) noexcept
{
    free(memory);
}
void operator delete[](void *memory, size_t) noexcept
{
    free(memory);
}
