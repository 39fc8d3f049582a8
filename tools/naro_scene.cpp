// naro-scene: looks at scenes without a camera and a daemon around them: contact sheets, and how many of the people in
// them the daemon's detector knows for people.
#include <algorithm>
#include <cairo.h>
#include <errno.h>
#include <getopt.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

#include "desk.h"
#include "detector.h"
#include "event_channels.h"
#include "frames.h"
#include "mid_hchd_region.h"
#include "overlay.h"
#include "picture.h"
#include "render.h"
#include "rendered.h"
#include "world.h"

namespace
{

const char help[] =
    "usage: naro-scene --sheet FILE.png [--columns N] [--truth] SCENE@SECONDS...\n"
    "       naro-scene --recognise [--every SECONDS] [--within METRES] [SCENE...]\n"
    "       naro-scene --pictures DIR [--every SECONDS] [--seconds N] [SCENE...]\n"
    "       naro-scene --speed SCENE@SECONDS...\n"
    "\n"
    "With --sheet: draws moments of scenes (see naro_camera --scenes) into one picture, as the camera sees "
    "them.\n"
    "  --columns N     pictures in a row (3)\n"
    "  --truth         with what is really to be seen drawn in\n"
    "\n"
    "With --recognise: looks at every person that is wholly visible, upright or not, in a crop around it as "
    "the daemon\n"
    "would cut it, and counts whom the daemon's detector reports there. Without names: in all scenes.\n"
    "  --every S       a look each S seconds of the scene (2)\n"
    "  --within M      people up to M metres away (6)\n"
    "  --misses FILE   also writes a sheet of people that were not recognised\n"
    "\n"
    "With --pictures: writes what the daemon is sent as pictures into DIR/rendered, and where people are "
    "into\n"
    "DIR/rendered.jsonl and, of pictures without anybody, DIR/rendered_empty.jsonl, as model/train.py reads "
    "them.\n"
    "Pictures with somebody who is half hidden are left out.\n"
    "  --seconds N     of scenes that do not end (3600)\n"
    "\n"
    "With --speed: draws a hundred pictures from each moment on, and tells the processor time of one, on one "
    "core, and how\n"
    "many a second that makes.\n"
    "\n"
    "  --help          this text\n";

// A person counts as wholly visible from this share on: single pixels at its edge may be anything's.
const float WHOLLY_VISIBLE = 0.95f;
// A report is of a person when their boxes share at least this part (intersection over union): the detector's boxes
// are looser than outlines.
const double SAME = 0.4;
// Automatic exposure and what the sensor's noise reduction remembers have settled when a moment is looked at.
const uint64_t LEAD_IN = 2;
// Less of a person than this is nobody that anybody would label; from the other share on it is a person.
const float TRACE = 0.04f, LABELLED = 0.5f;

enum light { LIGHT_DAY, LIGHT_LAMPS, LIGHT_INFRARED, LIGHTS };
const char *const light_names[LIGHTS] = {"day", "lamps", "infrared"};

struct tally {
    unsigned looked, found;
};

struct {
    int columns = 3;
    bool truth;
    double every = 2, within = 6;
    double seconds = 3600;
    const char *sheet, *misses, *pictures;
    unsigned written;
    FILE *people, *empty;
    tally by_light[LIGHTS], by_distance[LIGHTS][8];
    std::vector<std::vector<uint32_t>> tiles;
    tally now; // of the scene at hand
} run;

bool write_sheet(const char *path)
{
    const int columns = std::max(1, std::min<int>(run.columns, static_cast<int>(run.tiles.size())));
    const int rows = (static_cast<int>(run.tiles.size()) + columns - 1) / columns;
    cairo_surface_t *sheet =
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, columns * VIEW_WIDTH, rows * VIEW_HEIGHT);
    cairo_surface_flush(sheet);
    unsigned char *data = cairo_image_surface_get_data(sheet);
    const int stride = cairo_image_surface_get_stride(sheet);
    for (size_t i = 0; data && i < run.tiles.size(); i++)
        for (int y = 0; y < VIEW_HEIGHT; y++)
            memcpy(data + (static_cast<ptrdiff_t>(static_cast<int>(i) / columns) * VIEW_HEIGHT + y) * stride +
                       static_cast<ptrdiff_t>(static_cast<int>(i) % columns) * VIEW_WIDTH * 4,
                   run.tiles[i].data() + static_cast<ptrdiff_t>(y) * VIEW_WIDTH, VIEW_WIDTH * 4);
    cairo_surface_mark_dirty(sheet);
    const cairo_status_t status = cairo_surface_write_to_png(sheet, path);
    cairo_surface_destroy(sheet);
    if (status != CAIRO_STATUS_SUCCESS)
        desk_say("%s: %s", path, cairo_status_to_string(status));
    return status == CAIRO_STATUS_SUCCESS;
}

