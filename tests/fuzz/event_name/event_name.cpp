// Messages on the event channel: what becomes of them is printed on a terminal and written as JSON.
#include <json-c/json.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <string>

#include "events.h"

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
    std::string name;
    if (!event_name(bytes, size, &name))
        return 0;
    require(!name.empty() && name.size() <= EVENT_NAME_MAX && name.size() < size);
    for (const char c : name)
        require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
    std::string again;
    require(event_name(name.c_str(), name.size() + 1, &again) && again == name); // nothing is left to clean
    const naro_track_box box = {1, 2, 3, 4};
    json_object *line = json_tokener_parse(event_json(200, name, &box, 1).c_str());
    json_object *value = nullptr;
    require(line && json_object_object_get_ex(line, "event", &value) &&
            json_object_get_string(value) == name);
    json_object_put(line);
    return 0;
}
