// A schedule of sound as any bytes: it is refused with a reason, or can be asked for every time.
#include <math.h>
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include "sound.h"

static void require(bool condition)
{
    if (!condition)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    std::vector<sound_moment> schedule;
    std::string error;
    const std::string text(reinterpret_cast<const char *>(data), size);
    if (sound_schedule_parse(text, &schedule, &error) != 0) {
        require(!error.empty());
        return 0;
    }
    require(!schedule.empty());
    double last = 0;
    for (const sound_moment &moment : schedule) {
        require(isfinite(moment.seconds) && moment.seconds >= last);
        last = moment.seconds;
    }
    require(sound_schedule_at(schedule, 2e9, false) == schedule.back().loud);
    for (const double seconds : {0., 1., last / 2, last, 2e9})
        sound_schedule_at(schedule, seconds, true);
    return 0;
}
