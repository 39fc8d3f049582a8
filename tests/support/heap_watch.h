// Counts what a test binary's own code and static libraries take from the heap, and makes an allocation fail.
//
// Include in one source of the binary, and link with NARO_HEAP_WATCH_LINK (tests/CMakeLists.txt users: LINK
// "-Wl,--wrap=malloc,--wrap=calloc,--wrap=free,--wrap=posix_memalign"). Seen are malloc, calloc, free and
// posix_memalign as called from objects of the binary, and new and delete from everywhere. Any thread;
// `fail_at` is for one.
#ifndef NARO_TESTS_HEAP_WATCH_H
#define NARO_TESTS_HEAP_WATCH_H

#include <atomic>
#include <stdint.h>
#include <stdlib.h>

namespace heap_watch
{

inline std::atomic<int64_t> live_blocks{0};
inline std::atomic<int64_t> live_bytes{0}; // as the allocator rounded them
inline std::atomic<int64_t> peak_bytes{0}; // highest live_bytes since reset_peak
inline std::atomic<int> calls{0};          // allocations since fail_at or the start
inline std::atomic<int> failing{-1};
inline std::atomic<size_t> failing_from{SIZE_MAX};

// The allocation number `n` from now (0 is the next) fails; negative: none does.
inline void fail_at(int n)
{
    calls = 0;
    failing = n;
}
// Allocations of `size` bytes and more fail; SIZE_MAX: none does.
inline void fail_from(size_t size)
{
    failing_from = size;
}
inline void reset_peak()
{
    peak_bytes = live_bytes.load();
}

} // namespace heap_watch

#endif
