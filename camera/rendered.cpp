// World, renderer and sensor, one picture after the other.
#include "rendered.h"

#include <algorithm>
#include <errno.h>
#include <math.h>
#include <pthread.h>
#include <string.h>
#include <string>

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "desk.h"
#include "event_channels.h"
#include "render.h"
#include "sensor.h"

namespace
{

// A person who walks at 1.4 m/s past 3 m away crosses a pixel of the analysis picture in about 15 ms: longer exposures are
// averaged from two moments while anything moves.
const float BLUR_FROM_US = 20000;
// A head that turns smears every picture: as many moments of an exposure are drawn as it passes pixels meanwhile, and no
// more than this many.
const int BLUR_MOMENTS_MAX = 4;
const double HEAD_SPAN_S = 0.04; // the longest exposure
const float TURNED = 0.02f;      // degrees; the gears' play and a step are larger

struct {
    rendered_settings settings;
    world *scene;
    scene_snapshot snapshot;
    render_picture light, part; // of the analysis picture; room for one of several moments
    render_picture view_light;
    sensor_state sensor, view_sensor;
    bool settled, view_settled;
    bool moving; // something moved in the last picture
    // Where the head is while a picture is drawn, read once: the picture for people and the truth are of the same moment.
    bool headed;
    float head_pan, head_tilt, head_pan_before, head_tilt_before; // before: HEAD_SPAN_S earlier
    bool aimed; // there was a last picture, and it looked there:
    float pan, tilt;

    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects the rest, which other threads set and read
    bool controlled;
    world_controls controls;
    bool metered;
    isp_light mean;
} state;

void free_extra(void *, uint8_t *data)
{
    rendered_extra *extra = reinterpret_cast<rendered_extra *>(data);
    av_frame_free(&extra->view);
    delete extra;
}

AVFrame *new_frame(int width, int height)
{
    AVFrame *frame = av_frame_alloc();
    if (!frame)
        return nullptr;
    frame->width = width;
    frame->height = height;
    frame->format = AV_PIX_FMT_NV12;
    frame->colorspace = AVCOL_SPC_SMPTE170M;
    frame->color_range = AVCOL_RANGE_MPEG;
    // Rows without gaps: the sensor writes them so.
    if (av_frame_get_buffer(frame, 1) != 0 || frame->linesize[0] != width || frame->linesize[1] != width)
        av_frame_free(&frame);
    return frame;
}

// A picture with room for what is known about it; null when there is no memory.
AVFrame *new_picture(rendered_extra **extra)
{
    AVFrame *frame = new_frame(ANALYSIS_WIDTH, ANALYSIS_HEIGHT);
    if (!frame)
        return nullptr;
    *extra = new rendered_extra();
    frame->opaque_ref = av_buffer_create(reinterpret_cast<uint8_t *>(*extra), sizeof **extra, free_extra,
                                         &state, AV_BUFFER_FLAG_READONLY);
    if (!frame->opaque_ref) {
        delete *extra;
        av_frame_free(&frame);
    }
    return frame;
}

// Scene time of a picture.
double time_of(uint64_t number)
{
    const double time = static_cast<double>(number) * RENDERED_STEP_MS / 1000,
                 length = world_seconds(state.scene);
    return state.settings.loop && length > 0 ? fmod(time, length) : time;
}

// What the camera's other parts have set, so long before the moment that is drawn; null: the scene's own holds.
const world_controls *current_controls(double before_s, world_controls *room)
{
    pthread_mutex_lock(&state.mutex);
    *room = state.controls;
    bool controlled = state.controlled;
    pthread_mutex_unlock(&state.mutex);
    if (state.headed) {
        const float share = static_cast<float>(before_s / HEAD_SPAN_S);
        room->pan = state.head_pan + (state.head_pan_before - state.head_pan) * share;
        room->tilt = state.head_tilt + (state.head_tilt_before - state.head_tilt) * share;
        controlled = room->view_set = true;
    }
    return controlled ? room : nullptr;
}

void read_head(void)
{
    state.headed = state.settings.head && state.settings.head(0, &state.head_pan, &state.head_tilt) &&
                   state.settings.head(HEAD_SPAN_S, &state.head_pan_before, &state.head_tilt_before);
}

// How many pixels of a picture of that width the head passes in so long.
int pixels_passed(double exposure_s, int width)
{
    if (!state.headed)
        return 0;
    const float degrees = std::max(fabsf(state.head_pan - state.head_pan_before),
                                   fabsf(state.head_tilt - state.head_tilt_before));
    return static_cast<int>(degrees * static_cast<float>(exposure_s / HEAD_SPAN_S) /
                            state.snapshot.view.width_angle * static_cast<float>(width));
}

void meter(const render_picture *light)
{
    double sums[BANDS] = {};
    for (size_t i = 0; i < light->light.size(); i++)
        sums[i % BANDS] += static_cast<double>(light->light[i]);
    const double pixels = static_cast<double>(light->light.size()) / BANDS;
    pthread_mutex_lock(&state.mutex);
    state.metered = true;
    // Photometric weights of the three bands (ITU-R BT.709).
    state.mean.visible =
        (0.2126 * sums[BAND_RED] + 0.7152 * sums[BAND_GREEN] + 0.0722 * sums[BAND_BLUE]) / pixels;
    state.mean.infrared = sums[BAND_INFRARED] / pixels;
    pthread_mutex_unlock(&state.mutex);
}

// The world knows what the head did since the snapshot before, which may be of the same exposure; what counts is the
// picture before.
void note_turn(truth_moment *truth)
{
    if (state.settings.head && state.aimed)
        truth->view_moves =
            fabsf(truth->pan - state.pan) > TURNED || fabsf(truth->tilt - state.tilt) > TURNED;
    state.aimed = true;
    state.pan = truth->pan;
    state.tilt = truth->tilt;
}

bool moves(const truth_moment &truth)
{
    for (const truth_actor &actor : truth.actors)
        if (actor.moves && actor.visible > 0)
            return true;
    return truth.view_moves || !truth.stirs.empty();
}

// Light of the exposure that ends at `time`, averaged over several moments if it is long or the head turns. The snapshot
// is left at `time`.
int expose(double time, const sensor_state *sensor, int width, int height, render_picture *light)
{
    const double exposure_s = static_cast<double>(sensor->exposure_us) / 1e6;
    const int least = sensor->exposure_us > BLUR_FROM_US && state.moving ? 2 : 1;
    const int moments = std::max(least, std::min(BLUR_MOMENTS_MAX, 1 + pixels_passed(exposure_s, width)));
    for (int i = 0; i < moments; i++) {
        const double before = (moments - 1 - i) * exposure_s / moments;
        world_controls room;
        world_snapshot(state.scene, std::max(0., time - before), current_controls(before, &room),
                       &state.snapshot);
        if (render_draw(&state.snapshot, width, height, i == 0 ? light : &state.part) != 0)
            return -1;
        if (i > 0)
            for (size_t n = 0; n < light->light.size(); n++)
                light->light[n] += state.part.light[n];
    }
    if (moments > 1)
        for (float &value : light->light)
            value *= 1.f / static_cast<float>(moments);
    return 0;
}

// One picture of the sensor, at the size of `frame`.
int take(double time, sensor_state *sensor, bool *settled, render_picture *light, AVFrame *frame)
{
    if (expose(time, sensor, frame->width, frame->height, light) != 0)
        return -1;
    if (!*settled)
        sensor_settle(sensor, &state.snapshot.optics, light);
    *settled = true;
    std::vector<uint8_t> bytes(static_cast<size_t>(frame->width) * frame->height * 3 / 2);
    sensor_expose(sensor, &state.snapshot.optics, light, bytes.data());
    const size_t luma = static_cast<size_t>(frame->width) * frame->height;
    memcpy(frame->data[0], bytes.data(), luma);
    memcpy(frame->data[1], bytes.data() + luma, luma / 2);
    return 0;
}

} // namespace

