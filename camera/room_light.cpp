// Schedules, and Lambert's law.
#include "room_light.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

namespace
{

const double DARKEST = 1e-4; // lux; so that factors have something to start from

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
        moment.infrared = moment.lux * room_constants().infrared_of_daylight;
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

light_moment light_schedule_at(const std::vector<light_moment> &schedule, double seconds, size_t *from)
{
    size_t next = from ? *from : 0;
    while (next < schedule.size() && schedule[next].seconds <= seconds)
        next++;
    if (from)
        *from = next;
    if (next == 0)
        return schedule.front();
    const light_moment &last = schedule[next - 1];
    if (next == schedule.size())
        return last;
    const light_moment &to = schedule[next];
    const double part = (seconds - last.seconds) / (to.seconds - last.seconds);
    return {seconds, between(last.lux, to.lux, part), between(last.infrared, to.infrared, part)};
}

isp_light light_of_room(const light_moment &moment, const board_state &board, const room_constants &room)
{
    const double lux = moment.lux + board.high[BOARD_WHITE_LED] * room.white_led_lux;
    const double infrared =
        moment.infrared + board.high[BOARD_IR_LED] * room.ir_led + board.pwm_percent / 100. * room.ir_lamp;
    return {lux * room.reflectance / M_PI, infrared * room.reflectance / M_PI};
}
