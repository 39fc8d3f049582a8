// The memory calls of naro_util.h in the hands of a test, in the place of the utility library: counts, sizes,
// and allocations that fail. Include in one source of a test that links no PLATFORM util.
//
//   fake_memory().fail_at = 2;                    // the second allocation from now on fails (1 = the next
//   one) EXPECT_EQ(fake_memory().allocated.size(), 1u); EXPECT_TRUE(fake_memory().live.empty());      //
//   everything was given back
//
// What is handed out is filled with 0xA5, so that a module that counts on zeros is caught. Allocations may be
// made by one thread at a time; copies by any.
#ifndef NARO_TESTS_FAKE_MEMORY_H
#define NARO_TESTS_FAKE_MEMORY_H

#include <atomic>
#include <functional>
#include <set>
#include <stdlib.h>
#include <string.h>
#include <vector>

#include "naro_util.h"

struct FakeMemory {
    struct Allocation {
        size_t size;
        size_t alignment;
        void *memory; // null for one that was made to fail
    };
    std::vector<Allocation> allocated; // every call, in order
    std::vector<void *> freed;
    std::set<void *> live;
    std::function<void(const Allocation &)> on_allocated; // called at the end of each call that did not fail
    int fail_at = 0;
    std::atomic<size_t> copies{0};
};

inline FakeMemory &fake_memory()
{
    static FakeMemory *memory =
        new FakeMemory; // kept for the process's life: blocks left over stay reachable
    return *memory;
}

// As at the start of the process; what is still live is freed.
inline void fake_memory_reset()
{
    FakeMemory &fake = fake_memory();
    for (void *memory : fake.live)
        free(memory);
    fake.live.clear();
    fake.allocated.clear();
    fake.freed.clear();
    fake.on_allocated = nullptr;
    fake.fail_at = 0;
    fake.copies = 0;
}

extern "C" {

void *naro_malloc(size_t size, size_t alignment)
{
    FakeMemory &fake = fake_memory();
    void *memory = nullptr;
    if (fake.fail_at == 0 || --fake.fail_at > 0) {
        memory = aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
        memset(memory, 0xA5, size);
        fake.live.insert(memory);
    }
    fake.allocated.push_back({size, alignment, memory});
    if (memory && fake.on_allocated)
        fake.on_allocated(fake.allocated.back());
    return memory;
}

void naro_free(void *memory)
{
    if (memory && fake_memory().live.erase(memory) != 1)
        abort(); // not ours, or twice
    if (memory)
        fake_memory().freed.push_back(memory);
    free(memory);
}

void naro_copy(void *dst, const void *src, size_t length)
{
    fake_memory().copies++;
    memcpy(dst, src, length);
}
}

#endif
