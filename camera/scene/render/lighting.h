// The lamps of a snapshot as the shaders take them, and where the shadow map looks from.
#ifndef LIGHTING_H
#define LIGHTING_H

#include <stddef.h>

#include "batch.h"
#include "shaders.h"

enum { SHADOW_MAP_SIDE = 1024 };

// The light whose shadow is drawn: of the greatest `shadow`, the first. Null where none has one or none shines.
const scene_light *lighting_key(const scene_snapshot *snapshot);
// Fills all of the frame but the view. More lamps than the shaders hold: the strongest where the camera looks.
void lighting_fill(const scene_snapshot *snapshot, const batch *batch, shader_frame *frame);
// The definition of ADD_LIGHTS for those lamps. `size` of 1000 is enough.
void lighting_calls(const shader_frame *frame, char *text, size_t size);

#endif
