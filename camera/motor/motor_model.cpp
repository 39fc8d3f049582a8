// Parameters, the profile of a move, and the gears' play.
#include "motor_model.h"

#include <algorithm>
#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace
{

// One row for each number that can be set.
struct parameter {
    const char *key;
    double motor_parameters::*single; // null: it is one of an axis
    double (motor_parameters::*pair)[MOTOR_AXES];
    motor_axis axis;
    double usual, least, most;
};

// Nothing that turns a camera's head is outside these bounds, and none of them makes a move that never ends or a count
// of steps that 32 bits do not hold.
const parameter parameters_table[] = {
    {"pan_speed", nullptr, &motor_parameters::speed, MOTOR_PAN, 60, 1, 1000},
    {"tilt_speed", nullptr, &motor_parameters::speed, MOTOR_TILT, 40, 1, 1000},
    {"pan_acceleration", nullptr, &motor_parameters::acceleration, MOTOR_PAN, 240, 1, 100000},
    {"tilt_acceleration", nullptr, &motor_parameters::acceleration, MOTOR_TILT, 160, 1, 100000},
    {"pan_low", nullptr, &motor_parameters::low, MOTOR_PAN, -175, -360, 360},
    {"pan_high", nullptr, &motor_parameters::high, MOTOR_PAN, 175, -360, 360},
    {"tilt_low", nullptr, &motor_parameters::low, MOTOR_TILT, -90, -90, 90},
    {"tilt_high", nullptr, &motor_parameters::high, MOTOR_TILT, 30, -90, 90},
    {"pan_backlash", nullptr, &motor_parameters::backlash, MOTOR_PAN, 0.8, 0, 10},
    {"tilt_backlash", nullptr, &motor_parameters::backlash, MOTOR_TILT, 0.8, 0, 10},
    {"step", &motor_parameters::step, nullptr, MOTOR_PAN, 360. / 4096, 0.001, 10},
    {"latency_ms", &motor_parameters::latency_ms, nullptr, MOTOR_PAN, 50, 0, 10000},
    {"settle_ms", &motor_parameters::settle_ms, nullptr, MOTOR_PAN, 40, 0, 10000},
};

double *number_of(motor_parameters *parameters, const parameter &row)
{
    return row.single ? &(parameters->*row.single) : &(parameters->*row.pair)[row.axis];
}

const parameter *row_of(const char *key, size_t length)
{
    for (const parameter &row : parameters_table)
        if (strlen(row.key) == length && memcmp(row.key, key, length) == 0)
            return &row;
    return nullptr;
}

double degrees_of(const motor_parameters *parameters, int32_t steps)
{
    return steps * parameters->step;
}

// The step nearest to `degrees` that does not pass the ends.
int32_t step_within(const motor_parameters *parameters, int axis, double degrees)
{
    const double least = ceil(parameters->low[axis] / parameters->step);
    const double most = floor(parameters->high[axis] / parameters->step);
    // Ends closer together than a step leave room for none: the shaft then stays at the lower one.
    return static_cast<int32_t>(std::max(least, std::min(most, floor(degrees / parameters->step + 0.5))));
}

// How long it takes to turn that far.
double turn_ms(double way, double speed, double acceleration)
{
    const double full = speed * speed / acceleration; // shorter ways never come to speed
    const double seconds = way < full ? 2 * sqrt(way / acceleration) : way / speed + speed / acceleration;
    return seconds * 1000;
}

// How far it has turned after so long, from 0 to `way`.
double turned(double way, double speed, double acceleration, double seconds)
{
    const double whole = turn_ms(way, speed, acceleration) / 1000;
    if (seconds <= 0)
        return 0;
    if (seconds >= whole)
        return way;
    const double ramp = std::min(speed / acceleration, whole / 2);
    if (seconds < ramp)
        return acceleration * seconds * seconds / 2;
    const double left = whole - seconds;
    if (left < ramp)
        return way - acceleration * left * left / 2;
    return acceleration * ramp * ramp / 2 + speed * (seconds - ramp);
}

} // namespace

motor_parameters motor_parameters_usual(void)
{
    motor_parameters parameters = {};
    for (const parameter &row : parameters_table)
        *number_of(&parameters, row) = row.usual;
    return parameters;
}