bool rendered_is_scene(const char *source, const char **scene)
{
    static const char prefix[] = "scene:";
    static const char random[] = "scenes/random?";
    const size_t length = strlen(source), ending = strlen(".json");
    if (strncmp(source, prefix, strlen(prefix)) == 0)
        *scene = source + strlen(prefix);
    else if (strncmp(source, random, strlen(random)) == 0)
        *scene = source + strlen("scenes/");
    else if (length > ending && strcmp(source + length - ending, ".json") == 0)
        *scene = source;
    else
        return false;
    return true;
}

int rendered_scene_settings(const char *scene, std::vector<std::pair<std::string, std::string>> *settings)
{
    world *opened = world_open(scene);
    if (!opened)
        return -1;
    for (const auto &[key, value] : world_settings(opened))
        settings->emplace_back(key, value);
    world_close(opened);
    return 0;
}

int rendered_open(const rendered_settings *settings)
{
    state.settings = *settings;
    state.scene = world_open(settings->scene);
    if (!state.scene)
        return -1;
    if (render_start(settings->gpu) != 0) {
        world_close(state.scene);
        state.scene = nullptr;
        return -1;
    }
    state.sensor = state.view_sensor = sensor_state();
    state.sensor.seed = state.view_sensor.seed = world_seed(state.scene);
    state.settled = state.view_settled = state.moving = state.aimed = false;
    return 0;
}

