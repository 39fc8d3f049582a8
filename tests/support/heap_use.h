// Finds memory that is not given back, also in builds without the address sanitizer.
//
//   EXPECT_EQ(leaked_bytes([] { parse("{}"); }), 0u);
//
// The piece runs once to warm up (buffers that are made once and kept are fine) and then a thousand times; the
// result is by how much the heap has grown for each run. Growth of less than the smallest piece of memory for
// each run is the allocator's own caching, and counts as none. Only while no other thread allocates. Under the
// sanitizers, whose heap tells nothing of its use, the result is always 0: there the address sanitizer itself
// looks for leaks.
#ifndef NARO_TESTS_HEAP_USE_H
#define NARO_TESTS_HEAP_USE_H

#include <functional>
#include <malloc.h>
#include <stddef.h>

inline size_t leaked_bytes(const std::function<void()> &piece)
{
    const auto in_use = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    piece();
    const size_t before = in_use();
    const size_t runs = 1000, smallest = 16;
    for (size_t n = 0; n < runs; n++)
        piece();
    const size_t after = in_use();
    return after > before && after - before >= runs * smallest ? (after - before) / runs : 0;
}

#endif
