// See the header; all state is the caller's.
#include "pid.h"

#include <limits.h>
#include <stdint.h>

#include <algorithm>

namespace
{

int error_of(int measured, int setpoint)
{
    const int64_t e = static_cast<int64_t>(static_cast<uint16_t>(setpoint)) - measured;
    return static_cast<int>(std::min<int64_t>(e, INT_MAX));
}

// Toward zero; what no int can hold is the nearest one, and no number is 0.
int cut_off(float value)
{
    const float beyond = 2147483648.f;
    if (value >= beyond)
        return INT_MAX;
    if (value < -beyond)
        return INT_MIN;
    return value == value ? static_cast<int>(value) : 0;
}

// Weights times errors cannot be counted in 32 bits.
float single(int64_t sum)
{
    return static_cast<float>(sum);
}

} // namespace

void pid_init(pid_state *state, float Kp, float Ki, float Kd)
{
    state->Kp = Kp;
    state->Ki = Ki;
    state->Kd = Kd;
}

int pid(int measured, int setpoint, pid_state *state)
{
    const int e = error_of(measured, setpoint);
    int *const before = state->earlier;
    state->error = e;
    state->P = state->Kp * single(e);
    state->I = state->I + state->Ki * single(e);
    state->D = state->Kd * single(static_cast<int64_t>(e) - before[0]);
    state->output = cut_off(state->P + state->I + state->D);
    before[0] = e;
    return state->output;
}

int better_pid(int measured, int setpoint, pid_state *state)
{
    const int e = error_of(measured, setpoint);
    int *const before = state->earlier;
    const int64_t slope = static_cast<int64_t>(e) + 3 * static_cast<int64_t>(before[0]) +
                          2 * static_cast<int64_t>(before[1]) - 2 * static_cast<int64_t>(before[2]) -
                          3 * static_cast<int64_t>(before[3]) - before[4];
    state->error = e;
    state->P = state->Kp * single(e);
    state->I = state->I + state->Ki * single(e);
    state->D = state->Kd / 16 * single(slope);
    state->output = cut_off(state->P + state->I + state->D);
    std::copy_backward(before, before + PID_HISTORY - 1, before + PID_HISTORY);
    before[0] = e;
    return state->output;
}

int incre_pid(int measured, int setpoint, pid_state *state)
{
    const int e = error_of(measured, setpoint);
    int *const before = state->earlier;
    state->error = e;
    state->P = state->Kp * single(static_cast<int64_t>(e) - before[0]);
    state->I = state->I + state->Ki * single(e);
    state->D = state->Kd * single(static_cast<int64_t>(e) - 2 * static_cast<int64_t>(before[0]) + before[1]);
    state->output = cut_off(static_cast<float>(state->output) + state->P + state->I + state->D);
    before[1] = before[0];
    before[0] = e;
    return state->output;
}
