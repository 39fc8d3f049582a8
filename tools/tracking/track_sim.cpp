// A camera that follows, in simulated time: one process, no waiting, the same in every run.
//
// What is real: the rendered room and its sensor, the image engine's difference, the daemon's regions and its tracker
// with its thread, the motor's driver and model, the mailbox's words. What stands in: the detector, which has no say in
// tracking, is left out and its time is a number (--analysis); the thread that puts texts into the mailbox is the rule of
// its header, in steps of 10 ms.
//
// Writes one JSON object a line: a "frame" for each picture, a "move" for each that the motor has made, a "drop" for each
// request that found the motor busy for longer than the writer waits. Times are milliseconds of the scene.
#include <deque>
#include <getopt.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

#include "algo_shbf.h"
#include "desk.h"
#include "event_channels.h"
#include "mi_ive.h"
#include "mid_hchd_region.h"
#include "motion_event_record.h"
#include "motion_track.h"
#include "motor_driver.h"
#include "motor_head.h"
#include "motor_request.h"
#include "naro_util.h"
#include "picture.h"
#include "render.h"
#include "rendered.h"

namespace
{

enum {
    TICK_MS = 5,
    WRITER_STEP_MS = 10,   // of the daemon's mailbox thread, between two looks
    WRITER_PATIENCE = 4,   // waits beyond this drop the text
    THRESHOLD = 960,       // of the daemon's start value for how different a block must be
    EPOCH_MS = 1700000000, // wall clock at the scene's start; any will do, but not 0
};

const char help[] =
    "usage: naro-track-sim --scene NAME [--motor KEY=VALUE]... [--analysis MS] [--every MS] [--seconds N]\n"
    "\n"
    "Lets the camera follow what moves in a scene, in simulated time, and writes what happened as JSON "
    "lines\n"
    "(tools/naro-track-report reads them).\n"
    "\n"
    "  --motor KEY=VALUE  another motor than the usual one; may be repeated\n"
    "  --analysis MS      from a picture to its request (60)\n"
    "  --every MS         between two pictures: 200, or 400, 600, ... (200)\n"
    "  --seconds N        no more of the scene than that\n";

// What the tracker has said to the rectangle it was given.
enum answer { ANSWER_NONE, ANSWER_CALM, ANSWER_SPACING, ANSWER_REQUEST };
const char *const answers[] = {"none", "calm", "spacing", "request"};

struct {
    std::string scene;
    motor_parameters parameters;
    unsigned analysis_ms = 60, every_ms = 200;
    uint64_t end_ms;

    uint64_t now_ms; // of the scene. Written while the tracker's thread waits

    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects the next four
    pthread_cond_t said = PTHREAD_COND_INITIALIZER;
    answer tracker;
    int angle[2];
    std::string text;

    motor_mailbox mailbox;
    std::deque<std::string> queue; // of the mailbox's writer
    int retries;
    uint64_t writer_ms; // its next look

    std::vector<uint8_t> picture[2];
    int newest;
    bool compared;
} sim;

// ---- The daemon's surroundings -----------------------------------------------------------------------------

uint64_t wall_ms(void *)
{
    return EPOCH_MS + sim.now_ms;
}

// "rotate_buf = [h,v]" and what follows: the angles of a rectangle.
bool angles_in(const char *text, int angle[2])
{
    static const char begin[] = "rotate_buf = [";
    if (strncmp(text, begin, strlen(begin)) != 0)
        return false;
    char *end;
    angle[0] = static_cast<int>(strtol(text + strlen(begin), &end, 10));
    angle[1] = *end == ',' ? static_cast<int>(strtol(end + 1, nullptr, 10)) : 0;
    return true;
}

// The tracker says what it makes of each rectangle; that is how one knows that it has.
void on_log(void *, enum naro_log_level, const char *text)
{
    pthread_mutex_lock(&sim.mutex);
    if (angles_in(text, sim.angle)) {
        if (abs(sim.angle[0]) < 10 && abs(sim.angle[1]) < 10)
            sim.tracker = ANSWER_CALM;
    } else if (strncmp(text, "motor is alerady running", 24) == 0) {
        sim.tracker = ANSWER_SPACING;
    }
    pthread_cond_signal(&sim.said);
    pthread_mutex_unlock(&sim.mutex);
}

} // namespace

