// Measures things side by side: the rivals of one comparison take turns in short batches, so that whatever
// else the machine does meets all of them alike, and what is printed beside each time is a ratio within the
// same run.
#ifndef NARO_BENCH_HARNESS_H
#define NARO_BENCH_HARNESS_H

#include <functional>
#include <stddef.h>
#include <vector>

struct rival {
    const char *name;
    std::function<void(size_t times)> run; // does the thing so many times
};

// Processor time of the calling thread, or the wall clock for what waits for another thread.
enum class clocked { processor, wall };

// Compares and prints. The first rival is ours; beside each other one stands our time as a share of its time,
// the median of all rounds (by the wall clock: of the fastest rounds), with the middle half of the rounds in
// brackets. Returns the seconds of each.
std::vector<double> compare(const char *title, const std::vector<rival> &rivals,
                            clocked by = clocked::processor);

// Fewer and shorter rounds: to see that everything runs, not for figures to keep.
void harness_set_quick(void);
bool harness_quick(void);

// Keeps the compiler from dropping the work that made `value`, or from carrying memory over in registers.
template <typename T> inline void keep(const T &value)
{
    asm volatile("" : : "r,m"(value) : "memory");
}

#endif
