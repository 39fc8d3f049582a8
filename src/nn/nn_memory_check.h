// Looks at the machine's free memory before a step that takes much of it.
#ifndef NN_MEMORY_CHECK_H
#define NN_MEMORY_CHECK_H

#include <stdint.h>

// What is left to the rest of the system, bytes.
enum { NN_MEMORY_MARGIN = 3000000 };

// 0 when base_bytes x factor (0 or more) and the margin are available by "/proc/meminfo", or when that file
// cannot be opened (said on standard output); else -1 with an error line there. Any thread.
int nn_memory_check(uint32_t base_bytes, double factor);

#endif
