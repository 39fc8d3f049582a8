// Scene files, which people write by hand: whatever they hold, they are read and planned, or refused with a reason.
#include <stdint.h>
#include <stdlib.h>

#include "scene_file.h"
#include "track.h"

namespace
{

void require(bool condition)
{
    if (!condition)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    static room *const place = room_make("living-room", 1);
    static const track_ground *const ground = new track_ground(track_ground_make(place));
    const std::string text(reinterpret_cast<const char *>(bytes), size);
    scene_script script;
    scene_fault fault;
    if (!scene_parse(text, &script, &fault)) {
        require(!fault.text.empty() && fault.line >= 0);
        return 0;
    }
    require(!script.expects.empty() && script.actors.size() <= 16 && script.lights.size() <= 200);
    require(script.seconds > 0 || script.repeat > 0);
    for (const scene_actor &actor : script.actors) {
        track result;
        std::vector<track_passage> passages;
        std::string path, reason;
        require(!actor.steps.empty());
        if (!track_plan(*ground, actor, 60, &result, &passages, &path, &reason)) {
            require(!reason.empty());
            require(scene_line(text, path) >= 1);
            continue;
        }
        require(!result.legs.empty());
        for (double t = 0; t < 20; t += 0.9)
            require(isfinite(track_at(result, t).position.x) && isfinite(track_at(result, t).heading));
    }
    return 0;
}
