// Element queues: two circular lists of descriptors, a semaphore that counts the published ones, one lock.
//
// The lock guards list links and nothing else: payloads are filled and read by whoever holds the element,
// and a waiting consumer holds no lock. The semaphore's count is the length of the busy list, except for
// the moment between a consumer's wait and its lock; a reclaim that falls into that moment cannot take its
// count back and says so.
//
// A default mutex refuses to be locked only when its memory is damaged; the lists are not touched then.
//
// Lines go to the error stream, not to the log: they tell of our own bugs or of a consumer that lags.
#include "queue_list.h"

#include <errno.h>
#include <inttypes.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdio.h>
#include <string.h>

#include "naro_util.h"

namespace
{

constexpr size_t alignment = 64;
constexpr uint32_t header_bytes = sizeof(meta_list_data);

} // namespace

// Reserved words of the 64 are zero: descriptors are laid out at this spacing whatever the word size.
struct alignas(64) queue_list_elem {
    uint32_t capacity; // header and payload, bytes
    uint8_t *data;     // the slot
    queue_list_elem *prev, *next;
};
static_assert(sizeof(queue_list_elem) == 64, "descriptor spacing");

struct queue_list {
    uint32_t buf_size; // bytes of all slots
    int32_t elem_num;
    int32_t elem_max_size; // largest payload, bytes
    sem_t busy_sem;        // counts published elements
    pthread_mutex_t lock;  // guards both lists
    // Heads; a head's prev is the tail. Null when empty.
    queue_list_elem *busy_list; // published, oldest first
    queue_list_elem *free_list;
    uint8_t *data_area; // first slot, inside block
    void *block;        // all descriptors, then all slots
};

namespace
{

void append(queue_list_elem **list, queue_list_elem *elem)
{
    queue_list_elem *head = *list;
    if (!head) {
        elem->prev = elem->next = elem;
        *list = elem;
        return;
    }
    elem->prev = head->prev;
    elem->next = head;
    head->prev->next = elem;
    head->prev = elem;
}

void detach(queue_list_elem **list, queue_list_elem *elem)
{
    if (elem->next == elem) {
        *list = nullptr;
    } else {
        elem->prev->next = elem->next;
        elem->next->prev = elem->prev;
        if (*list == elem)
            *list = elem->next;
    }
    elem->prev = elem->next = nullptr;
}

int invalid_param(const char *function)
{
    fprintf(stderr, "[%s] invalid data param\r\n", function);
    return -1;
}

} // namespace

queue_list *queue_list_init(int elem_max_size, int elem_num)
{
    if (elem_num < 1 || elem_max_size < 1) {
        fprintf(stderr, "param : elem_num = %d, elem_max_size = %d\r\n", elem_num, elem_max_size);
        return nullptr;
    }
    const uint64_t stride = uint64_t{header_bytes} + static_cast<uint32_t>(elem_max_size);
    const uint64_t descriptor_bytes = static_cast<uint64_t>(elem_num) * sizeof(queue_list_elem);
    const uint64_t total_bytes = descriptor_bytes + static_cast<uint64_t>(elem_num) * stride;
    // 2^31 elements of 2^31 bytes fit into 63 bits, so the sum above is right; an allocator's size may have
    // 32.
    void *control = total_bytes > UINT32_MAX ? nullptr : naro_malloc(sizeof(queue_list), alignment);
    if (!control) {
        fprintf(stderr, "queue malloc fail\r\n");
        return nullptr;
    }
    memset(control, 0, sizeof(queue_list));
    queue_list *q = static_cast<queue_list *>(control);
    q->elem_num = elem_num;
    q->elem_max_size = elem_max_size;
    q->buf_size = static_cast<uint32_t>(total_bytes - descriptor_bytes);
    const uint32_t total = static_cast<uint32_t>(total_bytes);
    fprintf(stderr, "meta_list_data size = %d, buf size = %d\r\n", static_cast<int>(header_bytes),
            static_cast<int>(q->buf_size));
    fprintf(stderr, "queue_list_elem size = %d, queue multi size = %d\r\n",
            static_cast<int>(sizeof(queue_list_elem)), static_cast<int>(total));
    q->block = naro_malloc(total, alignment);
    if (!q->block) {
        fprintf(stderr, "queue malloc fail\r\n");
        return nullptr; // the control block stays allocated, on purpose (see the header)
    }
    memset(q->block, 0, total);
    queue_list_elem *elems = static_cast<queue_list_elem *>(q->block);
    q->data_area = static_cast<uint8_t *>(q->block) + descriptor_bytes;
    for (int32_t i = 0; i < elem_num; i++) {
        elems[i].capacity = static_cast<uint32_t>(stride);
        elems[i].data = q->data_area + static_cast<size_t>(i) * static_cast<size_t>(stride);
        append(&q->free_list, &elems[i]);
    }
    sem_init(&q->busy_sem, 0, 0);
    pthread_mutex_init(&q->lock, nullptr);
    return q;
}

