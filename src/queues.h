// The daemon's two element queues, each one process-wide and wrapped by functions of its own prefix:
//
//   motion    raw frames from the event loop to the detection task; made by queues2_init at start-up
//   network   messages to the alarm client; made by whoever runs that client, not by start-up
//
// Every operation on a queue that has not been made, or is gone, fails with "invalid data param".
//
// What the operations do, and that they may be called from any thread, is told in queue_list.h. The init
// and exit of one queue may not run at the same time as each other; exit only when no other thread uses the
// queue or waits in it.
#ifndef QUEUES_H
#define QUEUES_H

#include "queue_list.h"

// Two frames are in the detection task's hands (this one and the one before) while the third is being
// filled. 184320 bytes are a 320 x 192 picture of three bytes a pixel, twice what an NV12 frame needs.
enum { MOTION_QUEUE_ELEMENTS = 3, MOTION_QUEUE_ELEM_BYTES = 184320 };

// Makes the motion queue, or finds it made: 0, or -1 with a line on the error stream. Before threads start.
int queues2_init(void);
// Frees the motion queue: 0. After its users have stopped.
int queues2_exit(void);

// init: 0, also when the queue is there already ("already inited", the queue stays as it is); -1 when it
// cannot be made. exit: 0, also when there is none ("already exit"). The network queue's sizes are its
// creator's choice: bytes of payload, then elements.
int motion_queue_list_init(int elem_max_size, int elem_num);
int motion_queue_list_exit(void);
int motion_queue_list_enqueue(const void *src, uint32_t size, uint32_t width, uint32_t height, uint32_t type,
                              uint64_t timestamp);
int motion_queue_list_dequeue(void *dst, uint32_t *out_size, uint32_t *out_width, uint32_t *out_height,
                              uint32_t *out_type, uint64_t *out_timestamp);
int motion_queue_list_free_elem_take(queue_list_elem **out_elem);
int motion_queue_list_free_elem_give(queue_list_elem *elem);
int motion_queue_list_data_elem_take(queue_list_elem **out_elem);
int motion_queue_list_data_elem_give(queue_list_elem *elem);

int network_queue_list_init(int elem_max_size, int elem_num);
int network_queue_list_exit(void);
int network_queue_list_enqueue(const void *src, uint32_t size, uint32_t width, uint32_t height, uint32_t type,
                               uint64_t timestamp);
int network_queue_list_dequeue(void *dst, uint32_t *out_size, uint32_t *out_width, uint32_t *out_height,
                               uint32_t *out_type, uint64_t *out_timestamp);
int network_queue_list_free_elem_take(queue_list_elem **out_elem);
int network_queue_list_free_elem_give(queue_list_elem *elem);
int network_queue_list_data_elem_take(queue_list_elem **out_elem);
int network_queue_list_data_elem_give(queue_list_elem *elem);

#endif