void keep_tile(const AVFrame *frame, const frame_result *shown, bool with_truth)
{
    const rendered_extra *extra = rendered_extra_of(frame);
    std::vector<uint32_t> pixels(VIEW_WIDTH * VIEW_HEIGHT + 16); // the scaler may store whole vectors
    if (picture_to_view(extra->view, VIEW_WIDTH, VIEW_HEIGHT, pixels.data()) != 0)
        return;
    if (with_truth)
        overlay_draw(pixels.data(), shown, &extra->truth);
    run.tiles.push_back(std::move(pixels));
}

// The picture at a moment, exposure settled; null after the reason was said.
AVFrame *picture_at(uint64_t number)
{
    rendered_settle();
    for (uint64_t before = number > LEAD_IN ? number - LEAD_IN : 0; before < number; before++) {
        AVFrame *frame = rendered_picture(before);
        if (!frame)
            return nullptr;
        av_frame_free(&frame);
    }
    return rendered_picture(number);
}

// Takes SCENE@SECONDS apart. False after saying that it is not that.
bool read_moment(const char *what, std::string *scene, uint64_t *number)
{
    const char *at = strrchr(what, '@');
    char *end = nullptr;
    const double seconds = at ? strtod(at + 1, &end) : 0;
    if (!at || end == at + 1 || *end || !(seconds >= 0 && seconds < 1e7)) {
        desk_say("a moment is SCENE@SECONDS, not \"%s\"", what);
        return false;
    }
    scene->assign(what, static_cast<size_t>(at - what));
    *number = static_cast<uint64_t>(llround(seconds * 1000 / RENDERED_STEP_MS));
    return true;
}

bool sheet_moment(const char *what)
{
    std::string scene;
    uint64_t number;
    if (!read_moment(what, &scene, &number))
        return false;
    const rendered_settings settings = {scene.c_str(), false, true, false};
    if (rendered_open(&settings) != 0)
        return false;
    AVFrame *frame = picture_at(number);
    if (frame) {
        frame_result shown = {};
        shown.time_ms = number * RENDERED_STEP_MS;
        keep_tile(frame, &shown, run.truth);
    }
    const bool done = frame != nullptr;
    av_frame_free(&frame);
    rendered_close();
    return done;
}