int queue_list_exit(queue_list *q)
{
    if (!q) {
        fprintf(stderr, "queue list is NULL!\r\n");
        return 0;
    }
    pthread_mutex_destroy(&q->lock);
    sem_destroy(&q->busy_sem);
    naro_free(q->block);
    naro_free(q);
    return 0;
}

int queue_list_free_elem_take(queue_list *q, queue_list_elem **out_elem)
{
    if (!q || !out_elem)
        return invalid_param(__func__);
    if (pthread_mutex_lock(&q->lock) != 0)
        return -1;
    if (q->free_list) {
        *out_elem = q->free_list;
        detach(&q->free_list, q->free_list);
    } else if (q->busy_list) {
        // The newest of those that wait is sacrificed; the older ones keep their order.
        *out_elem = q->busy_list->prev;
        detach(&q->busy_list, q->busy_list->prev);
        if (sem_trywait(&q->busy_sem) != 0)
            fprintf(stderr, "####resource is already consumed\r\n");
    } else {
        pthread_mutex_unlock(&q->lock);
        fprintf(stderr, "[%s] no busy elem, quit\r\n", __func__);
        return -1;
    }
    pthread_mutex_unlock(&q->lock);
    return 0;
}

int queue_list_free_elem_give(queue_list *q, queue_list_elem *elem)
{
    if (!q || !elem)
        return invalid_param(__func__);
    if (pthread_mutex_lock(&q->lock) != 0)
        return -1;
    append(&q->busy_list, elem);
    sem_post(&q->busy_sem);
    pthread_mutex_unlock(&q->lock);
    return 0;
}

int queue_list_data_elem_take(queue_list *q, queue_list_elem **out_elem)
{
    if (!q || !out_elem)
        return invalid_param(__func__);
    // A signal does not end the wait: an element taken without its count would leave the next consumer a
    // false one.
    while (sem_wait(&q->busy_sem) != 0 && errno == EINTR)
        ;
    if (pthread_mutex_lock(&q->lock) != 0) {
        sem_post(&q->busy_sem); // the element stays published, and so does its count
        return -1;
    }
    if (!q->busy_list) {
        pthread_mutex_unlock(&q->lock);
        fprintf(stderr, "busy list is empty, quit\r\n");
        return -1;
    }
    *out_elem = q->busy_list;
    detach(&q->busy_list, q->busy_list);
    pthread_mutex_unlock(&q->lock);
    return 0;
}

int queue_list_data_elem_give(queue_list *q, queue_list_elem *elem)
{
    if (!q || !elem)
        return invalid_param(__func__);
    if (pthread_mutex_lock(&q->lock) != 0)
        return -1;
    append(&q->free_list, elem);
    pthread_mutex_unlock(&q->lock);
    return 0;
}

int queue_list_enqueue(queue_list *q, const void *src, uint32_t size, uint32_t width, uint32_t height,
                       uint32_t type, uint64_t timestamp)
{
    if (!q)
        return invalid_param(__func__);
    queue_list_elem *elem = nullptr;
    if (queue_list_free_elem_take(q, &elem) != 0) {
        fprintf(stderr, "[%s] queue_list_free_elem_take fail\r\n", __func__);
        return -1;
    }
    // By copy, not through a pointer: a slot of an odd elem_max_size is not aligned for a 64-bit word.
    meta_list_data head = {};
    head.type = type;
    head.size = size;
    head.width = width;
    head.height = height;
    head.timestamp = timestamp;
    memcpy(elem->data, &head, sizeof head);
    uint8_t *payload = elem->data + header_bytes;
    if (reinterpret_cast<uintptr_t>(payload) % alignment != 0)
        fprintf(stderr, "@addr not aligned\r\n");
    if (size > 0)
        naro_copy(payload, src, size);
    if (queue_list_free_elem_give(q, elem) != 0) {
        fprintf(stderr, "[%s] queue_multi_free_elem_give fail\r\n", __func__);
        return -1;
    }
    return 0;
}

int queue_list_dequeue(queue_list *q, void *dst, uint32_t *out_size, uint32_t *out_width,
                       uint32_t *out_height, uint32_t *out_type, uint64_t *out_timestamp)
{
    if (!q || !dst || !out_size || !out_width || !out_height || !out_type || !out_timestamp)
        return invalid_param(__func__);
    queue_list_elem *elem = nullptr;
    if (queue_list_data_elem_take(q, &elem) != 0) {
        fprintf(stderr, "[%s] queue_multi_data_elem_take fail\r\n", __func__);
        return -1;
    }
    meta_list_data head;
    memcpy(&head, elem->data, sizeof head);
    *out_size = head.size;
    *out_width = head.width;
    *out_height = head.height;
    *out_type = head.type;
    *out_timestamp = head.timestamp;
    if (head.size > 0)
        naro_copy(dst, elem->data + header_bytes, head.size);
    if (queue_list_data_elem_give(q, elem) != 0) {
        fprintf(stderr, "[%s] queue_list_daa_elem_give fail\r\n", __func__);
        return -1;
    }
    return 0;
}

meta_list_data *meta_list_data_get(queue_list_elem *elem)
{
    return reinterpret_cast<meta_list_data *>(elem->data);
}
