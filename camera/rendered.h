// The rendered room as a source: draws a scene's pictures as the camera's sensor would take them, each with the truth
// about it.
//
// One thread does all of it: the one that called rendered_open (the renderer's context is bound to it).
#ifndef RENDERED_H
#define RENDERED_H

#include <stdint.h>
#include <string>
#include <utility>
#include <vector>

#include "isp_model.h"
#include "world.h"

struct AVFrame;

enum {
    RENDERED_STEP_MS = 200,  // one picture for each that the daemon may ask for
    RENDERED_VIEW_SCALE = 2, // the picture for people against the analysis picture
};
#define RENDERED_DEFAULT "arrival"

struct rendered_settings {
    const char *scene; // as world_open takes it
    bool loop;         // from the beginning again when the scene is over
    bool view;         // also a larger picture for people
    bool gpu;          // draw with a graphics card where there is one
    // Where the camera's head was `before_s` seconds before the moment that is drawn: degrees to the right and upwards
    // from where the scene mounts it, or false while the scene's own turns hold. Null: they always hold. On the thread
    // that draws.
    bool (*head)(double before_s, float *pan, float *tilt) = nullptr;
};

// What a rendered picture carries beside the analysis picture.
struct rendered_extra {
    AVFrame *view;      // NV12, RENDERED_VIEW_SCALE times as large; null when it was not asked for
    truth_moment truth; // `number` counts pictures from the source's start, `time` is that of the scene
};

// Whether a source's name means a scene: "scene:NAME", "scenes/random?seed=N", or a file that ends in ".json". Then
// *scene points to what world_open takes, inside `source` where it can. Any thread.
bool rendered_is_scene(const char *source, const char **scene);

// The settings that a scene wants set before it starts, added to `settings`. 0, or -1 after saying why. Any thread.
int rendered_scene_settings(const char *scene, std::vector<std::pair<std::string, std::string>> *settings);

// Opens scene and renderer. 0, or -1 after saying why.
int rendered_open(const rendered_settings *settings);
// When the last picture is over, in milliseconds of the source; 0: it never ends.
uint64_t rendered_end_ms(void);
// Draws picture `number` (at number * RENDERED_STEP_MS): ANALYSIS_WIDTH x ANALYSIS_HEIGHT, NV12, BT.601 video range,
// with its extra attached. Numbers grow; exposure and noise follow the pictures drawn. The caller frees it
// (av_frame_free). Null after saying why.
AVFrame *rendered_picture(uint64_t number);
// Lets exposure settle at once for the next picture, as for the first: before a jump in time.
void rendered_settle(void);
void rendered_close(void);

// Filter, lamps and view from the next picture on. Any thread, also before rendered_open; forgotten by rendered_close.
void rendered_control(const world_controls *controls);
// Mean luminance of the last analysis picture before the filter; false before the first. Any thread.
bool rendered_light(isp_light *light);

// The extra of a picture made by rendered_picture or of a clone of it; null for any other. Lives as long as the
// picture. Any thread.
const rendered_extra *rendered_extra_of(const AVFrame *frame);

#endif
