// An evening at home that nobody wrote.
#include "world_state.h"

void evening_home(uint64_t, scene_script *) {}
void evening_block(uint64_t, int64_t, const room *, scene_script *) {}
