// Fixed-capacity element queues that carry frames and commands between threads without allocating.
//
// A queue owns elem_num elements. Each is a descriptor (64 bytes apart) and a slot: the 64-byte
// meta_list_data and, right behind it, elem_max_size bytes of payload. An element is in one of three
// places: on the free list, on the busy list (published, oldest first), or in the hands of exactly one
// caller:
//
//   producer   free_elem_take -> fill the slot -> free_elem_give       or copy in with queue_list_enqueue
//   consumer   data_elem_take -> read the slot -> data_elem_give       or copy out with queue_list_dequeue
//
// When no element is free, the producer is handed the NEWEST published one and its contents are lost: what
// waited longest stays and keeps its order. This is deliberate (a consumer that differences successive
// frames wants the older one of a pair to stay) and the opposite of the usual drop-oldest.
//
// Threads: everything but init and exit may be called from any thread, by any number of producers and
// consumers. init before the queue is handed to another thread; exit when no other thread uses it or waits
// in it any more. No function may be called with an element that the caller does not hold.
//
// Results: 0, or -1 with a line on the error stream. A null queue, element or output pointer gives
// "[<function>] invalid data param\r\n", -1, and nothing is changed.
#ifndef QUEUE_LIST_H
#define QUEUE_LIST_H

#include <stdint.h>

#include "queue_element.h"

struct queue_list;
struct queue_list_elem;

// A queue of `elem_num` (>= 1) elements of at most `elem_max_size` (>= 1) payload bytes; the caller's until
// queue_list_exit. Null, with a line on the error stream, for numbers out of range or when there is no
// memory (sizes that 32 bits cannot hold count as that). When only the elements' block cannot be had, the
// control block stays allocated: kept as it is, since a daemon that cannot get its queue ends. Slots are
// 64-byte aligned when elem_max_size is a multiple of 64. Any other size works through enqueue and dequeue;
// elements taken in place then have a header that must not be read through the struct where alignment
// matters.
queue_list *queue_list_init(int elem_max_size, int elem_num);

// Frees the queue with everything in it. Always 0; null writes "queue list is NULL!\r\n".
int queue_list_exit(queue_list *q);

// Producer: an element to fill, now the caller's. Never blocks. Takes a free one, else reclaims the newest
// published one; -1 ("no busy elem, quit") when all are held by callers. A consumer that is already past
// its wait when the newest is reclaimed ("####resource is already consumed\r\n") will find one element
// fewer than it was promised.
int queue_list_free_elem_take(queue_list *q, queue_list_elem **out_elem);

// Producer: publishes a filled element as the newest. The header is the caller's to fill.
int queue_list_free_elem_give(queue_list *q, queue_list_elem *elem);

// Consumer: waits, without limit and without the lock, for a published element and takes the oldest. The
// wait is a cancellation point. -1 with "busy list is empty, quit\r\n" when a producer has reclaimed what
// it was woken for: call again.
int queue_list_data_elem_take(queue_list *q, queue_list_elem **out_elem);

// Consumer: gives a taken element back to the free ones.
int queue_list_data_elem_give(queue_list *q, queue_list_elem *elem);

// Producer: copies `size` bytes of `src` in and publishes them. `size` is NOT checked against
// elem_max_size, the caller must never pass more; `src` may be null only when `size` is 0. `type`:
// QUEUE_ELEMENT_FRAME or _QUIT; width and height in pixels, 0 for messages; `timestamp` in whatever unit
// the producer has.
int queue_list_enqueue(queue_list *q, const void *src, uint32_t size, uint32_t width, uint32_t height,
                       uint32_t type, uint64_t timestamp);

// Consumer: waits as data_elem_take does, copies the oldest published element out and frees it. `dst` has
// room for elem_max_size bytes; no pointer may be null. Elements of every type are returned alike: what a
// QUIT means is the consumer's business. On -1 the outputs are untouched, except where the element cannot
// be given back.
int queue_list_dequeue(queue_list *q, void *dst, uint32_t *out_size, uint32_t *out_width,
                       uint32_t *out_height, uint32_t *out_type, uint64_t *out_timestamp);

// The slot of an element that the caller holds (not null): its header. The payload is at that address + 64.
meta_list_data *meta_list_data_get(queue_list_elem *elem);

#endif
