// Person and motion detection.
//
// The task holds two frames at a time, the newest and the one before it, as elements of the motion queue: the older one
// goes back when the newest has been dealt with. The two pictures that are compared look at these elements in turn.
//
// Threads: everything in `state` belongs to the task between init and fini, `quit` and `running` apart. The settings are
// relaxed atomics: each is one independent word (the region is packed into one, so that it is never seen half changed)
// and takes effect at the next frame; nothing is published through them.
#include "mid_hchd.h"

#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/prctl.h>

#include <atomic>

#include "algo_shbf.h"
#include "ir_white_led.h"
#include "ircut.h"
#include "ive_image.h"
#include "mi_ive.h"
#include "mid_hchd_fav_area.h"
#include "mid_hchd_region.h"
#include "motion_event_record.h"
#include "motion_track.h"
#include "naro_isp.h"
#include "naro_util.h"
#include "nn/network.h"
#include "queues.h"

namespace
{
enum {
    IVE_HANDLE = 0,
    QUEUE_RETRY_MS = 20,
    MIN_INPUT_AREA = 16384, // pixels; what the detector is fed lies between these
    MAX_INPUT_AREA = 28224,
    MAX_PEOPLE = 5,
    LIGHT_EVERY = 3, // frames with people; the light stays on for far longer than that
};
const float IOU_THRESHOLD = 0.5f;

// The sum of absolute luma differences of an 8x8 block is at most 16320.
const uint16_t sad_threshold_of_level[] = {3840, 2240, 960};
const float score_threshold_of_level[] = {0.7f, 0.6f, 0.5f, 0.4f, 0.3f}; // levels 1 to 5

constexpr uint64_t packed(const pixel_rect &r)
{
    return static_cast<uint64_t>(static_cast<uint16_t>(r.x1)) |
           static_cast<uint64_t>(static_cast<uint16_t>(r.y1)) << 16 |
           static_cast<uint64_t>(static_cast<uint16_t>(r.x2)) << 32 |
           static_cast<uint64_t>(static_cast<uint16_t>(r.y2)) << 48;
}

pixel_rect unpacked(uint64_t v)
{
    return {static_cast<uint16_t>(v), static_cast<uint16_t>(v >> 16), static_cast<uint16_t>(v >> 32),
            static_cast<uint16_t>(v >> 48)};
}

// What users set. Lives as long as the process: a setting may arrive before init, and a new init keeps it.
struct {
    std::atomic<uint16_t> sad_threshold;
    std::atomic<float> score_threshold;
    std::atomic<uint64_t> people_region; // packed pixel_rect inside the frame
} settings = {{960}, {0.5f}, {packed({0, 0, ANALYSIS_WIDTH - 1, ANALYSIS_HEIGHT - 1})}};

struct detection_state {
    mi_ive_image src[2];        // look at the luma of the elements in `slot`; own nothing
    mi_ive_image sad_out;       // 40 x 24 sums
    mi_ive_image thr_out;       // 40 x 24 bytes, 255 where the block moved
    mi_ive_image yuv_in;        // looks at the crop inside a queue element
    mi_ive_image rgb_out;       // the crop in colour; width, height and stride follow the crop
    mi_ive_image rgb_allocated; // rgb_out as it was allocated
    mi_ive_sad_control sad_control;
    pixel_rect rect; // what to look at in this frame
    NetworkConfig config;
    NetworkHandle *network;
    queue_list_elem *slot[2]; // the newest frame and the one before it
    int toggle;               // the place in src and slot for the next frame
    uint16_t people_frames;   // frames with people so far; wraps
    bool thread_started;
    pthread_t thread;
};
detection_state state;
std::atomic<bool> quit;    // fini to task: end at the next look
std::atomic<bool> running; // task to fini: the thread, if it was started, still waits for elements

// ---- Motion ----------------------------------------------------------------------------------------------------------

// Compares the two frames; 0 and the moved blocks, or the engine's error.
int MD_frame_difference(block_rect *moved)
{
    state.sad_control.threshold = settings.sad_threshold.load(std::memory_order_relaxed);
    const int ret = MI_IVE_Sad(IVE_HANDLE, &state.src[0], &state.src[1], &state.sad_out, &state.thr_out,
                               &state.sad_control, 0);
    if (ret != 0) {
        printf("MI_IVE_Sad() return ERROR 0x%X\n", static_cast<unsigned>(ret));
        return ret;
    }
    *moved = region_of_map(state.thr_out.virt_addr[0], state.thr_out.stride[0]);
    return 0;
}

// 1 when there is something to look at in state.rect, 0 when not, or the engine's error.
int motion_region_detect()
{
    block_rect moved;
    const int ret = MD_frame_difference(&moved);
    if (ret != 0) {
        puts("MD_frame_difference is failed!");
        return ret;
    }
    if (!region_any(moved))
        return 0;
    const pixel_rect grown = region_grown(moved);
    if (region_is_whole_frame(grown))
        return 0;
    motion_track_coordinate_config(grown.x1, grown.y1, grown.x2 - grown.x1 + 1, grown.y2 - grown.y1 + 1);
    state.rect = region_to_search(grown, unpacked(settings.people_region.load(std::memory_order_relaxed)));
    return 1;
}

// ---- People ----------------------------------------------------------------------------------------------------------

// Looks for people in `crop` of the picture; how many boxes the network holds now, in pixels of the crop.
int people_in_crop(uint8_t *picture, const pixel_rect &crop)
{
    const int w = crop.x2 - crop.x1 + 1, h = crop.y2 - crop.y1 + 1;
    uint8_t *luma = picture + crop.y1 * ANALYSIS_WIDTH + crop.x1;
    // Deliberate, also where y1 or x1 is odd, which only a people region can bring about: the colours are then taken
    // half a row or one sample aside. The planes still hold every byte that is read.
    uint8_t *chroma = picture + ANALYSIS_CHROMA_OFFSET + crop.y1 * ANALYSIS_WIDTH / 2 + crop.x1;

    state.yuv_in = {};
    state.yuv_in.type = MI_IVE_YUV420SP;
    state.yuv_in.virt_addr[0] = luma;
    state.yuv_in.virt_addr[1] = chroma;
    state.yuv_in.phys_addr[0] = reinterpret_cast<uintptr_t>(luma);
    state.yuv_in.phys_addr[1] = reinterpret_cast<uintptr_t>(chroma);
    state.yuv_in.stride[0] = state.yuv_in.stride[1] = ANALYSIS_WIDTH;
    state.yuv_in.width = state.rgb_out.width = state.rgb_out.stride[0] = static_cast<uint16_t>(w);
    state.yuv_in.height = state.rgb_out.height = static_cast<uint16_t>(h);
    const mi_ive_csc_control control = {0};
    const int ret = MI_IVE_Csc(IVE_HANDLE, &state.yuv_in, &state.rgb_out, &control, 1);
    if (ret != 0)
        log_err("[MVE] MI_IVE_CSC error!!! ret[0x%x]\n", static_cast<unsigned>(ret));

    state.config.input_height = static_cast<uint32_t>(naro_round(h, 32));
    state.config.input_width = static_cast<uint32_t>(naro_round(w, 32));
    state.config.score_threshold = settings.score_threshold.load(std::memory_order_relaxed);
    if (Forward_Network(state.network, state.rgb_out.virt_addr[0], h, w, 3) != 0)
        log_err("[HD] Forward error!!!\n");
    return GetBBox(state.network, h, w);
}

// In the infrared night of the smart light mode a person makes it light, and so colour; not while an alarm has the light.
void light_for_people()
{
    int night = 0, mode = 0, alarm = 0;
    get_current_night_mode(&night, &mode, &alarm);
    if (night == 1 && mode == NARO_IRCUT_MODE_AUTO_SMART && alarm == 0 &&
        state.people_frames % LIGHT_EVERY == 0)
        led_task_set_white_led_on();
    state.people_frames++;
}

// Notes an event in the hour's records, with the rectangle it happened in. Does not wait for the card.
void record(uint32_t type, int people, const naro_track_box &place)
{
    const int32_t corners[] = {place.x1, place.y1, place.x2, place.y2};
    uint16_t field[4];
    for (int i = 0; i < 4; i++)
        field[i] =
            static_cast<uint16_t>(corners[i] > 0 ? corners[i] : 0); // a box of no size ends before it begins
    motion_record_event_write_wrap(type, static_cast<uint64_t>(people),
                                   static_cast<int32_t>(naro_clock_wall_s()), field[0], field[1], field[2],
                                   field[3]);
}

int area(const naro_track_box &box)
{
    return (box.x2 - box.x1 + 1) * (box.y2 - box.y1 + 1);
}

// Of several people the largest is the nearest, and the one that a small picture of the event should show.
const naro_track_box &largest(const naro_isp_track_param &list, int people)
{
    int found = 0;
    for (int i = 1; i < people && i < NARO_TRACK_BOXES; i++)
        if (area(list.box[i]) > area(list.box[found]))
            found = i;
    return list.box[found];
}

// Says what was found: the event first, then its record, then the boxes.
void report(bool motion, int people, const pixel_rect &crop)
{
    naro_isp_track_param list = {};
    if (people < 1) {
        if (motion) {
            shbf_event_broadcast(EVENT_CHANNEL_MD, EVENT_OBJECT_MOTION, EVENT_MOTION_LENGTH);
            record(MOTION_RECORD_OBJECT, 0, {state.rect.x1, state.rect.y1, state.rect.x2, state.rect.y2});
        }
        naro_isp_track_run(&list, 0);
        return;
    }
    light_for_people();
    shbf_event_broadcast(EVENT_CHANNEL_MD, EVENT_PEOPLE_MOTION, EVENT_MOTION_LENGTH);
    const BBox *box = Get_Boxes(state.network);
    for (int i = 0; i < people && i < NARO_TRACK_BOXES; i++) {
        const int x = box[i].x1 + crop.x1, y = box[i].y1 + crop.y1;
        // Deliberate: one short of the inclusive size, as the media server has always been given them.
        const int w = box[i].x2 - box[i].x1 - 1, h = box[i].y2 - box[i].y1 - 1;
        list.box[i] = {x, y, x + w, y + h};
    }
    record(MOTION_RECORD_PEOPLE, people, largest(list, people));
    naro_isp_track_run(&list, people);
}

void frame_analyse(uint8_t *picture)
{
    if (motion_region_detect() != 1) {
        report(false, 0, {});
        return;
    }
    const pixel_rect crop = region_crop(state.rect);
    report(true, people_in_crop(picture, crop), crop);
}

// ---- Frames ----------------------------------------------------------------------------------------------------------

uint8_t *picture_of(queue_list_elem *elem)
{
    return reinterpret_cast<uint8_t *>(meta_list_data_get(elem)) + sizeof(meta_list_data);
}

void aim(mi_ive_image *image, queue_list_elem *elem)
{
    uint8_t *luma = picture_of(elem);
    *image = {};
    image->type = MI_IVE_U8C1;
    image->virt_addr[0] = luma;
    image->phys_addr[0] = reinterpret_cast<uintptr_t>(luma);
    image->stride[0] = ANALYSIS_WIDTH;
    image->width = ANALYSIS_WIDTH;
    image->height = ANALYSIS_HEIGHT;
}

// The next frame of the queue; null when the task is to end (a quit element came, or the flag was set while the queue
// gave nothing). `complaint` is printed each time the queue fails.
queue_list_elem *frame_take(const char *complaint)
{
    for (;;) {
        queue_list_elem *elem = nullptr;
        if (motion_queue_list_data_elem_take(&elem) != 0) {
            puts(complaint);
            if (quit)
                return nullptr;
            naro_clock_sleep_ms(QUEUE_RETRY_MS);
            continue;
        }
        const meta_list_data *head = meta_list_data_get(elem);
        if (head->type == QUEUE_ELEMENT_QUIT) {
            puts("recv cmd quit");
            motion_queue_list_data_elem_give(elem);
            return nullptr;
        }
        if (head->size >= ANALYSIS_FRAME_BYTES)
            return elem;
        log_err("[%s] a frame of %u bytes is no analysis picture, dropped\n", __func__, head->size);
        motion_queue_list_data_elem_give(elem);
        if (quit)
            return nullptr;
    }
}

void frames_run()
{
    queue_list_elem *elem = frame_take("yuv queue dequeue for 1st frame fail, sleep then retry");
    if (!elem)
        return;
    const meta_list_data *head = meta_list_data_get(elem);
    printf("get 1st frame ok, [%p] w: %d, h: %d, size: %d\n\n", static_cast<void *>(elem),
           static_cast<int>(head->width), static_cast<int>(head->height), static_cast<int>(head->size));
    aim(&state.src[0], elem);
    state.slot[0] = elem;
    state.toggle = 1;

    while (!quit) {
        elem = frame_take("yuv queue dequeue fail, sleep then retry");
        if (!elem)
            break;
        aim(&state.src[state.toggle], elem);
        state.slot[state.toggle] = elem;
        state.toggle = 1 - state.toggle;
        frame_analyse(picture_of(elem));
        // The older one lies where the next will; the newest stays as its reference.
        motion_queue_list_data_elem_give(state.slot[state.toggle]);
    }
    motion_queue_list_data_elem_give(state.slot[1 - state.toggle]);
    puts("quit!");
}

void *mid_hchdfd_Task(void *)
{
    prctl(PR_SET_NAME, "mid_hchdfd_Task");
    frames_run();
    running = false;
    return nullptr;
}

// ---- Image engine ----------------------------------------------------------------------------------------------------

int Module_SAD()
{
    if (MI_IVE_Create(IVE_HANDLE) != 0) {
        puts("Could not create IVE handle");
        return -1;
    }
    if (ModuleTest_AllocateImage(&state.rgb_out, MI_IVE_U8C3_PACKED, ANALYSIS_WIDTH, ANALYSIS_WIDTH,
                                 ANALYSIS_HEIGHT)) {
        printf("[%s %d] Could not allocate MVE image\n", "Module_SAD", 624);
    } else {
        state.rgb_allocated = state.rgb_out;
        if (ModuleTest_AllocateImage(&state.sad_out, MI_IVE_U16C1, MAP_WIDTH, MAP_WIDTH, MAP_HEIGHT)) {
            puts("Can't allocate output buffer 0");
        } else {
            if (ModuleTest_AllocateImage(&state.thr_out, MI_IVE_U8C1, MAP_WIDTH, MAP_WIDTH, MAP_HEIGHT) == 0)
                return 0;
            puts("Can't allocate output buffer 1");
            ModuleTest_FreeImage(&state.sad_out);
        }
        ModuleTest_FreeImage(&state.rgb_out);
        state.rgb_allocated = {};
    }
    MI_IVE_Destroy(IVE_HANDLE);
    return -1;
}
} // namespace

