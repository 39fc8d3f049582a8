// One member of a JSON object that came from outside.
#include "naro_util.h"

#include <algorithm>
#include <json-c/json.h>
#include <limits.h>
#include <math.h>
#include <string.h>

namespace
{

// The whole of `json_text` as one JSON object, or null. The caller gives it back with json_object_put.
json_object *parse_object(const char *json_text)
{
    if (!json_text)
        return nullptr;
    // The depth has a bound (32), so that no nesting can use up the stack.
    json_tokener *tokener = json_tokener_new_ex(JSON_TOKENER_DEFAULT_DEPTH);
    if (!tokener)
        return nullptr;
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    json_object *root = json_tokener_parse_ex(tokener, json_text, -1); // up to the terminator
    json_tokener_free(tokener);
    if (json_object_get_type(root) == json_type_object)
        return root;
    json_object_put(root);
    return nullptr;
}

// The member `name` of `root`, or null; it lives as long as `root`.
json_object *member(json_object *root, const char *name)
{
    json_object *value = nullptr;
    return root && name && json_object_object_get_ex(root, name, &value) ? value : nullptr;
}

// How much of a terminated UTF-8 text of `length` bytes to take where there is room for `most`, so that no character
// is left in part.
size_t cut(const char *text, size_t length, size_t most)
{
    // Continuation bytes are 10xxxxxx (the terminator is none). A character has at most three; where there are
    // more, the text is not UTF-8 and any place is as good as another.
    const size_t whole = std::min(length, most);
    size_t end = whole;
    for (int back = 0; back < 3 && end > 0 && (text[end] & 0xC0) == 0x80; back++)
        end--;
    return (text[end] & 0xC0) == 0x80 ? whole : end;
}

} // namespace

int json_verify_get_int(const char *json_text, const char *name, int *out)
{
    json_object *root = parse_object(json_text);
    json_object *value = member(root, name);
    int result = -1;
    if (out && json_object_is_type(value, json_type_int)) {
        const int64_t number =
            json_object_get_int64(value); // what needs more than 64 bits is clamped to them
        if (number >= INT_MIN && number <= INT_MAX) {
            *out = static_cast<int>(number);
            result = 0;
        }
    } else if (out && json_object_is_type(value, json_type_double)) {
        const double number = trunc(json_object_get_double(value));
        if (number >= INT_MIN && number <= INT_MAX) { // false for NaN
            *out = static_cast<int>(number);
            result = 0;
        }
    }
    json_object_put(root);
    return result;
}

int json_verify_get_string(const char *json_text, const char *name, char *buf, int size)
{
    if (!buf || size <= 0)
        return -1;
    json_object *root = parse_object(json_text);
    json_object *value = member(root, name);
    int result = -1;
    size_t length = 0;
    if (json_object_is_type(value, json_type_string)) {
        const char *text = json_object_get_string(value);
        // A "\u0000" inside ends the text, as it would for every reader of the buffer.
        length = cut(text, strlen(text), static_cast<size_t>(size) - 1);
        memcpy(buf, text, length);
        result = 0;
    }
    buf[length] = '\0';
    json_object_put(root);
    return result;
}
