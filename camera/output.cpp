// Event lines and the summary.
#include "output.h"

#include <errno.h>
#include <inttypes.h>
#include <map>
#include <stdio.h>
#include <string.h>
#include <string>

#include "desk.h"
#include "event_channels.h"
#include "events.h"
#include "overlay.h"
#include "picture.h"
#include "record.h"
#include "rendered.h"
#include "status.h"
#include "supervisor.h"
#include "window.h"

namespace
{

struct {
    const camera_options *options;
    std::map<std::string, uint64_t> events_by_name;
    FILE *truth, *frames;
    uint32_t view[VIEW_WIDTH * VIEW_HEIGHT + 16]; // the scaler may store whole vectors
} output;

// What is known about the frame's picture; null unless it is a scene's.
const rendered_extra *extra_of(const frame_result *result)
{
    return result->picture ? rendered_extra_of(result->picture) : nullptr;
}

void write_truth(const frame_result *result)
{
    const rendered_extra *extra = extra_of(result);
    if (!output.truth || !extra)
        return;
    truth_moment truth = extra->truth;
    truth.number = result->number; // of the frames sent
    fprintf(output.truth, "%s\n", truth_json(&truth).c_str());
}

// `path` null: nothing to open.
int open_file(const char *path, FILE **file)
{
    *file = path ? fopen(path, "we") : nullptr;
    if (!path || *file)
        return 0;
    desk_say("%s: %s", path, strerror(errno));
    return -1;
}

void close_file(const char *path, FILE **file)
{
    if (!*file)
        return;
    const bool broken = ferror(*file) != 0;
    if (fclose(*file) != 0 || broken)
        desk_say("%s: not all of it could be written", path);
    *file = nullptr;
}

void show_picture(const frame_result *result)
{
    if (!result->picture || !(output.options->record || output.options->window))
        return;
    const rendered_extra *extra = extra_of(result);
    const AVFrame *picture = extra && extra->view ? extra->view : result->picture;
    if (picture_to_view(picture, VIEW_WIDTH, VIEW_HEIGHT, output.view) != 0)
        return;
    overlay_draw(output.view, result, extra ? &extra->truth : nullptr);
    if (output.options->record)
        record_picture(output.view, result->time_ms);
    if (output.options->window)
        window_picture(output.view);
}

double source_seconds(const frames_counts *frames)
{
    return frames->sent > 0 ? static_cast<double>(frames->last_time_ms + FRAMES_STEP_MS) / 1000 : 0;
}

// The daemon's CPU time, in percent of one core over the source's time.
double cpu_percent(const frames_counts *frames, const supervisor_figures *daemon)
{
    return frames->sent > 0 ? 100 * daemon->cpu_s / source_seconds(frames) : 0;
}

void print_summary(const frames_counts *frames, const supervisor_figures *daemon)
{
    printf("\n");
    printf("frames      %" PRIu64 " sent, %" PRIu64 " analysed, %" PRIu64 " compared with only, %" PRIu64
           " dropped\n",
           frames->sent, frames->analysed, frames->compared, frames->lost);
    printf("motion      %" PRIu64 " frames\n", frames->with_motion);
    printf("people      %" PRIu64 " frames\n", frames->with_people);
    if (output.events_by_name.empty())
        printf("events      none\n");
    for (const auto &[name, count] : output.events_by_name)
        printf("events      %" PRIu64 " %s\n", count, name.c_str());
    if (!output.options->daemon)
        return;
    printf("CPU         %.2f s of the daemon, %.2f %% of one core for %.1f s of the source\n", daemon->cpu_s,
           cpu_percent(frames, daemon), source_seconds(frames));
    printf("memory      %.1f MB of the daemon, resident, at most\n",
           static_cast<double>(daemon->peak_kib) / 1024);
    if (daemon->restarts > 0)
        printf("restarts    %u of the daemon\n", daemon->restarts);
}

} // namespace

int output_start(struct ev_loop *loop, const camera_options *options)
{
    output.options = options;
    if (options->record && record_start(options->record) != 0)
        return -1;
    if (open_file(options->truth, &output.truth) != 0 || open_file(options->frames, &output.frames) != 0)
        return -1;
    if (output.frames)
        fprintf(output.frames, "YUV4MPEG2 W%d H%d F%d:1 Ip A1:1 C420jpeg XCOLORRANGE=LIMITED\n",
                ANALYSIS_WIDTH, ANALYSIS_HEIGHT, FRAMES_PER_SECOND);
    if (options->window)
        window_start(loop);
    status_start(loop, options, &output.events_by_name);
    return 0;
}

void output_result(const frame_result *result)
{
    for (const std::string &name : result->events) {
        const int boxes = name == EVENT_PEOPLE_MOTION ? result->boxes : 0;
        output.events_by_name[name]++;
        const std::string json = event_json(result->time_ms, name, result->track.box, boxes);
        if (output.options->record)
            record_event(json);
        if (output.options->summary_only)
            continue;
        puts(output.options->json ? json.c_str()
                                  : event_line(result->time_ms, name, result->track.box, boxes).c_str());
    }
    write_truth(result);
    show_picture(result);
}

void output_sound(void)
{
    frame_result sound = {}; // of no frame: the time is that of the newest
    sound.time_ms = frames_get_counts()->last_time_ms;
    sound.events = {EVENT_LOUD_SOUND};
    output_result(&sound);
}

void output_sent(const uint8_t *nv12)
{
    if (!output.frames)
        return;
    static uint8_t planes[ANALYSIS_FRAME_BYTES]; // Y, U, V
    const int chroma = ANALYSIS_FRAME_BYTES - ANALYSIS_CHROMA_OFFSET;
    memcpy(planes, nv12, ANALYSIS_CHROMA_OFFSET);
    for (int i = 0; i < chroma; i++)
        planes[ANALYSIS_CHROMA_OFFSET + i / 2 + i % 2 * (chroma / 2)] = nv12[ANALYSIS_CHROMA_OFFSET + i];
    fputs("FRAME\n", output.frames);
    fwrite(planes, sizeof planes, 1, output.frames);
}

bool output_broken(void)
{
    return ferror(stdout) != 0;
}

void output_summary(void)
{
    supervisor_figures daemon;
    const frames_counts *frames = frames_get_counts();
    supervisor_get_figures(&daemon);
    if (output.options->json)
        printf("{\"summary\":%s}\n", status_json().c_str());
    else
        print_summary(frames, &daemon);
}

void output_stop(void)
{
    close_file(output.options ? output.options->truth : nullptr, &output.truth);
    close_file(output.options ? output.options->frames : nullptr, &output.frames);
    record_stop();
    window_stop();
    status_stop();
    overlay_exit();
}
