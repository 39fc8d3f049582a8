// Counts the live bytes of every allocator of the process: this program's malloc family is replaced, and
// operator new and the libraries' own pools stand on it. What counts is what the allocator really gave (its
// usable size), the rounding included.
#ifndef NARO_BENCH_LIVE_BYTES_H
#define NARO_BENCH_LIVE_BYTES_H

#include <stddef.h>

// Live bytes now.
size_t live_bytes(void);
// The greatest number of live bytes since the last live_bytes_restart.
size_t live_bytes_peak(void);
void live_bytes_restart(void);

#endif
