// The daemon's two element queues: motion (raw frames to the detection task) and network (to the alarm client).
#ifndef QUEUES_H
#define QUEUES_H

#include "queue_list.h"

enum { MOTION_QUEUE_ELEMENTS = 3, MOTION_QUEUE_ELEM_BYTES = 184320 };

int queues2_init(void);
int queues2_exit(void);

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
