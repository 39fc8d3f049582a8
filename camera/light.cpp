// Schedule, lamps, and the timer that meters.
#include "light.h"

#include <errno.h>
#include <ev.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "command_server.h"
#include "desk.h"
#include "naro_util.h"
#include "rendered.h"

namespace
{

const double STEP_S = 0.1;

struct {
    struct ev_loop *loop;
    ev_timer timer;
    bool running;
    light_settings settings;
    std::vector<light_moment> schedule;
    uint64_t started_ms, last_ms;
    isp_constants constants;
    isp_metering metering;
} state;

// What is metered now; false where nothing is known of the light.
bool light_now(isp_light *light)
{
    if (!state.schedule.empty()) {
        const double seconds = static_cast<double>(naro_clock_monotonic_ms() - state.started_ms) / 1000;
        *light = light_of_room(light_schedule_at(state.schedule, seconds), *board_get());
        return true;
    }
    return state.settings.rendered && rendered_light(light);
}

void pass_to_room(void)
{
    const board_state *board = board_get();
    const room_constants room;
    world_controls controls;
    controls.lights_set = true;
    controls.filter = board->filter_day;
    controls.grey = command_server_isp()->mode == ISP_MODE_NIGHT;
    const double lamp = board->pwm_percent / 100. * room.ir_lamp / room.ir_led;
    controls.infrared = static_cast<float>(fmin(1, board->high[BOARD_IR_LED] + lamp));
    controls.white = board->high[BOARD_WHITE_LED];
    rendered_control(&controls);
}

void on_timer(struct ev_loop *, ev_timer *, int)
{
    const uint64_t now = naro_clock_monotonic_ms();
    const double seconds = static_cast<double>(now - state.last_ms) / 1000;
    state.last_ms = now;
    if (state.settings.rendered && state.settings.daemon)
        pass_to_room();
    isp_light light;
    if (!light_now(&light))
        return;
    naro_isp_ev_attr exposure;
    naro_isp_wb_attr balance;
    isp_model_step(&state.constants, &state.metering, &light, board_get()->filter_day, seconds, &exposure,
                   &balance);
    command_server_set_light(&exposure, &balance);
}

int read_schedule(const char *path)
{
    FILE *file = fopen(path, "re");
    if (!file) {
        desk_say("%s: %s", path, strerror(errno));
        return -1;
    }
    std::string text(LIGHT_FILE_MAX + 1, '\0'), error;
    text.resize(fread(&text[0], 1, text.size(), file));
    fclose(file);
    if (text.size() > LIGHT_FILE_MAX)
        error = "larger than a schedule can be";
    if (!error.empty() || light_schedule_parse(text, &state.schedule, &error) != 0) {
        desk_say("%s: %s", path, error.c_str());
        return -1;
    }
    return 0;
}

} // namespace

int light_start(struct ev_loop *loop, const light_settings *settings)
{
    state.loop = loop;
    state.settings = *settings;
    state.schedule.clear();
    state.metering = {};
    if (settings->schedule && read_schedule(settings->schedule) != 0)
        return -1;
    state.started_ms = state.last_ms = naro_clock_monotonic_ms();
    ev_timer_init(&state.timer, on_timer, 0., STEP_S);
    ev_timer_start(loop, &state.timer);
    state.running = true;
    return 0;
}

void light_stop(void)
{
    if (!state.running)
        return;
    ev_timer_stop(state.loop, &state.timer);
    state.running = false;
}
