// The road around the detection task in the hands of a test: the motion queue, the image engine and its pictures, the
// detector, the event channel and the media server. They write down what they are asked, in one journal, answer as
// the script says, and fail on demand.
//
//   Road road;                                            // before mid_hchd_init
//   road.frames = {Step(), Step()};
//   mid_hchd_init(0);
//   road.wait_until_idle();                               // the script is through, the task waits for more
//   mid_hchd_fini();
//   EXPECT_EQ(road.journal, ...);
//
// The journal tells: "take N" and "give N" (N counts the elements of the script from 0; what fini publishes follows),
// "take fails", "sad A B" (the elements compared), "follow X,Y WxH" (the tracker is told), "csc", "forward", "boxes", "light" (the white LED is asked for),
// "event TEXT", "track COUNT", and what init and fini do.
//
// Fill in before init, read after fini or while the task is idle.
#ifndef NARO_TESTS_ROAD_H
#define NARO_TESTS_ROAD_H

#include <pthread.h>
#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "mi_ive.h"
#include "naro_ipc_wire.h"
#include "nn/network.h"
#include "queues.h"

// What the engine and the detector will say to one element, and what the element's head says.
struct Step {
    enum Kind { element, failure } kind = element;
    uint32_t type = QUEUE_ELEMENT_FRAME;
    uint32_t size = 92160, width = 320, height = 192;
    // Blocks that moved: left, right, top, bottom, the ends exclusive.
    struct Blocks {
        int left, right, top, bottom;
    };
    std::vector<Blocks> moved;
    std::vector<BBox> boxes; // of GetBBox
    int count = -1;          // what GetBBox says; -1: as many as there are boxes
    int sad = 0, csc = 0, forward = 0;
    int night = 0, light_mode = 5, alarm = 0; // what the light controller says during this frame
};

struct SadCall {
    int handle, instant;
    mi_ive_image a, b, sad, thr;
    mi_ive_sad_control control;
};
struct CscCall {
    int handle, instant, element; // whose picture yuv looks at
    mi_ive_image yuv, rgb;
    mi_ive_csc_control control;
    int64_t luma_at, chroma_at; // where in the element's picture the planes begin
};
struct ForwardCall {
    NetworkHandle *handle;
    const uint8_t *pixels;
    int height, width, channels;
    NetworkConfig config; // as it stood at that time
};
struct TrackCall {
    naro_isp_track_param list;
    int count;
};
struct BroadcastCall {
    int index, length;
    std::string bytes;
};
struct RecordCall {
    uint32_t type;
    uint64_t value;
    int32_t time;
    std::vector<int> fields;
    std::string after; // the journal's last line at that time
};
struct PictureCall {
    mi_ive_image *image;
    uint32_t type;
    int stride, width, height;
};
struct EnqueueCall {
    bool null;
    uint32_t size, width, height, type;
    uint64_t timestamp;
};

struct Road {
    Road();
    ~Road();
    Road(const Road &) = delete;
    Road &operator=(const Road &) = delete;

    // The script.
    std::vector<Step> frames;
    bool gone = false;             // the queue fails whenever the script is through
    bool endless = false;          // the last step comes again and again
    int refused = 0;               // so many enqueues fail
    int create = 0;                // of MI_IVE_Create
    int destroy = 0;               // of MI_IVE_Destroy
    int picture_fails = 0;         // the picture of this number (1 = the first) cannot be allocated
    std::vector<int> free_results; // of ModuleTest_FreeImage, by call; then 0
    int init_network = 0;
    bool no_thread = false; // pthread_create fails
    // Called on the task's thread, with no lock held, at the end of each of these calls.
    std::function<void()> on_track, on_take_fails, on_give;

    // What has been printed and logged so far; noted with each line of the journal when set.
    std::function<std::string()> said;

    // What happened.
    std::vector<std::string> journal;
    std::vector<std::string> said_before; // each line of the journal
    std::vector<SadCall> sads;
    std::vector<CscCall> cscs;
    std::vector<ForwardCall> forwards;
    std::vector<std::pair<int, int>> box_sizes; // height, width of GetBBox
    std::vector<TrackCall> tracks;
    std::vector<BroadcastCall> broadcasts;
    std::vector<RecordCall> records;
    std::vector<PictureCall> pictures; // allocated
    std::vector<mi_ive_image> freed;   // as they stood when they were given back
    std::vector<EnqueueCall> enqueues;
    NetworkConfig init_config = {};
    std::vector<std::string> thread_names; // of the takers

    // Waits (at most 10 s): until the script is through and the task waits; until the journal has the line; until the
    // task's thread has come and gone; until something has been enqueued.
    bool wait_until_idle();
    bool wait_until(const std::string &line);
    bool wait_until_gone();
    bool wait_until_enqueued();
    // What had been said when the journal's first line of this text was written.
    std::string said_before_line(const std::string &line) const;
    // More steps for a task that waits.
    void more(const std::vector<Step> &steps);

    queue_list_elem *element(int number) const { return elements.at(static_cast<size_t>(number)).get(); }
    uint8_t *picture(int number) const;

    // The fakes' own, under their lock.
    std::vector<std::shared_ptr<queue_list_elem>> elements; // handed out, by number
    std::vector<Step> published;                            // enqueued and not taken
    std::vector<std::unique_ptr<uint8_t[]>> planes;
    NetworkConfig *config = nullptr;
    const Step *current = nullptr; // of the element taken last
    size_t next_step = 0;
    bool idle = false;
};

extern Road *road; // the one there is

#endif