int motor_parameter_set(motor_parameters *parameters, const char *text, std::string *error)
{
    const char *sign = strchr(text, '=');
    const parameter *row = sign ? row_of(text, static_cast<size_t>(sign - text)) : nullptr;
    if (!row) {
        *error = sign ? "there is no such number; there are" : "KEY=VALUE is wanted, with one of";
        for (const std::string &key : motor_keys())
            *error += " " + key;
        return -1;
    }
    char *end;
    errno = 0;
    const double value = strtod(sign + 1, &end);
    if (end == sign + 1 || *end || errno != 0 || !(value >= row->least && value <= row->most)) {
        char bounds[96];
        snprintf(bounds, sizeof bounds, "%s is a number from %g to %g", row->key, row->least, row->most);
        *error = bounds;
        return -1;
    }
    motor_parameters changed = *parameters;
    *number_of(&changed, *row) = value;
    for (int axis = 0; axis < MOTOR_AXES; axis++) {
        if (changed.low[axis] > changed.high[axis]) {
            *error = std::string(row->key) + " would put the lower end above the upper one";
            return -1;
        }
    }
    *parameters = changed;
    return 0;
}

double motor_parameter_get(const motor_parameters *parameters, const char *key)
{
    motor_parameters copy = *parameters;
    const parameter *row = row_of(key, strlen(key));
    return row ? *number_of(&copy, *row) : NAN;
}

std::vector<std::string> motor_keys(void)
{
    std::vector<std::string> keys;
    for (const parameter &row : parameters_table)
        keys.emplace_back(row.key);
    return keys;
}

motor_move motor_plan(const motor_parameters *parameters, const motor_state *from, int h, int v)
{
    const int wanted[MOTOR_AXES] = {h, v};
    motor_move move = {};
    move.from = *from;
    double longest = 0;
    for (int axis = 0; axis < MOTOR_AXES; axis++) {
        const int32_t here = from->axis[axis].steps;
        int32_t to = here;
        if (wanted[axis] != 0) {
            to = step_within(parameters, axis, degrees_of(parameters, here) + wanted[axis]);
            // From beyond an end, a request that leads further out does not turn the head the other way.
            if ((wanted[axis] > 0 && to < here) || (wanted[axis] < 0 && to > here))
                to = here;
        }
        move.to[axis] = to;
        const double way = fabs(degrees_of(parameters, to) - degrees_of(parameters, here));
        move.turn_ms[axis] = turn_ms(way, parameters->speed[axis], parameters->acceleration[axis]);
        longest = std::max(longest, move.turn_ms[axis]);
    }
    move.duration_ms = parameters->latency_ms + (longest > 0 ? longest + parameters->settle_ms : 0);
    return move;
}

motor_state motor_at(const motor_parameters *parameters, const motor_move *move, double ms)
{
    motor_state state = move->from;
    for (int axis = 0; axis < MOTOR_AXES; axis++) {
        motor_place *place = &state.axis[axis];
        const double begin = degrees_of(parameters, place->steps),
                     end = degrees_of(parameters, move->to[axis]);
        const double way = turned(fabs(end - begin), parameters->speed[axis], parameters->acceleration[axis],
                                  (ms - parameters->latency_ms) / 1000);
        // The shaft stands on whole steps; the last is reached exactly.
        const int32_t steps = static_cast<int32_t>(way / parameters->step + 1e-6);
        place->steps += end < begin ? -steps : steps;
        const double shaft = degrees_of(parameters, place->steps), play = parameters->backlash[axis] / 2;
        place->head = std::max(shaft - play, std::min(shaft + play, place->head));
    }
    return state;
}

bool motor_turns(const motor_parameters *parameters, const motor_move *move, double ms)
{
    const double turning = ms - parameters->latency_ms;
    return turning > 0 && (turning < move->turn_ms[MOTOR_PAN] || turning < move->turn_ms[MOTOR_TILT]);
}

int motor_degrees(const motor_parameters *parameters, const motor_place *place)
{
    return static_cast<int>(round(degrees_of(parameters, place->steps)));
}