double processor_seconds(void)
{
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

bool speed_from(const char *what)
{
    const int pictures = 100;
    std::string scene;
    uint64_t number;
    if (!read_moment(what, &scene, &number))
        return false;
    const rendered_settings settings = {scene.c_str(), true, false, false};
    if (rendered_open(&settings) != 0)
        return false;
    double begun = 0; // the first pictures build what is built once
    bool done = true;
    for (int i = -10; done && i < pictures; i++) {
        if (i == 0)
            begun = processor_seconds();
        AVFrame *frame = rendered_picture(number++);
        done = frame != nullptr;
        av_frame_free(&frame);
    }
    const double each = (processor_seconds() - begun) / pictures;
    if (done)
        printf("%-32s %6.1f ms a picture, %5.1f a second\n", what, 1000 * each, 1 / each);
    rendered_close();
    return done;
}

double shared_part(const float a[4], const BBox &b, const pixel_rect &crop)
{
    const double x1 = b.x1 + crop.x1, y1 = b.y1 + crop.y1, x2 = b.x2 + crop.x1, y2 = b.y2 + crop.y1;
    const double w = std::min<double>(a[2], x2) - std::max<double>(a[0], x1);
    const double h = std::min<double>(a[3], y2) - std::max<double>(a[1], y1);
    if (w <= 0 || h <= 0)
        return 0;
    const double own = static_cast<double>(a[2] - a[0]) * static_cast<double>(a[3] - a[1]);
    return w * h / (own + (x2 - x1) * (y2 - y1) - w * h);
}

// Whether the detector reports the actor in a crop around it: the blocks that it covers, as if all of it had moved.
bool recognised(const AVFrame *frame, const truth_actor &actor, frame_result *shown)
{
    const block_rect blocks = {
        static_cast<int>(actor.box[0]) / DETECTION_BLOCK,
        (static_cast<int>(ceilf(actor.box[2])) + DETECTION_BLOCK - 1) / DETECTION_BLOCK,
        static_cast<int>(actor.box[1]) / DETECTION_BLOCK,
        (static_cast<int>(ceilf(actor.box[3])) + DETECTION_BLOCK - 1) / DETECTION_BLOCK};
    const pixel_rect crop = region_crop(region_grown(blocks));
    const uint8_t *luma = frame->data[0] + crop.y1 * frame->linesize[0] + crop.x1;
    const uint8_t *chroma = frame->data[1] + crop.y1 / 2 * frame->linesize[1] + crop.x1 / 2 * 2;
    std::string why;
    const int count = detector_look(luma, frame->linesize[0], chroma, frame->linesize[1],
                                    crop.x2 - crop.x1 + 1, crop.y2 - crop.y1 + 1, &why);
    if (count < 0)
        desk_say("%s", why.c_str());
    bool found = false;
    shown->boxes = 0;
    for (int i = 0; i < count; i++) {
        const BBox &box = detector_boxes()[i];
        found = found || shared_part(actor.box, box, crop) >= SAME;
        if (i < NARO_TRACK_BOXES)
            shown->track.box[shown->boxes++] = {box.x1 + crop.x1, box.y1 + crop.y1, box.x2 + crop.x1,
                                                box.y2 + crop.y1};
    }
    return found;
}

light light_of(const truth_moment &truth)
{
    if (!truth.filter)
        return LIGHT_INFRARED;
    for (const auto &[name, on] : truth.lamps)
        if (on && (name == "ceiling" || name == "table"))
            return LIGHT_LAMPS;
    return LIGHT_DAY;
}

void look_at(const AVFrame *frame, uint64_t number)
{
    const rendered_extra *extra = rendered_extra_of(frame);
    const light light = light_of(extra->truth);
    for (const truth_actor &actor : extra->truth.actors) {
        if (actor.kind != "person" || actor.visible < WHOLLY_VISIBLE ||
            static_cast<double>(actor.distance) > run.within)
            continue;
        frame_result shown = {};
        shown.time_ms = number * RENDERED_STEP_MS;
        const bool found = recognised(frame, actor, &shown);
        const int metres = std::min(7, static_cast<int>(actor.distance));
        for (tally *one : {&run.now, &run.by_light[light], &run.by_distance[light][metres]}) {
            one->looked++;
            one->found += found;
        }
        if (!found && run.misses && run.tiles.size() < 60)
            keep_tile(frame, &shown, true);
    }
}

// Writes one picture and its people.
bool write_picture(const AVFrame *frame)
{
    std::string boxes;
    for (const truth_actor &actor : rendered_extra_of(frame)->truth.actors) {
        if (actor.kind != "person" || actor.visible < TRACE)
            continue;
        if (actor.visible < LABELLED)
            return true;
        char text[80];
        snprintf(text, sizeof text, "%s[%.1f,%.1f,%.1f,%.1f]", boxes.empty() ? "" : ",",
                 static_cast<double>(actor.box[0]), static_cast<double>(actor.box[1]),
                 static_cast<double>(actor.box[2]), static_cast<double>(actor.box[3]));
        boxes += text;
    }
    std::vector<uint32_t> pixels(ANALYSIS_WIDTH * ANALYSIS_HEIGHT + 16);
    if (picture_to_view(frame, ANALYSIS_WIDTH, ANALYSIS_HEIGHT, pixels.data()) != 0)
        return false;
    char name[40];
    snprintf(name, sizeof name, "rendered/%06u.png", run.written++);
    cairo_surface_t *surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char *>(pixels.data()), CAIRO_FORMAT_RGB24, ANALYSIS_WIDTH, ANALYSIS_HEIGHT,
        4 * ANALYSIS_WIDTH);
    const std::string path = std::string(run.pictures) + "/" + name;
    const cairo_status_t status = cairo_surface_write_to_png(surface, path.c_str());
    cairo_surface_destroy(surface);
    if (status != CAIRO_STATUS_SUCCESS)
        desk_say("%s: %s", path.c_str(), cairo_status_to_string(status));
    fprintf(boxes.empty() ? run.empty : run.people, "{\"file\":\"%s\",\"boxes\":[%s]}\n", name,
            boxes.c_str());
    return status == CAIRO_STATUS_SUCCESS;
}

bool look_through(const std::string &scene)
{
    const rendered_settings settings = {scene.c_str(), false, run.misses != nullptr, false};
    if (rendered_open(&settings) != 0)
        return false;
    run.now = {};
    const uint64_t end = rendered_end_ms() > 0 ? rendered_end_ms() / RENDERED_STEP_MS
                                               : static_cast<uint64_t>(run.seconds * 1000) / RENDERED_STEP_MS;
    const uint64_t step =
        std::max<uint64_t>(1, static_cast<uint64_t>(llround(run.every * 1000 / RENDERED_STEP_MS)));
    bool done = true;
    for (uint64_t number = step / 2; done && number < end; number += step) {
        AVFrame *frame = picture_at(number);
        done = frame != nullptr;
        if (done && run.pictures)
            done = write_picture(frame);
        else if (done)
            look_at(frame, number);
        av_frame_free(&frame);
    }
    rendered_close();
    if (run.now.looked > 0)
        printf("%-24s %4u of %4u recognised\n", scene.c_str(), run.now.found, run.now.looked);
    fflush(stdout);
    return done;
}

