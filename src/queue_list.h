// Fixed-capacity element queues that carry frames and commands between threads without allocating.
#ifndef QUEUE_LIST_H
#define QUEUE_LIST_H

#include <stdint.h>

#include "queue_element.h"

struct queue_list;
struct queue_list_elem;

queue_list *queue_list_init(int elem_max_size, int elem_num);
int queue_list_exit(queue_list *q);
int queue_list_free_elem_take(queue_list *q, queue_list_elem **out_elem);
int queue_list_free_elem_give(queue_list *q, queue_list_elem *elem);
int queue_list_data_elem_take(queue_list *q, queue_list_elem **out_elem);
int queue_list_data_elem_give(queue_list *q, queue_list_elem *elem);
int queue_list_enqueue(queue_list *q, const void *src, uint32_t size, uint32_t width, uint32_t height, uint32_t type,
                       uint64_t timestamp);
int queue_list_dequeue(queue_list *q, void *dst, uint32_t *out_size, uint32_t *out_width, uint32_t *out_height,
                       uint32_t *out_type, uint64_t *out_timestamp);
meta_list_data *meta_list_data_get(queue_list_elem *elem);

#endif