int mid_hchd_init(int)
{
    if (state.thread_started) {
        log_info("[%s] already inited\n", __func__);
        return 0;
    }
    state = {};
    mid_hchd_fav_area_algo_init();
    // Deliberately not looked at: without the engine every difference fails and the daemon lives on without motion.
    Module_SAD();
    state.config = {ANALYSIS_HEIGHT,
                    ANALYSIS_WIDTH,
                    settings.score_threshold.load(std::memory_order_relaxed),
                    IOU_THRESHOLD,
                    1,
                    MAX_PEOPLE};
    if (Init_Network(&state.network, &state.config) != 0) {
        puts("[HD] Could not create Network handle");
        return -1;
    }
    Change_Model(state.network, 0);
    state.sad_control = {MI_IVE_SAD_8X8, MI_IVE_SAD_BOTH,
                         settings.sad_threshold.load(std::memory_order_relaxed), 0, 255};
    quit = false;
    Set_Area_Constraint(state.network, MIN_INPUT_AREA, MAX_INPUT_AREA);
    running = true;
    state.thread_started = pthread_create(&state.thread, nullptr, mid_hchdfd_Task, nullptr) == 0;
    if (!state.thread_started)
        log_err("[%s] the detection thread could not be created\n", __func__);
    return 0;
}

