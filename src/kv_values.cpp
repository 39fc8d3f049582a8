// The texts of the settings and what they mean.
#include "kv_values.h"

#include <ctype.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

// A number at `text`, and where it ends; `text` itself where there is none.
static const char *scan_int(const char *text, int *number)
{
    char *end;
    const long value = strtol(text, &end, 10); // of what does not fit, the nearest long
    *number = static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
    return end;
}

int kv_value_int(const char *text)
{
    int number;
    scan_int(text, &number);
    return number;
}

int kv_value_digit(const char *text)
{
    return isdigit(static_cast<unsigned char>(*text)) ? *text - '0' : -1;
}

kv_switch kv_value_switch(const char *text)
{
    if (strcmp(text, "on") == 0)
        return KV_ON;
    return strcmp(text, "off") == 0 ? KV_OFF : KV_NEITHER;
}

kv_switch kv_value_switch_prefix(const char *text)
{
    if (strncmp(text, "on", 2) == 0)
        return KV_ON;
    return strncmp(text, "off", 3) == 0 ? KV_OFF : KV_NEITHER;
}

int kv_value_sensitivity(int number)
{
    switch (number) {
    case 1:
    case 20:
    case 40:
        return 0;
    case 2:
    case 60:
        return 1;
    case 3:
    case 80:
    case 100:
        return 2;
    default:
        return -1;
    }
}

int kv_value_motion_list(const char *text, int list[KV_MOTION_CELLS])
{
    if (strlen(text) != KV_MOTION_LENGTH)
        return -1;
    int count = 0;
    for (int at = 1; at < KV_MOTION_LENGTH - 1; at += 2) {
        if (text[at] < '0' || text[at] > '3')
            break;
        list[count++] = text[at] - '1';
    }
    return count;
}

int kv_value_numbers(const char *text, const char *pattern, int *numbers, int count)
{
    std::fill_n(numbers, count, 0);
    int done = 0;
    for (; *pattern; pattern++) {
        if (*pattern != '#') {
            if (*text++ != *pattern)
                break;
            continue;
        }
        int number;
        const char *end = scan_int(text, &number);
        if (end == text || done == count)
            break;
        numbers[done++] = number;
        text = end;
    }
    return done;
}

void kv_value_alarm(char *text, int numbers[KV_ALARM_NUMBERS])
{
    std::fill_n(numbers, +KV_ALARM_NUMBERS, 0);
    char *rest = nullptr;
    int done = 0;
    for (char *piece = strtok_r(text, "-", &rest); piece && done < KV_ALARM_NUMBERS;
         piece = strtok_r(nullptr, "-", &rest))
        numbers[done++] = kv_value_int(piece);
}
