// The camera's figures as JSON.
#include "status.h"

#include <ev.h>
#include <json-c/json.h>
#include <memory>
#include <stdio.h>
#include <utility>

#include "command_server.h"
#include "desk.h"
#include "events.h"
#include "frames.h"
#include "motor_head.h"
#include "motor_view.h"
#include "shbfev.h"
#include "sound.h"
#include "source.h"
#include "supervisor.h"

namespace
{

struct {
    struct ev_loop *loop;
    const camera_options *options;
    const std::map<std::string, uint64_t> *events_by_name;
    void *channel;
} status;

void add(json_object *to, const char *name, uint64_t number)
{
    json_object_object_add(to, name, json_object_new_int64(static_cast<int64_t>(number)));
}

void add(json_object *to, const char *name, bool yes)
{
    json_object_object_add(to, name, json_object_new_boolean(yes));
}

// How long ago something was, null if it never was.
void add_age(json_object *to, const char *name, double at)
{
    const double age = ev_now(status.loop) - at;
    json_object_object_add(
        to, name, at > 0 ? json_object_new_int64(static_cast<int64_t>(age > 0 ? age * 1000 : 0)) : nullptr);
}

json_object *source_object(const frames_counts *frames)
{
    json_object *object = json_object_new_object();
    json_object_object_add(object, "name", json_object_new_string(status.options->source));
    add(object, "time_ms", frames->last_time_ms);
    add(object, "live", source_is_live());
    add(object, "reopened", static_cast<uint64_t>(source_reopened()));
    return object;
}

json_object *frames_object(const frames_counts *frames)
{
    json_object *object = json_object_new_object();
    add(object, "sent", frames->sent);
    add(object, "analysed", frames->analysed);
    add(object, "compared", frames->compared);
    add(object, "dropped", frames->lost);
    add(object, "with_motion", frames->with_motion);
    add(object, "with_people", frames->with_people);
    return object;
}

json_object *events_object(void)
{
    json_object *object = json_object_new_object();
    for (const auto &[name, count] : *status.events_by_name)
        add(object, name.c_str(), count);
    return object;
}

json_object *daemon_object(const frames_counts *frames)
{
    json_object *object = json_object_new_object();
    supervisor_figures figures;
    supervisor_get_figures(&figures);
    add(object, "connected", frames->connected);
    if (!status.options->daemon)
        return object;
    json_object_object_add(object, "pid", figures.pid > 0 ? json_object_new_int64(figures.pid) : nullptr);
    add(object, "up_ms", figures.up_ms);
    add(object, "restarts", static_cast<uint64_t>(figures.restarts));
    add(object, "threads", figures.threads);
    json_object_object_add(object, "cpu_ms",
                           json_object_new_int64(static_cast<int64_t>(figures.cpu_s * 1000)));
    add(object, "peak_kib", figures.peak_kib);
    return object;
}

json_object *commands_object(const frames_counts *frames)
{
    const command_server_counts *counts = command_server_get_counts();
    json_object *object = json_object_new_object();
    add(object, "answered", counts->commands);
    add(object, "refused", counts->refused);
    add(object, "clients", static_cast<uint64_t>(counts->clients));
    add_age(object, "last_age_ms", counts->last_command_at);
    add_age(object, "last_tracking_age_ms", frames->last_result_at);
    return object;
}

json_object *sound_object(void)
{
    const sound_counts *counts = sound_get_counts();
    json_object *object = json_object_new_object();
    add(object, "loud", counts->is_loud);
    char level[32]; // tenths are enough
    snprintf(level, sizeof level, "%.1f", counts->level_db);
    json_object_object_add(object, "level_db",
                           counts->has_level ? json_object_new_double_s(counts->level_db, level) : nullptr);
    add(object, "asked", counts->asked);
    add(object, "answered_loud", counts->loud);
    add(object, "told", counts->told);
    return object;
}

json_object *picture_object(void)
{
    const isp_state *isp = command_server_isp();
    json_object *object = json_object_new_object();
    add(object, "night", isp->mode == ISP_MODE_NIGHT);
    add(object, "wdr", isp->wdr);
    add(object, "colour_transform", isp->colour_transform);
    add(object, "motion_grid", isp->motion_grid);
    json_object *grid = json_object_new_array();
    for (const uint8_t cell : isp->grid)
        json_object_array_add(grid, json_object_new_int(cell));
    json_object_object_add(object, "grid", grid);
    add(object, "pwm_duty_percent", static_cast<uint64_t>(isp->pwm_duty_percent));
    add(object, "tracking", isp->tracking);
    json_object *boxes = json_object_new_array();
    for (int i = 0; i < event_boxes(&isp->track); i++) {
        const naro_track_box &box = isp->track.box[i];
        json_object *corners = json_object_new_array();
        for (const int32_t word : {box.x1, box.y1, box.x2, box.y2})
            json_object_array_add(corners, json_object_new_int(word));
        json_object_array_add(boxes, corners);
    }
    json_object_object_add(object, "boxes", boxes);
    return object;
}

json_object *view_object(void)
{
    motor_view_record view;
    if (!motor_head_record(&view))
        return nullptr;
    json_object *object = json_object_new_object();
    for (const auto &[name, axis] :
         {std::make_pair("right", MOTOR_PAN), std::make_pair("down", MOTOR_TILT)}) {
        char degrees[32]; // tenths are enough
        snprintf(degrees, sizeof degrees, "%.1f", view.place.axis[axis].head);
        json_object_object_add(object, name, json_object_new_double_s(view.place.axis[axis].head, degrees));
    }
    add(object, "turning", view.turning);
    add(object, "moves", static_cast<uint64_t>(view.moves));
    return object;
}

int on_request(void *, const void *, size_t)
{
    const std::string text = status_json();
    shbfev_brd_broadcast_message(status.channel, text.c_str(), text.size() + 1);
    return 0;
}

} // namespace

std::string status_json(void)
{
    const frames_counts *frames = frames_get_counts();
    std::unique_ptr<json_object, int (*)(json_object *)> top(json_object_new_object(), json_object_put);
    json_object_object_add(top.get(), "source", source_object(frames));
    add(top.get(), "fast", status.options->fast);
    json_object_object_add(top.get(), "frames", frames_object(frames));
    json_object_object_add(top.get(), "events", events_object());
    json_object_object_add(top.get(), "commands", commands_object(frames));
    json_object_object_add(top.get(), "daemon", daemon_object(frames));
    json_object_object_add(top.get(), "picture", picture_object());
    json_object_object_add(top.get(), "sound", sound_object());
    json_object_object_add(top.get(), "view", view_object());
    return json_object_to_json_string_ext(top.get(), JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

void status_start(struct ev_loop *loop, const camera_options *options,
                  const std::map<std::string, uint64_t> *events_by_name)
{
    status.loop = loop;
    status.options = options;
    status.events_by_name = events_by_name;
    status.channel = shbfev_brd_create(STATUS_PATH);
    if (status.channel && shbfev_brd_on_message(status.channel, on_request, nullptr) == 0 &&
        shbfev_brd_start(loop, status.channel) >= 0)
        return;
    desk_say("%s cannot be opened; naro-status will not work", STATUS_PATH);
    status_stop();
}

void status_stop(void)
{
    shbfev_brd_destroy(status.channel);
    status.channel = nullptr;
}
