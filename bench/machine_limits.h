// What the machine can do at most: reading memory, and multiplying and adding. One thread.
#ifndef NARO_BENCH_LIMITS_H
#define NARO_BENCH_LIMITS_H

#include <stddef.h>
#include <stdint.h>

// Reads every byte, as fast as the CPU's widest plain loads do; the result depends on all of them.
uint64_t read_all(const void *memory, size_t bytes);

// Multiply-adds of 32-bit floats in registers, nothing loaded or stored.
struct multiply_add_limit {
    const char *name;
    bool (*runs_here)(void);
    void (*run)(size_t times); // each time MULTIPLY_ADDS of them
};
enum { MULTIPLY_ADDS = 1 << 20 };
extern const multiply_add_limit multiply_add_limits[];
extern const size_t multiply_add_limit_count;

#endif
