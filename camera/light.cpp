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
// A furnished room of middling brightness sends back two fifths of the light that falls on it.
const double REFLECTANCE = 0.4;
// Daylight and lamps that glow carry about as much for the bare sensor in near infrared as they carry visibly.
const double INFRARED_OF_DAYLIGHT = 0.8;
// What the camera's lamps throw on a wall 3 m away: a white LED of one watt, infrared LEDs, and the infrared lamp at full
// duty. Lux, and infrared in the same measure.
const double WHITE_LED_LUX = 12, IR_LED = 14, IR_LAMP = 10;
const double DARKEST = 1e-4; // lux; so that factors have something to start from

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

double between(double from, double to, double part)
{
    if (from == to)
        return from;
    return exp2(log2(fmax(from, DARKEST)) * (1 - part) + log2(fmax(to, DARKEST)) * part);
}

// The next number of a line; false where there is none or it is out of bounds.
bool next_number(const char **at, double *number)
{
    char *end;
    *number = strtod(*at, &end);
    const bool good = end != *at && *number >= 0 && *number <= 1e9;
    *at = end;
    return good;
}

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
    world_controls controls;
    controls.lights_set = true;
    controls.filter = board->filter_day;
    controls.grey = command_server_isp()->mode == ISP_MODE_NIGHT;
    const double lamp = board->pwm_percent / 100. * IR_LAMP / IR_LED;
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

int light_schedule_parse(const std::string &text, std::vector<light_moment> *schedule, std::string *error)
{
    schedule->clear();
    size_t number = 0;
    for (size_t from = 0; from < text.size();) {
        size_t end = text.find('\n', from);
        if (end == std::string::npos)
            end = text.size();
        std::string line = text.substr(from, end - from);
        from = end + 1;
        number++;
        line = line.substr(0, line.find('#'));
        const std::string where = "line " + std::to_string(number) + ": ";
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        light_moment moment;
        const char *at = line.c_str();
        if (!next_number(&at, &moment.seconds) || !next_number(&at, &moment.lux)) {
            *error = where + "seconds and lux are wanted, from 0 to a thousand million";
            return -1;
        }
        moment.infrared = moment.lux * INFRARED_OF_DAYLIGHT;
        if (at[strspn(at, " \t\r")] && (!next_number(&at, &moment.infrared) || at[strspn(at, " \t\r")])) {
            *error = where + "after seconds and lux only infrared may come";
            return -1;
        }
        if (!schedule->empty() && moment.seconds < schedule->back().seconds) {
            *error = where + "times go back";
            return -1;
        }
        schedule->push_back(moment);
    }
    if (schedule->empty()) {
        *error = "there is no light in it";
        return -1;
    }
    return 0;
}

light_moment light_schedule_at(const std::vector<light_moment> &schedule, double seconds)
{
    size_t next = 0;
    while (next < schedule.size() && schedule[next].seconds <= seconds)
        next++;
    if (next == 0)
        return schedule.front();
    const light_moment &from = schedule[next - 1];
    if (next == schedule.size())
        return from;
    const light_moment &to = schedule[next];
    const double part = (seconds - from.seconds) / (to.seconds - from.seconds);
    return {seconds, between(from.lux, to.lux, part), between(from.infrared, to.infrared, part)};
}

isp_light light_of_room(const light_moment &moment, const board_state &board)
{
    const double lux = moment.lux + board.high[BOARD_WHITE_LED] * WHITE_LED_LUX;
    const double infrared =
        moment.infrared + board.high[BOARD_IR_LED] * IR_LED + board.pwm_percent / 100. * IR_LAMP;
    return {lux * REFLECTANCE / M_PI, infrared * REFLECTANCE / M_PI};
}

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