uint64_t rendered_end_ms(void)
{
    return state.settings.loop ? 0 : static_cast<uint64_t>(ceil(world_seconds(state.scene) * 1000));
}

AVFrame *rendered_picture(uint64_t number)
{
    rendered_extra *extra = nullptr;
    AVFrame *frame = new_picture(&extra);
    if (frame && state.settings.view)
        extra->view = new_frame(RENDERED_VIEW_SCALE * ANALYSIS_WIDTH, RENDERED_VIEW_SCALE * ANALYSIS_HEIGHT);
    if (!frame || (state.settings.view && !extra->view)) {
        desk_say("the scene's picture: %s", strerror(ENOMEM));
        av_frame_free(&frame);
        return nullptr;
    }
    const double time = time_of(number);
    read_head();
    if (take(time, &state.sensor, &state.settled, &state.light, frame) != 0 ||
        (extra->view &&
         take(time, &state.view_sensor, &state.view_settled, &state.view_light, extra->view) != 0)) {
        av_frame_free(&frame);
        return nullptr;
    }
    meter(&state.light);
    world_truth(state.scene, &state.snapshot, number, &extra->truth);
    note_turn(&extra->truth);
    state.moving = moves(extra->truth);
    return frame;
}

void rendered_control(const world_controls *controls)
{
    pthread_mutex_lock(&state.mutex);
    state.controls = *controls;
    state.controlled = true;
    pthread_mutex_unlock(&state.mutex);
}

bool rendered_light(isp_light *light)
{
    pthread_mutex_lock(&state.mutex);
    *light = state.mean;
    const bool metered = state.metered;
    pthread_mutex_unlock(&state.mutex);
    return metered;
}

void rendered_settle(void)
{
    state.settled = state.view_settled = false;
}

void rendered_close(void)
{
    render_stop();
    world_close(state.scene);
    state.scene = nullptr;
    pthread_mutex_lock(&state.mutex);
    state.controlled = state.metered = false;
    pthread_mutex_unlock(&state.mutex);
    state.snapshot = scene_snapshot();
    state.light = state.part = state.view_light = render_picture();
}

const rendered_extra *rendered_extra_of(const AVFrame *frame)
{
    if (!frame->opaque_ref || av_buffer_get_opaque(frame->opaque_ref) != &state)
        return nullptr;
    return reinterpret_cast<const rendered_extra *>(frame->opaque_ref->data);
}
