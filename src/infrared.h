// The infrared light's brightness: a level in percent, and a ladder of levels for the controller that follows
// the scene.
#ifndef INFRARED_H
#define INFRARED_H

#include <atomic>

// The level asked for last, percent: 0, 30, 50, 75 or 99. 0 at the start. Written by those who move the
// light, one at a time by the ircut lock or on the ircut task; read by any thread.
extern std::atomic<int> ir_level;

// The next rung in a direction: up (not 0) or down (0). The level itself at the end of the ladder, and where
// it stands on no rung. Pure.
int infrared_level_next(int level, int direction);

// Puts the light at `level` percent and returns what the PWM driver answers. Any thread.
int _infrared_drv(int level);

// Moves ir_level one rung and applies it; at the end of the ladder nothing is touched, while a level beside
// the ladder stays and is applied again. 0. The ircut task.
int infrared_drv(int direction);

#endif
