// The two instances of the element queue and their wrappers.
#include "queues.h"

#include <atomic>
#include <stdio.h>

namespace
{

// Any thread reads `queue` while init and exit write it, hence atomic; that nobody still uses a queue when
// it goes is its owner's business.
struct instance {
    std::atomic<queue_list *> queue; // null while there is none
    std::atomic<bool> inited;
};
instance motion;
instance network;

int instance_init(instance &self, const char *function, int elem_max_size, int elem_num)
{
    if (self.inited) {
        fprintf(stderr, "[%s]queue_list already inited\r\n", function);
        return 0;
    }
    queue_list *queue = queue_list_init(elem_max_size, elem_num);
    if (!queue) {
        fprintf(stderr, "[%s]queue list init fail\r\n", function);
        return -1;
    }
    self.queue = queue;
    self.inited = true;
    return 0;
}

int instance_exit(instance &self, const char *function)
{
    if (!self.inited) {
        fprintf(stderr, "[%s]queue_list already exit\r\n", function);
        return 0;
    }
    queue_list_exit(self.queue.exchange(nullptr));
    self.inited = false;
    return 0;
}

} // namespace

int queues2_init(void)
{
    if (motion_queue_list_init(MOTION_QUEUE_ELEM_BYTES, MOTION_QUEUE_ELEMENTS) != 0) {
        fprintf(stderr, "[%s] __motion_queue_list_init__ fail\r\n", __func__);
        return -1;
    }
    return 0;
}

int queues2_exit(void)
{
    return motion_queue_list_exit();
}

int motion_queue_list_init(int elem_max_size, int elem_num)
{
    return instance_init(motion, __func__, elem_max_size, elem_num);
}

int motion_queue_list_exit(void)
{
    return instance_exit(motion, __func__);
}

int motion_queue_list_enqueue(const void *src, uint32_t size, uint32_t width, uint32_t height, uint32_t type,
                              uint64_t timestamp)
{
    return queue_list_enqueue(motion.queue, src, size, width, height, type, timestamp);
}

int motion_queue_list_dequeue(void *dst, uint32_t *out_size, uint32_t *out_width, uint32_t *out_height,
                              uint32_t *out_type, uint64_t *out_timestamp)
{
    return queue_list_dequeue(motion.queue, dst, out_size, out_width, out_height, out_type, out_timestamp);
}

int motion_queue_list_free_elem_take(queue_list_elem **out_elem)
{
    return queue_list_free_elem_take(motion.queue, out_elem);
}

int motion_queue_list_free_elem_give(queue_list_elem *elem)
{
    return queue_list_free_elem_give(motion.queue, elem);
}

int motion_queue_list_data_elem_take(queue_list_elem **out_elem)
{
    return queue_list_data_elem_take(motion.queue, out_elem);
}

int motion_queue_list_data_elem_give(queue_list_elem *elem)
{
    return queue_list_data_elem_give(motion.queue, elem);
}

int network_queue_list_init(int elem_max_size, int elem_num)
{
    return instance_init(network, __func__, elem_max_size, elem_num);
}

int network_queue_list_exit(void)
{
    return instance_exit(network, __func__);
}

int network_queue_list_enqueue(const void *src, uint32_t size, uint32_t width, uint32_t height, uint32_t type,
                               uint64_t timestamp)
{
    return queue_list_enqueue(network.queue, src, size, width, height, type, timestamp);
}

int network_queue_list_dequeue(void *dst, uint32_t *out_size, uint32_t *out_width, uint32_t *out_height,
                               uint32_t *out_type, uint64_t *out_timestamp)
{
    return queue_list_dequeue(network.queue, dst, out_size, out_width, out_height, out_type, out_timestamp);
}

int network_queue_list_free_elem_take(queue_list_elem **out_elem)
{
    return queue_list_free_elem_take(network.queue, out_elem);
}

int network_queue_list_free_elem_give(queue_list_elem *elem)
{
    return queue_list_free_elem_give(network.queue, elem);
}

int network_queue_list_data_elem_take(queue_list_elem **out_elem)
{
    return queue_list_data_elem_take(network.queue, out_elem);
}

int network_queue_list_data_elem_give(queue_list_elem *elem)
{
    return queue_list_data_elem_give(network.queue, elem);
}