int shbf_event_broadcast(int, const void *buffer, int)
{
    pthread_mutex_lock(&sim.mutex);
    sim.text = static_cast<const char *>(buffer);
    sim.tracker = ANSWER_REQUEST;
    pthread_cond_signal(&sim.said);
    pthread_mutex_unlock(&sim.mutex);
    return 0;
}

int motion_record_track_mode_get(void)
{
    return 0;
}

void motion_record_track_mode_set(int) {}

namespace
{

answer ask_tracker(const pixel_rect &r)
{
    pthread_mutex_lock(&sim.mutex);
    sim.tracker = ANSWER_NONE;
    pthread_mutex_unlock(&sim.mutex);
    motion_track_coordinate_config(r.x1, r.y1, r.x2 - r.x1 + 1, r.y2 - r.y1 + 1);
    pthread_mutex_lock(&sim.mutex);
    while (sim.tracker == ANSWER_NONE)
        pthread_cond_wait(&sim.said, &sim.mutex);
    const answer result = sim.tracker;
    pthread_mutex_unlock(&sim.mutex);
    return result;
}

// ---- Mailbox and motor -------------------------------------------------------------------------------------

// The writer's rule: a text that finds the slot full is tried again every 10 ms, and dropped once more than four waits
// have been counted; the count goes on from one text to the next.
void writer_step(void)
{
    if (sim.queue.empty() || sim.now_ms < sim.writer_ms)
        return;
    if (motor_mailbox_put(&sim.mailbox, sim.queue.front().c_str()) == MOTOR_MAILBOX_DONE) {
        sim.queue.pop_front();
        return;
    }
    sim.writer_ms = sim.now_ms + WRITER_STEP_MS;
    if (sim.retries++ <= WRITER_PATIENCE)
        return;
    sim.retries = 0;
    printf("{\"drop\":\"%s\",\"t\":%llu}\n", sim.queue.front().c_str(),
           static_cast<unsigned long long>(sim.now_ms));
    sim.queue.pop_front();
}

void on_move(const motor_driver_report *report)
{
    const auto head = [](const motor_state &state, motor_axis axis) { return state.axis[axis].head; };
    printf("{\"move\":\"%s\",\"t\":%llu,\"end\":%llu,\"from\":[%.3f,%.3f],\"to\":[%.3f,%.3f]}\n",
           report->text, static_cast<unsigned long long>(report->taken_ms),
           static_cast<unsigned long long>(report->ended_ms), head(report->from, MOTOR_PAN),
           head(report->from, MOTOR_TILT), head(report->to, MOTOR_PAN), head(report->to, MOTOR_TILT));
}

bool publish(const char *)
{
    return true;
}

char *published(void)
{
    return nullptr;
}

// ---- Frames ------------------------------------------------------------------------------------------------

mi_ive_image image_of(uint32_t type, void *memory, uint16_t width, uint16_t height)
{
    mi_ive_image image = {};
    image.type = type;
    image.virt_addr[0] = static_cast<uint8_t *>(memory);
    image.stride[0] = image.width = width;
    image.height = height;
    return image;
}

// What moved between the two newest pictures, as the detection task sees it: false where nothing did.
bool moved(pixel_rect *rect, bool *whole)
{
    static uint16_t sums[MAP_WIDTH * MAP_HEIGHT];
    static uint8_t map[MAP_WIDTH * MAP_HEIGHT];
    mi_ive_image a = image_of(MI_IVE_U8C1, sim.picture[0].data(), ANALYSIS_WIDTH, ANALYSIS_HEIGHT);
    mi_ive_image b = image_of(MI_IVE_U8C1, sim.picture[1].data(), ANALYSIS_WIDTH, ANALYSIS_HEIGHT);
    mi_ive_image sad = image_of(MI_IVE_U16C1, sums, MAP_WIDTH, MAP_HEIGHT);
    mi_ive_image thr = image_of(MI_IVE_U8C1, map, MAP_WIDTH, MAP_HEIGHT);
    const mi_ive_sad_control control = {MI_IVE_SAD_8X8, MI_IVE_SAD_BOTH, THRESHOLD, 0, 255};
    if (MI_IVE_Sad(0, &a, &b, &sad, &thr, &control, 0) != 0)
        abort();
    const block_rect blocks = region_of_map(map, MAP_WIDTH);
    if (!region_any(blocks))
        return false;
    *rect = region_grown(blocks);
    *whole = region_is_whole_frame(*rect);
    return true;
}

struct frame_told {
    uint64_t number;
    truth_moment truth;
    bool motion, whole;
    pixel_rect rect;
};

void tell(const frame_told &frame, answer said)
{
    printf("{\"frame\":%llu,\"t\":%llu,\"pan\":%.3f,\"tilt\":%.3f,\"view_moves\":%s,\"busy\":%s",
           static_cast<unsigned long long>(frame.number),
           static_cast<unsigned long long>(frame.number) * RENDERED_STEP_MS,
           static_cast<double>(frame.truth.pan), static_cast<double>(frame.truth.tilt),
           frame.truth.view_moves ? "true" : "false",
           sim.mailbox.full == MOTOR_MAILBOX_FULL ? "true" : "false");
    if (frame.motion)
        printf(",\"motion\":[%d,%d,%d,%d],\"whole\":%s", frame.rect.x1, frame.rect.y1, frame.rect.x2 + 1,
               frame.rect.y2 + 1, frame.whole ? "true" : "false");
    if (said != ANSWER_NONE)
        printf(",\"angle\":[%d,%d],\"said\":\"%s\"", sim.angle[0], sim.angle[1], answers[said]);
    if (!frame.truth.actors.empty()) {
        const truth_actor &target = frame.truth.actors[0];
        printf(",\"target\":{\"box\":[%g,%g,%g,%g],\"visible\":%.3f,\"distance\":%.2f,\"moves\":%s,"
               "\"doing\":\"%s\"}",
               static_cast<double>(target.box[0]), static_cast<double>(target.box[1]),
               static_cast<double>(target.box[2]), static_cast<double>(target.box[3]),
               static_cast<double>(target.visible), static_cast<double>(target.distance),
               target.moves ? "true" : "false", target.doing.c_str());
    }
    puts("}");
}

// Draws and compares one picture; false when there is none.
bool take_frame(uint64_t number, frame_told *frame)
{
    AVFrame *drawn = rendered_picture(number);
    if (!drawn)
        return false;
    sim.newest = 1 - sim.newest;
    frame->number = number;
    frame->truth = rendered_extra_of(drawn)->truth;
    frame->motion = frame->whole = false;
    const bool converted = picture_to_analysis(drawn, sim.picture[sim.newest].data()) == 0;
    av_frame_free(&drawn);
    if (sim.compared)
        frame->motion = moved(&frame->rect, &frame->whole);
    sim.compared = true;
    return converted;
}

int run(void)
{
    motor_view_file *view = motor_view_open(true);
    if (!view || motor_head_start() != 0)
        return 1;
    const rendered_settings settings = {sim.scene.c_str(), false, false, false, motor_head_at};
    if (rendered_open(&settings) != 0)
        return 1;
    const uint64_t length_ms = rendered_end_ms();
    if (sim.end_ms == 0 || (length_ms > 0 && length_ms < sim.end_ms))
        sim.end_ms = length_ms;
    const motor_driver_settings driver = {sim.parameters, &sim.mailbox, view, publish, published, on_move};
    motor_driver_start(&driver, 0);
    motion_track_mode_config(1);
    uint64_t driver_ms = 0;
    frame_told frame = {};
    bool waiting = false; // `frame` has not been told
    for (sim.now_ms = 0; sim.now_ms < sim.end_ms; sim.now_ms += TICK_MS) {
        if (sim.now_ms >= driver_ms)
            driver_ms = sim.now_ms + motor_driver_round(sim.now_ms);
        if (sim.now_ms % sim.every_ms == 0) {
            if (!take_frame(sim.now_ms / RENDERED_STEP_MS, &frame))
                return 1;
            waiting = true;
        }
        if (waiting && sim.now_ms % sim.every_ms >= sim.analysis_ms) {
            const answer said = frame.motion && !frame.whole ? ask_tracker(frame.rect) : ANSWER_NONE;
            tell(frame, said);
            waiting = false;
            if (said == ANSWER_REQUEST) {
                sim.queue.push_back(sim.text);
                sim.writer_ms = sim.now_ms;
            }
        }
        writer_step();
    }
    motion_track_mode_config(0);
    motion_track_destroy_task();
    rendered_close();
    motor_head_stop();
    motor_view_close(view);
    return 0;
}

enum { LONG_SCENE = 256, LONG_MOTOR, LONG_ANALYSIS, LONG_EVERY, LONG_SECONDS };

bool whole_number(const char *text, long least, long most, long *value)
{
    char *end;
    *value = strtol(text, &end, 10);
    return end != text && !*end && *value >= least && *value <= most;
}

int parse(int argc, char **argv)
{
    static const option options[] = {{"scene", required_argument, nullptr, LONG_SCENE},
                                     {"motor", required_argument, nullptr, LONG_MOTOR},
                                     {"analysis", required_argument, nullptr, LONG_ANALYSIS},
                                     {"every", required_argument, nullptr, LONG_EVERY},
                                     {"seconds", required_argument, nullptr, LONG_SECONDS},
                                     {"help", no_argument, nullptr, 'h'},
                                     {nullptr, 0, nullptr, 0}};
    int choice;
    long value;
    std::string error;
    sim.parameters = motor_parameters_usual();
    while ((choice = getopt_long(argc, argv, "h", options, nullptr)) != -1) {
        bool good = true;
        switch (choice) {
        case LONG_SCENE:
            sim.scene = optarg;
            break;
        case LONG_MOTOR:
            good = motor_parameter_set(&sim.parameters, optarg, &error) == 0;
            break;
        case LONG_ANALYSIS:
            good = whole_number(optarg, 0, 195, &value);
            sim.analysis_ms = static_cast<unsigned>(value);
            break;
        case LONG_EVERY:
            good = whole_number(optarg, 200, 10000, &value) && value % RENDERED_STEP_MS == 0;
            sim.every_ms = static_cast<unsigned>(value);
            break;
        case LONG_SECONDS:
            good = whole_number(optarg, 1, 1000000, &value);
            sim.end_ms = static_cast<uint64_t>(value) * 1000;
            break;
        case 'h':
            fputs(help, stdout);
            return 1;
        default:
            return -1;
        }
        if (!good) {
            desk_say("\"%s\" is no such value%s%s", optarg, error.empty() ? "" : ": ", error.c_str());
            return -1;
        }
    }
    if (!sim.scene.empty() && optind == argc)
        return 0;
    fputs(help, stderr);
    return -1;
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-track-sim");
    const int parsed = parse(argc, argv);
    if (parsed != 0)
        return parsed > 0 ? 0 : 2;
    render_prepare();
    if (desk_enter_root(true) != 0)
        return 1;
    // With room for the scaler's vectors.
    for (std::vector<uint8_t> &picture : sim.picture)
        picture.resize(ANALYSIS_FRAME_BYTES + 64);
    naro_log_set_sink(on_log, nullptr);
    const naro_clock clock = {nullptr, wall_ms, nullptr, nullptr, nullptr};
    naro_clock_replace(&clock);
    MI_IVE_Create(0);
    const int result = run();
    MI_IVE_Destroy(0);
    picture_exit();
    return result;
}