void print_tally(const char *name, const tally &one)
{
    if (one.looked > 0)
        printf("%-24s %4u of %4u recognised, %.1f %%\n", name, one.found, one.looked,
               100. * one.found / one.looked);
}

bool recognise(const std::vector<std::string> &scenes)
{
    NetworkConfig config = {ANALYSIS_HEIGHT, ANALYSIS_WIDTH, 0.5f, 0.5f, 1, NARO_TRACK_BOXES};
    if (detector_start(&config) != 0) {
        desk_say("the detector cannot be started");
        return false;
    }
    bool done = true;
    for (const std::string &scene : scenes)
        done = look_through(scene) && done;
    for (int light = 0; light < LIGHTS; light++) {
        print_tally(light_names[light], run.by_light[light]);
        for (int metres = 0; metres < 8; metres++) {
            char name[40];
            snprintf(name, sizeof name, "  from %d m", metres);
            print_tally(name, run.by_distance[light][metres]);
        }
    }
    detector_stop();
    return done && (!run.misses || run.tiles.empty() || write_sheet(run.misses));
}

bool write_pictures(const std::vector<std::string> &scenes)
{
    const std::string folder = run.pictures;
    mkdir((folder + "/rendered").c_str(), 0777);
    run.people = fopen((folder + "/rendered.jsonl").c_str(), "we");
    run.empty = fopen((folder + "/rendered_empty.jsonl").c_str(), "we");
    bool done = run.people && run.empty;
    if (!done)
        desk_say("%s: %s", run.pictures, strerror(errno));
    for (const std::string &scene : scenes)
        done = done && look_through(scene);
    for (FILE *file : {run.people, run.empty})
        done = file && fclose(file) == 0 && done;
    return done;
}

// Ends the program where `text` is no number between the bounds.
double number_of(const char *option, const char *text, double least, double most)
{
    char *end;
    const double value = strtod(text, &end);
    if (end == text || *end || !(value >= least && value <= most)) {
        desk_say("%s wants a number from %g to %g, not \"%s\"", option, least, most, text);
        exit(2);
    }
    return value;
}

} // namespace

int main(int argc, char **argv)
{
    desk_set_program("naro-scene");
    render_prepare();
    static const option options[] = {
        {"sheet", required_argument, nullptr, 's'},   {"recognise", no_argument, nullptr, 'r'},
        {"columns", required_argument, nullptr, 'c'}, {"truth", no_argument, nullptr, 't'},
        {"every", required_argument, nullptr, 'e'},   {"within", required_argument, nullptr, 'w'},
        {"misses", required_argument, nullptr, 'm'},  {"pictures", required_argument, nullptr, 'p'},
        {"seconds", required_argument, nullptr, 'n'}, {"speed", no_argument, nullptr, 'v'},
        {"help", no_argument, nullptr, 'h'},          {}};
    bool recognising = false, measuring = false;
    for (int option; (option = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (option) {
        case 's':
            run.sheet = optarg;
            break;
        case 'r':
            recognising = true;
            break;
        case 'c':
            run.columns = static_cast<int>(number_of("--columns", optarg, 1, 20));
            break;
        case 't':
            run.truth = true;
            break;
        case 'e':
            run.every = number_of("--every", optarg, 0.2, 3600);
            break;
        case 'w':
            run.within = number_of("--within", optarg, 0.1, 100);
            break;
        case 'm':
            run.misses = optarg;
            break;
        case 'p':
            run.pictures = optarg;
            break;
        case 'v':
            measuring = true;
            break;
        case 'n':
            run.seconds = number_of("--seconds", optarg, 1, 1e7);
            break;
        case 'h':
            fputs(help, stdout);
            return 0;
        default:
            fputs(help, stderr);
            return 2;
        }
    }
    std::vector<std::string> names(argv + optind, argv + argc);
    if (recognising + measuring + (run.sheet != nullptr) + (run.pictures != nullptr) != 1 ||
        ((run.sheet || measuring) && names.empty())) {
        fputs(help, stderr);
        return 2;
    }
    bool done = true;
    if (!run.sheet && names.empty())
        names = world_names();
    if (measuring) {
        for (const std::string &name : names)
            done = speed_from(name.c_str()) && done;
    } else if (recognising) {
        done = recognise(names);
    } else if (run.pictures) {
        done = write_pictures(names);
    } else {
        for (const std::string &name : names)
            done = sheet_moment(name.c_str()) && done;
        done = write_sheet(run.sheet) && done;
    }
    picture_exit();
    overlay_exit();
    return done ? 0 : 1;
}
