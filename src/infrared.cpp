// The infrared light's brightness.
#include "infrared.h"

#include <stddef.h>
#include <stdio.h>

#include "ircut_config.h"
#include "naro_util.h"

std::atomic<int> ir_level{0};

static const int ladder[] = {0, 30, 50, 75, 99};
static const size_t RUNGS = sizeof ladder / sizeof *ladder;

int infrared_level_next(int level, int direction)
{
    for (size_t rung = 0; rung < RUNGS; rung++) {
        if (ladder[rung] != level)
            continue;
        if (direction != 0)
            return rung + 1 < RUNGS ? ladder[rung + 1] : level;
        return rung > 0 ? ladder[rung - 1] : level;
    }
    return level;
}

int _infrared_drv(int level)
{
    char text[64];
    snprintf(text, sizeof text, "%d", level);
    log_info("[%s]pwm_duty(%s)\n", __func__, text);
    return pwm_duty(text);
}

int infrared_drv(int direction)
{
    const int level = ir_level;
    const int end = direction != 0 ? ladder[RUNGS - 1] : ladder[0];
    if (level == end)
        return 0;
    ir_level = infrared_level_next(level, direction);
    _infrared_drv(ir_level);
    return 0;
}
