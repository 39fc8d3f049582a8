// The element queue: in, out and back, beside copying the same bytes.
#include "benches.h"

#include <stdlib.h>
#include <string.h>
#include <string>
#include <unistd.h>

#include "harness.h"
#include "log_capture.h"
#include "queue_list.h"

void bench_queue(void)
{
    for (const size_t bytes : {size_t{64}, size_t{92160}, size_t{184320}}) {
        const std::vector<uint8_t> source(bytes, 7);
        std::vector<uint8_t> target(bytes);
        queue_list *queue;
        {
            OutputCapture quiet(STDERR_FILENO); // it tells its sizes
            queue = queue_list_init(static_cast<int>(bytes), 3);
        }
        if (!queue)
            abort();
        const std::string title = "Queue, element of " + std::to_string(bytes) + " bytes";
        compare(title.c_str(),
                {{"enqueue, take, give back",
                  [&](size_t times) {
                      for (; times > 0; times--) {
                          queue_list_elem *element = nullptr;
                          if (queue_list_enqueue(queue, source.data(), static_cast<uint32_t>(bytes), 320, 192,
                                                 QUEUE_ELEMENT_FRAME, times) != 0 ||
                              queue_list_data_elem_take(queue, &element) != 0)
                              abort();
                          keep(meta_list_data_get(element)->timestamp);
                          queue_list_data_elem_give(queue, element);
                      }
                  }},
                 {"limit: copying the bytes", [&](size_t times) {
                      for (; times > 0; times--) {
                          memcpy(target.data(), source.data(), bytes);
                          keep(target.data());
                      }
                  }}});
        queue_list_exit(queue);
    }
}
