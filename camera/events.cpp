// The two forms of an event's line.
#include "events.h"

#include <inttypes.h>
#include <json-c/json.h>
#include <memory>
#include <stdio.h>
#include <string.h>

int event_boxes(const naro_isp_track_param *track)
{
    int count = 0;
    while (count < NARO_TRACK_BOXES) {
        const naro_track_box &box = track->box[count];
        if (box.x1 == 0 && box.y1 == 0 && box.x2 == 0 && box.y2 == 0)
            break;
        count++;
    }
    return count;
}

// How many bytes the UTF-8 character at `text` has, 0 when there is none that is whole and allowed.
static size_t character(const unsigned char *text, size_t left)
{
    if (text[0] < 0x80)
        return text[0] >= 0x20 && text[0] != 0x7f ? 1 : 0;
    const size_t length = text[0] >= 0xf0 ? 4 : text[0] >= 0xe0 ? 3 : 2;
    static const unsigned smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (text[0] < 0xc2 || text[0] > 0xf4 || length > left)
        return 0;
    unsigned value = text[0] & (0xffu >> (length + 1));
    for (size_t i = 1; i < length; i++) {
        if ((text[i] & 0xc0) != 0x80)
            return 0;
        value = value << 6 | (text[i] & 0x3fu);
    }
    const bool allowed =
        value >= smallest[length] && value >= 0xa0 && value <= 0x10ffff && (value < 0xd800 || value > 0xdfff);
    return allowed ? length : 0;
}

bool event_name(const void *message, size_t length, std::string *name)
{
    const unsigned char *text = static_cast<const unsigned char *>(message);
    if (length < 2 || length > EVENT_NAME_MAX + 1 || memchr(text, 0, length) != text + length - 1)
        return false;
    name->clear();
    for (size_t at = 0; at < length - 1;) {
        const size_t bytes = character(text + at, length - 1 - at);
        if (bytes == 0)
            name->push_back('?');
        else
            name->append(reinterpret_cast<const char *>(text) + at, bytes);
        at += bytes == 0 ? 1 : bytes;
    }
    return true;
}

std::string event_time(uint64_t time_ms)
{
    char text[64];
    const uint64_t hours = time_ms / 3600000;
    int used = 0;
    if (hours > 0)
        used = snprintf(text, sizeof text, "%" PRIu64 ":", hours);
    snprintf(text + used, sizeof text - static_cast<size_t>(used), "%02u:%02u.%03u",
             static_cast<unsigned>(time_ms / 60000 % 60), static_cast<unsigned>(time_ms / 1000 % 60),
             static_cast<unsigned>(time_ms % 1000));
    return text;
}

// 64 bits: the words are as the peer sent them.
static int64_t width_of(const naro_track_box &box)
{
    return static_cast<int64_t>(box.x2) - box.x1;
}

static int64_t height_of(const naro_track_box &box)
{
    return static_cast<int64_t>(box.y2) - box.y1;
}

std::string event_line(uint64_t time_ms, const std::string &name, const naro_track_box *boxes, int count)
{
    std::string line = event_time(time_ms) + "  " + name;
    for (int i = 0; i < count; i++) {
        char text[96];
        snprintf(text, sizeof text, "%s[%" PRId32 ",%" PRId32 " %" PRId64 "x%" PRId64 "]",
                 i == 0 ? "  " : " ", boxes[i].x1, boxes[i].y1, width_of(boxes[i]), height_of(boxes[i]));
        line += text;
    }
    return line;
}

std::string event_json(uint64_t time_ms, const std::string &name, const naro_track_box *boxes, int count)
{
    std::unique_ptr<json_object, int (*)(json_object *)> line(json_object_new_object(), json_object_put);
    json_object_object_add(line.get(), "time_ms", json_object_new_int64(static_cast<int64_t>(time_ms)));
    json_object_object_add(line.get(), "event", json_object_new_string(name.c_str()));
    json_object *list = json_object_new_array();
    for (int i = 0; i < count; i++) {
        json_object *box = json_object_new_array();
        for (const int64_t number : {static_cast<int64_t>(boxes[i].x1), static_cast<int64_t>(boxes[i].y1),
                                     width_of(boxes[i]), height_of(boxes[i])})
            json_object_array_add(box, json_object_new_int64(number));
        json_object_array_add(list, box);
    }
    json_object_object_add(line.get(), "boxes", list);
    return json_object_to_json_string_ext(line.get(),
                                          JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}
