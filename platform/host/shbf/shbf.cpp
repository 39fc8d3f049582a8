// Received buffers: memory that is handed to the callee of a data callback and comes back through shbf_free.
// The size of the message is kept in a room before it.
#include "shbf.h"

#include <atomic>
#include <errno.h>
#include <new>

#include "naro_util.h"
#include "shbf_wire.h"

namespace
{

// As large as the alignment that a message gets.
struct alignas(64) buffer_room {
    size_t size;
};

struct {
    int starts;              // event loop only
    std::atomic<size_t> out; // buffers handed out and not yet back; a counter, nothing is published by it
} state;

} // namespace

void *shbf_buffer_create(size_t size)
{
    void *memory = naro_malloc(sizeof(buffer_room) + size, alignof(buffer_room));
    if (!memory) {
        errno = ENOMEM;
        return nullptr;
    }
    state.out.fetch_add(1, std::memory_order_relaxed);
    return new (memory) buffer_room{size} + 1;
}

size_t shbf_buffers_out(void)
{
    return state.out.load(std::memory_order_relaxed);
}

void shbf_free(void *buffer)
{
    if (!buffer)
        return;
    state.out.fetch_sub(1, std::memory_order_relaxed);
    naro_free(static_cast<buffer_room *>(buffer) - 1);
}

size_t shbf_size(const void *buffer)
{
    return (static_cast<const buffer_room *>(buffer) - 1)->size;
}

int shbf_rcv_global_init(void)
{
    state.starts++;
    return 0;
}

int shbf_rcv_global_exit(void)
{
    if (state.starts == 0)
        return -EALREADY;
    if (--state.starts == 0 && shbf_buffers_out() > 0)
        log_warning("[shbf] %zu received buffers were not given back\n", shbf_buffers_out());
    return 0;
}
