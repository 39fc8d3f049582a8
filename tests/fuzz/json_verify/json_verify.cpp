// The JSON readers on any text, as a setting may hold it. The whole input is the text; it is read for the members
// of a care region, into buffers of several small sizes.
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <string>

#include "naro_util.h"

namespace
{

void require(bool condition)
{
    if (!condition)
        abort();
}

void read_int(const char *json, const char *name)
{
    int first = INT_MIN, second = INT_MAX;
    const int result = json_verify_get_int(json, name, &first);
    require(json_verify_get_int(json, name, &second) == result);
    if (result == 0) {
        char text[8];
        require(first == second);
        require(json_verify_get_string(json, name, text, sizeof text) == -1); // it cannot be both
    } else {
        require(result == -1 && first == INT_MIN && second == INT_MAX);
    }
}

void read_string(const char *json, const char *name)
{
    char whole[4096];
    const int result = json_verify_get_string(json, name, whole, sizeof whole);
    require(result == 0 || (result == -1 && whole[0] == '\0'));
    require(memchr(whole, '\0', sizeof whole) != nullptr);
    for (int size : {1, 2, 3, 6, 32, 33}) {
        // Of exactly this size, so that a write beyond it is seen.
        char *part = static_cast<char *>(malloc(static_cast<size_t>(size)));
        require(json_verify_get_string(json, name, part, size) == result);
        const size_t length = strnlen(part, static_cast<size_t>(size));
        require(length < static_cast<size_t>(size));
        require(strncmp(part, whole, length) == 0);
        if (whole[length] != '\0')
            require(length + 4 >= static_cast<size_t>(size)); // not more than one character short
        free(part);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string json(reinterpret_cast<const char *>(data), size);
    for (const char *name : {"x1", "y2"})
        read_int(json.c_str(), name);
    for (const char *name : {"roi_name", "event_type"})
        read_string(json.c_str(), name);
    return 0;
}
