// Changes are few: they are applied from the first on at every question.
#include "stage.h"

#include <algorithm>

namespace
{

const double SWING_PERIOD = 1.9,
             SWING_FADES = 25; // seconds: a lamp on a cord of 0.9 m; until a third is left

bool on(int given, bool before)
{
    return given < 0 ? before : given != 0;
}

} // namespace

void stage_light_at(const scene_script &script, double time, room_state *state, scene_optics *optics)
{
    const double hour = fmod(script.hour + time * script.hour_speed / 3600, 24);
    state->hour = hour;
    state->cloud = script.cloud;
    state->lamp_swing = 0;
    state->headlights = -1;
    state->infrared_level = state->white_level = 0;
    for (const scene_change &change : script.lights) {
        if (change.at > time)
            break;
        const double since = time - change.at;
        state->ceiling_lamp = on(change.ceiling, state->ceiling_lamp);
        state->table_lamp = on(change.table, state->table_lamp);
        state->tv = on(change.tv, state->tv);
        state->corridor_lamp = on(change.corridor, state->corridor_lamp);
        optics->filter = on(change.filter, optics->filter);
        optics->grey = on(change.grey, optics->grey);
        if (change.curtain >= 0)
            state->curtain = change.curtain;
        if (change.wind >= 0)
            state->wind = change.wind;
        if (change.infrared >= 0)
            state->infrared_level = change.infrared;
        if (change.white >= 0)
            state->white_level = change.white;
        if (change.swing > 0)
            state->lamp_swing += change.swing * static_cast<float>(exp(-since / SWING_FADES) *
                                                                   sin(2 * M_PI * since / SWING_PERIOD));
        if (change.headlights > 0 && since < static_cast<double>(change.headlights))
            state->headlights = static_cast<float>(since / static_cast<double>(change.headlights));
    }
    state->infrared_lamp = state->infrared_level > 0;
    state->white_lamp = state->white_level > 0;
}

std::vector<stage_turn> stage_turns_plan(const scene_camera &camera)
{
    std::vector<stage_turn> turns;
    float pan = camera.pan, tilt = camera.tilt;
    double ready = 0;
    for (const scene_camera_turn &turn : camera.turns) {
        const double begin = std::max(turn.at, ready);
        const double way = static_cast<double>(std::max(fabsf(turn.pan - pan), fabsf(turn.tilt - tilt)));
        ready = begin + way / static_cast<double>(turn.speed);
        turns.push_back({begin, ready, pan, tilt, turn.pan, turn.tilt});
        pan = turn.pan;
        tilt = turn.tilt;
    }
    return turns;
}

void stage_turn_at(const scene_camera &camera, const std::vector<stage_turn> &turns, double time, float *pan,
                   float *tilt)
{
    *pan = camera.pan;
    *tilt = camera.tilt;
    for (const stage_turn &turn : turns) {
        if (turn.begin > time)
            break;
        const double length = turn.end - turn.begin;
        const float share = length > 0 ? static_cast<float>(std::min(1.0, (time - turn.begin) / length)) : 1;
        *pan = turn.pan_from + (turn.pan_to - turn.pan_from) * share;
        *tilt = turn.tilt_from + (turn.tilt_to - turn.tilt_from) * share;
    }
}
