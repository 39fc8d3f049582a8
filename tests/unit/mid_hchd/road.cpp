#include "road.h"

#include <dirent.h>
#include <errno.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <time.h>

#include <algorithm>

#include "algo_shbf.h"
#include "ir_white_led.h"
#include "ircut.h"
#include "ive_image.h"
#include "mid_hchd_fav_area.h"
#include "motion_event_record.h"
#include "motion_track.h"
#include "naro_isp.h"

Road *road;

struct queue_list_elem {
    alignas(64) uint8_t bytes[64 + 92160];
    Step step;
    int number;
};

struct NetworkHandle {
    int unused;
};

namespace
{

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects the road's records
pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
NetworkHandle network;

struct Lock {
    Lock() { pthread_mutex_lock(&mutex); }
    ~Lock() { pthread_mutex_unlock(&mutex); }
};

template <typename Condition> bool wait_for(Condition condition)
{
    timespec limit;
    clock_gettime(CLOCK_REALTIME, &limit);
    limit.tv_sec += 10;
    Lock lock;
    while (!condition())
        if (pthread_cond_timedwait(&changed, &mutex, &limit) == ETIMEDOUT)
            return condition();
    return true;
}

void note(const std::string &line)
{
    road->journal.push_back(line);
    road->said_before.push_back(road->said ? road->said() : "");
    pthread_cond_broadcast(&changed);
}

// The element that a pointer points into; -1 for none.
int element_at(const uint8_t *p)
{
    for (const auto &e : road->elements)
        if (p >= e->bytes && p < e->bytes + sizeof e->bytes)
            return e->number;
    return -1;
}

queue_list_elem *make_element(const Step &step)
{
    auto e = std::make_shared<queue_list_elem>();
    meta_list_data head = {};
    head.type = step.type;
    head.size = step.size;
    head.width = step.width;
    head.height = step.height;
    memcpy(e->bytes, &head, sizeof head);
    e->step = step;
    e->number = static_cast<int>(road->elements.size());
    road->elements.push_back(std::move(e));
    return road->elements.back().get();
}

} // namespace

Road::Road()
{
    road = this;
}

Road::~Road()
{
    road = nullptr;
}

uint8_t *Road::picture(int number) const
{
    return element(number)->bytes + 64;
}

bool Road::wait_until_idle()
{
    return wait_for([this] { return idle; });
}

bool Road::wait_until(const std::string &line)
{
    return wait_for([&] { return std::find(journal.begin(), journal.end(), line) != journal.end(); });
}

bool Road::wait_until_enqueued()
{
    return wait_for([this] { return !enqueues.empty(); });
}

bool Road::wait_until_gone()
{
    if (!wait_for([this] { return !thread_names.empty(); })) // it has its name by then
        return false;
    for (time_t end = time(nullptr) + 10; time(nullptr) < end; sched_yield()) {
        bool there = false;
        DIR *dir = opendir("/proc/self/task");
        while (const dirent *entry = readdir(dir)) {
            char name[64] = "";
            FILE *file = fopen((std::string("/proc/self/task/") + entry->d_name + "/comm").c_str(), "r");
            if (!file)
                continue;
            there = there || (fgets(name, sizeof name, file) && strncmp(name, "mid_hchdfd_Task", 15) == 0);
            fclose(file);
        }
        closedir(dir);
        if (!there) {
            Lock lock; // what the thread wrote under it can be read from here on
            return true;
        }
    }
    return false;
}

std::string Road::said_before_line(const std::string &line) const
{
    const auto at = std::find(journal.begin(), journal.end(), line);
    return at == journal.end() ? "no such line"
                               : said_before[static_cast<size_t>(std::distance(journal.begin(), at))];
}

void Road::more(const std::vector<Step> &steps)
{
    Lock lock;
    frames.insert(frames.end(), steps.begin(), steps.end());
    idle = false;
    pthread_cond_broadcast(&changed);
}

// ---- The motion queue ------------------------------------------------------------------------------------

