// The forms of the known settings' values.
#include "setting_formats.h"

#include <errno.h>
#include <initializer_list>
#include <json-c/json.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

namespace
{

// Reads a decimal number that fits an int, and moves on; false when there is none.
bool number(const char **text, int *value)
{
    char *end;
    if (!strchr("+-0123456789", **text) || **text == '\0')
        return false;
    errno = 0;
    const long read = strtol(*text, &end, 10);
    if (end == *text || errno != 0 || read < INT_MIN || read > INT_MAX)
        return false;
    *value = static_cast<int>(read);
    *text = end;
    return true;
}

// Whether `text` is `form`, in which '#' stands for a number of 0 and more and '%' for any number.
bool is_form(const char *text, const char *form)
{
    for (; *form; form++) {
        int value;
        if (*form != '#' && *form != '%') {
            if (*text++ != *form)
                return false;
        } else if ((*form == '#' && (*text < '0' || *text > '9')) || !number(&text, &value)) {
            return false;
        }
    }
    return *text == '\0';
}

bool is_whole_number(const char *text, int low, int high)
{
    int value;
    return is_form(text, "%") && number(&text, &value) && value >= low && value <= high;
}

bool is_anything(const char *)
{
    return true;
}

bool is_switch(const char *text)
{
    return strcmp(text, "on") == 0 || strcmp(text, "off") == 0;
}

bool is_night_mode(const char *text)
{
    return strlen(text) == 1 && text[0] >= '0' && text[0] <= '6';
}

bool is_people_level(const char *text)
{
    return is_whole_number(text, 1, 5);
}

bool is_motor(const char *text)
{
    return is_form(text, "[%,%]");
}

bool is_alarm(const char *text)
{
    return is_form(text, "#-0-#") || is_form(text, "#-1-#");
}

bool is_rectangle(const char *text)
{
    return is_form(text, "#-#-#-#");
}

bool is_time(const char *text)
{
    return text[0] != '\0' && strspn(text, "0123456789") == strlen(text);
}

// One level for all, or a list of levels of areas, of which the last one counts.
bool is_motion_region(const char *text)
{
    for (const int level : {1, 2, 3, 20, 40, 60, 80, 100})
        if (is_whole_number(text, level, level))
            return true;
    enum { AREAS = 32 };
    if (strlen(text) != 2 * AREAS + 1 || text[0] != '[' || text[2 * AREAS] != ']')
        return false;
    for (int area = 0; area < AREAS; area++)
        if (text[2 * area + 1] < '0' || text[2 * area + 1] > '3' || (area > 0 && text[2 * area] != ','))
            return false;
    return true;
}

bool is_regions(const char *text)
{
    json_tokener *tokener = json_tokener_new();
    const int length = static_cast<int>(strnlen(text, INT_MAX - 1));
    json_object *value = tokener ? json_tokener_parse_ex(tokener, text, length + 1) : nullptr;
    bool fine = json_object_is_type(value, json_type_array);
    for (size_t n = 0; fine && n < json_object_array_length(value); n++) {
        json_object *region = json_object_array_get_idx(value, n);
        for (const char *name : {"x1", "y1", "x2", "y2"}) {
            json_object *edge = nullptr;
            fine = fine && json_object_object_get_ex(region, name, &edge) &&
                   json_object_is_type(edge, json_type_int);
        }
        for (const char *name : {"roi_name", "event_type"}) {
            json_object *text_of = nullptr;
            fine = fine && json_object_object_get_ex(region, name, &text_of) &&
                   json_object_is_type(text_of, json_type_string);
        }
    }
    json_object_put(value);
    json_tokener_free(tokener);
    return fine;
}

const char switch_words[] = "\"on\" or \"off\"";

const struct {
    const char *key;
    bool (*is_fine)(const char *value);
    const char *words;
} formats[] = {
    {"alarm_event", is_alarm, "WORD-TYPE-SECONDS: numbers, with TYPE 0 (steady light) or 1 (flashing)"},
    {"baby_cry_detect", is_switch, switch_words},
    {"face_detect", is_switch, switch_words},
    {"fav_area_rect", is_regions,
     "a JSON array of objects with the numbers x1, y1, x2, y2 and the texts roi_name, event_type"},
    {"full_color", is_switch, switch_words},
    {"hdr_switch", is_switch, switch_words},
    {"human_detect", is_switch, switch_words},
    {"motion_region", is_motion_region,
     "a level (1, 20, 40 low; 2, 60 middle; 3, 80, 100 high) or a list [1,1,...,1] of 32 digits 0 to 3"},
    {"motor", is_motor, "[HORIZONTAL,VERTICAL], two numbers"},
    {"night_mode", is_night_mode,
     "a digit: 0 or 3 automatic, 1 day, 2 night, 4 full colour, 5 smart, 6 lights off"},
    {"people_region_detect", is_rectangle, "LEFT-TOP-RIGHT-BOTTOM: numbers in 1/10000 of the picture"},
    {"people_sensitivity", is_people_level, "a number from 1 to 5"},
    {"power", is_switch, switch_words},
    {"sdcard_rw", is_anything, "\"rdwr\", or anything else for a card that is not to be written"},
    {"time_night", is_time, "milliseconds since 1970"},
    {"track", is_anything, "a text"},
    {"track_switch", is_switch, switch_words},
    {"wdr", is_switch, switch_words},
};

} // namespace

const char *setting_format(const char *key)
{
    for (const auto &format : formats)
        if (strcmp(format.key, key) == 0)
            return format.words;
    return nullptr;
}

const char *setting_format_fault(const char *key, const char *value)
{
    for (const auto &format : formats)
        if (strcmp(format.key, key) == 0)
            return format.is_fine(value) ? nullptr : format.words;
    return nullptr;
}
