// Event lines and the summary.
#include "output.h"

#include <inttypes.h>
#include <map>
#include <stdio.h>
#include <string>

#include "event_channels.h"
#include "events.h"
#include "supervisor.h"

namespace
{

struct {
    const camera_options *options;
    std::map<std::string, uint64_t> events_by_name;
} output;

void print_summary(const frames_counts *frames, const supervisor_figures *daemon)
{
    const double source_s = static_cast<double>(frames->last_time_ms + FRAMES_STEP_MS) / 1000;
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
           frames->sent > 0 ? 100 * daemon->cpu_s / source_s : 0., source_s);
    printf("memory      %.1f MB at most, resident, of the daemon\n",
           static_cast<double>(daemon->peak_kib) / 1024);
    if (daemon->restarts > 0)
        printf("restarts    %u of the daemon\n", daemon->restarts);
}

} // namespace

void output_start(const camera_options *options)
{
    output.options = options;
}

void output_result(const frame_result *result)
{
    for (const std::string &name : result->events) {
        output.events_by_name[name]++;
        if (output.options->summary_only)
            continue;
        const int boxes = name == EVENT_PEOPLE_MOTION ? result->boxes : 0;
        const std::string line = output.options->json
                                     ? event_json(result->time_ms, name, result->track.box, boxes)
                                     : event_line(result->time_ms, name, result->track.box, boxes);
        puts(line.c_str());
    }
}

bool output_broken(void)
{
    return ferror(stdout) != 0;
}

void output_summary(void)
{
    supervisor_figures daemon;
    supervisor_get_figures(&daemon);
    print_summary(frames_get_counts(), &daemon);
}

void output_stop(void) {}