int motion_queue_list_data_elem_take(queue_list_elem **out_elem)
{
    Step step;
    {
        Lock lock;
        char name[16] = "";
        prctl(PR_GET_NAME, name);
        road->thread_names.push_back(name);
        pthread_cond_broadcast(&changed);
        if (road->endless && road->next_step == road->frames.size())
            road->next_step--;
        while (road->next_step == road->frames.size() && road->published.empty() && !road->gone) {
            road->idle = true;
            pthread_cond_broadcast(&changed);
            pthread_cond_wait(&changed, &mutex);
        }
        if (road->next_step < road->frames.size()) {
            step = road->frames[road->next_step++];
        } else if (!road->published.empty()) {
            step = road->published.front();
            road->published.erase(road->published.begin());
        } else {
            step.kind = Step::failure;
        }
        if (step.kind == Step::element) {
            *out_elem = make_element(step);
            road->current = &(*out_elem)->step;
            note("take " + std::to_string((*out_elem)->number));
            return 0;
        }
        note("take fails");
    }
    if (road->on_take_fails)
        road->on_take_fails();
    return -1;
}

int motion_queue_list_data_elem_give(queue_list_elem *elem)
{
    {
        Lock lock;
        note("give " + (elem ? std::to_string(elem->number) : "null"));
    }
    if (road->on_give)
        road->on_give();
    return 0;
}

int motion_queue_list_enqueue(const void *src, uint32_t size, uint32_t width, uint32_t height, uint32_t type,
                              uint64_t timestamp)
{
    Lock lock;
    road->enqueues.push_back({src == nullptr, size, width, height, type, timestamp});
    pthread_cond_broadcast(&changed);
    if (road->refused > 0) {
        road->refused--;
        return -1;
    }
    Step step;
    step.type = type;
    step.size = size;
    road->published.push_back(step);
    return 0;
}

meta_list_data *meta_list_data_get(queue_list_elem *elem)
{
    return reinterpret_cast<meta_list_data *>(elem->bytes);
}

// ---- The image engine ------------------------------------------------------------------------------------

extern "C" {

int MI_IVE_Create(int handle)
{
    Lock lock;
    note("ive create " + std::to_string(handle));
    return road->create;
}

int MI_IVE_Destroy(int handle)
{
    Lock lock;
    note("ive destroy " + std::to_string(handle));
    return road->destroy;
}

int MI_IVE_Sad(int handle, const mi_ive_image *a, const mi_ive_image *b, mi_ive_image *sad, mi_ive_image *thr,
               const mi_ive_sad_control *control, int instant)
{
    Lock lock;
    note("sad " + std::to_string(element_at(a->virt_addr[0])) + " " +
         std::to_string(element_at(b->virt_addr[0])));
    road->sads.push_back({handle, instant, *a, *b, *sad, *thr, *control});
    if (road->current->sad != 0)
        return road->current->sad;
    for (int row = 0; row < 24; row++)
        for (int column = 0; column < 40; column++) {
            bool moved = false;
            for (const Step::Blocks &m : road->current->moved)
                moved = moved || (column >= m.left && column < m.right && row >= m.top && row < m.bottom);
            thr->virt_addr[0][row * 40 + column] = moved ? control->max_value : control->min_value;
        }
    return 0;
}

int MI_IVE_Csc(int handle, const mi_ive_image *yuv, mi_ive_image *rgb, const mi_ive_csc_control *control,
               int instant)
{
    Lock lock;
    note("csc");
    const int number = element_at(yuv->virt_addr[0]);
    CscCall call = {handle, instant, number, *yuv, *rgb, *control, -1, -1};
    if (number >= 0) {
        const uint8_t *picture = road->elements[static_cast<size_t>(number)]->bytes + 64;
        call.luma_at = yuv->virt_addr[0] - picture;
        call.chroma_at = yuv->virt_addr[1] - picture;
    }
    road->cscs.push_back(call);
    return road->current->csc;
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*start)(void *), void *arg)
{
    if (!road)
        return __real_pthread_create(thread, attr, start, arg);
    {
        Lock lock;
        note("thread");
    }
    return road->no_thread ? EAGAIN : __real_pthread_create(thread, attr, start, arg);
}
}

