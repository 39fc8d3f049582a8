// The stage of a scene: light, curtain, lamps, the camera's own settings and the view, for every moment.
#ifndef STAGE_H
#define STAGE_H

#include "scene_file.h"

// How the room and the camera's optics are at a time of the script. `state` gets all but `time`, `door` and
// `view`.
void stage_light_at(const scene_script &script, double time, room_state *state, scene_optics *optics);

// Pan and tilt, in degrees, relative to where the camera's anchor looks.
struct stage_turn {
    double begin, end;
    float pan_from, tilt_from, pan_to, tilt_to;
};
std::vector<stage_turn> stage_turns_plan(const scene_camera &camera);
void stage_turn_at(const scene_camera &camera, const std::vector<stage_turn> &turns, double time, float *pan,
                   float *tilt);

#endif
