// Shared buffers: what a receiver is handed, and the receiving side's process-wide start and stop.
#ifndef SHBF_H
#define SHBF_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

// Starts and stops the receiving side of the process; 0 or negative. Counted: each start wants its stop.
// Event loop only.
int shbf_rcv_global_init(void);
int shbf_rcv_global_exit(void);

// Gives a received buffer back. Any thread; null is fine.
void shbf_free(void *buffer);
// Bytes that arrived in a received buffer. Any thread.
size_t shbf_size(const void *buffer);

#ifdef __cplusplus
}
#endif
#endif