int ModuleTest_AllocateImage(mi_ive_image *image, uint32_t type, uint16_t stride, uint16_t width,
                             uint16_t height)
{
    Lock lock;
    note("picture " + std::to_string(type));
    road->pictures.push_back({image, type, stride, width, height});
    *image = {};
    if (static_cast<int>(road->pictures.size()) == road->picture_fails)
        return MI_IVE_ERR_NO_MEMORY;
    road->planes.push_back(std::make_unique<uint8_t[]>(static_cast<size_t>(stride) * height * 3));
    image->type = type;
    image->virt_addr[0] = road->planes.back().get();
    image->phys_addr[0] = reinterpret_cast<uintptr_t>(road->planes.back().get());
    image->stride[0] = stride;
    image->width = width;
    image->height = height;
    return 0;
}

int ModuleTest_FreeImage(mi_ive_image *image)
{
    Lock lock;
    note("picture free " + std::to_string(image->type));
    road->freed.push_back(*image);
    *image = {};
    const size_t call = road->freed.size() - 1;
    return call < road->free_results.size() ? road->free_results[call] : 0;
}

// ---- The detector ----------------------------------------------------------------------------------------

int Init_Network(NetworkHandle **handle, NetworkConfig *config)
{
    Lock lock;
    note("network init");
    road->init_config = *config;
    road->config = config;
    if (road->init_network != 0)
        return road->init_network;
    *handle = &network;
    return 0;
}

int Release_Network(NetworkHandle **handle)
{
    Lock lock;
    note(*handle == &network ? "network release" : "network release nothing");
    const int result = *handle ? 0 : -1;
    *handle = nullptr;
    return result;
}

int Change_Model(NetworkHandle *handle, int network_index)
{
    Lock lock;
    note((handle == &network ? "model " : "wrong handle, model ") + std::to_string(network_index));
    return 0;
}

int Set_Area_Constraint(NetworkHandle *handle, int min_area, int max_area)
{
    Lock lock;
    note((handle == &network ? "area " : "wrong handle, area ") + std::to_string(min_area) + " " +
         std::to_string(max_area));
    return 0;
}

int Forward_Network(NetworkHandle *handle, const uint8_t *pixels, int height, int width, int channels)
{
    Lock lock;
    note("forward");
    road->forwards.push_back({handle, pixels, height, width, channels, *road->config});
    return road->current->forward;
}

int GetBBox(NetworkHandle *handle, int image_height, int image_width)
{
    Lock lock;
    note(handle == &network ? "boxes" : "wrong handle, boxes");
    road->box_sizes.emplace_back(image_height, image_width);
    return road->current->count >= 0 ? road->current->count : static_cast<int>(road->current->boxes.size());
}

const BBox *Get_Boxes(const NetworkHandle *)
{
    Lock lock;
    return road->current->boxes.data();
}

// ---- The tracker and the care regions --------------------------------------------------------------------

int motion_track_coordinate_config(int x, int y, int w, int h)
{
    Lock lock;
    note("follow " + std::to_string(x) + "," + std::to_string(y) + " " + std::to_string(w) + "x" +
         std::to_string(h));
    return -1; // the task must not mind
}

void mid_hchd_fav_area_algo_init(void)
{
    Lock lock;
    note("no care regions");
}

// ---- Events and boxes out --------------------------------------------------------------------------------

int get_current_night_mode(int *night, int *mode, int *alarm)
{
    Lock lock;
    *night = road->current->night;
    *mode = road->current->light_mode;
    *alarm = road->current->alarm;
    return 0;
}

int led_task_set_white_led_on(void)
{
    Lock lock;
    note("light");
    return 0;
}

int shbf_event_broadcast(int index, const void *buf, int len)
{
    Lock lock;
    const std::string bytes(static_cast<const char *>(buf), static_cast<size_t>(len));
    note("event " + std::string(bytes.c_str()));
    road->broadcasts.push_back({index, len, bytes});
    return -1; // nobody hears it: the task must not mind
}

int motion_record_event_write_wrap(uint32_t type, uint64_t value, int32_t time, uint16_t f1, uint16_t f2,
                                   uint16_t f3, uint16_t f4)
{
    Lock lock;
    road->records.push_back({type, value, time, {f1, f2, f3, f4}, road->journal.back()});
    return -1; // refused: the task must not mind
}

int naro_isp_track_run(const naro_isp_track_param *param, int count)
{
    {
        Lock lock;
        note("track " + std::to_string(count));
        road->tracks.push_back({*param, count});
    }
    if (road->on_track)
        road->on_track();
    return -1; // the media server refuses: the task must not mind
}