int mid_hchd_fini(void)
{
    quit = true;
    if (state.thread_started) {
        // A silent queue would keep the task waiting: a quit element wakes it. The queue refuses one only while every
        // element is held, which the task itself ends, or when it is gone, which the task notices within a retry.
        static const uint8_t nothing = 0;
        while (running && motion_queue_list_enqueue(&nothing, 0, 0, 0, QUEUE_ELEMENT_QUIT, 0) != 0)
            naro_clock_sleep_ms(QUEUE_RETRY_MS);
        pthread_join(state.thread, nullptr);
        state.thread_started = false;
    }
    state.rgb_out = state.rgb_allocated;
    state.rgb_allocated = {};
    printf("line[%d] ret=%d\n", 1954, ModuleTest_FreeImage(&state.rgb_out));
    printf("line[%d] ret=%d\n", 1957, ModuleTest_FreeImage(&state.sad_out));
    printf("line[%d] ret=%d\n", 1960, ModuleTest_FreeImage(&state.thr_out));
    Release_Network(&state.network);
    printf("line[%d] ret=%d\n", 1964, MI_IVE_Destroy(IVE_HANDLE));
    return 0;
}

int mid_hchd_sensitivity_set(int level)
{
    printf("mid_hchd_sensitivity_set mode  = %d\n", level);
    if (level >= 0 && level <= 2)
        settings.sad_threshold.store(sad_threshold_of_level[level], std::memory_order_relaxed);
    return 0;
}

int mid_hchd_people_sensitivity_set(int level)
{
    log_info("mid_hchd_people_sensitivity_set mode  = %d\n", level);
    if (level >= 1 && level <= 5)
        settings.score_threshold.store(score_threshold_of_level[level - 1], std::memory_order_relaxed);
    return 0;
}

int set_mid_people_region(int x1, int x2, int y1, int y2)
{
    const pixel_rect asked = region_from_units(x1, x2, y1, y2);
    log_info("[%s %d] perople_region:[%d-%d-%d-%d]", "set_mid_people_region", 97, asked.x1, asked.y1,
             asked.x2, asked.y2);
    const pixel_rect region = region_in_frame(asked);
    if (!region_holds_pair(region)) {
        log_err("[%s] the people region holds no pair of pixels inside the frame; the old one stays\n",
                __func__);
        return 0;
    }
    settings.people_region.store(packed(region), std::memory_order_relaxed);
    return 0;
}
