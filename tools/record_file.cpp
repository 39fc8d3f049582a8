// Files of motion records.
#include "record_file.h"

#include <errno.h>
#include <inttypes.h>
#include <json-c/json.h>
#include <memory>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "motion_event_record.h"

namespace
{

const size_t HEADER = sizeof(motion_record_header), RECORD = sizeof(motion_record_event);
const int64_t HOUR_S = 3600;

const struct {
    uint32_t type;
    const char *name;
} types[] = {
    {MOTION_RECORD_OBJECT, "motion"},
    {MOTION_RECORD_PEOPLE, "people"},
    {MOTION_RECORD_SOUND, "sound"},
};

__attribute__((format(printf, 1, 2))) std::string text(const char *format, ...)
{
    char line[200];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not see va_start
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    return line;
}

bool only_zeros(const uint8_t *bytes, size_t length)
{
    for (size_t i = 0; i < length; i++)
        if (bytes[i] != 0)
            return false;
    return true;
}

// The header at the beginning, if there is one; whether records can be read behind it.
bool read_header(const uint8_t *bytes, size_t size, record_file *file)
{
    const size_t magic = sizeof motion_record_header::magic;
    const bool has_magic = size >= magic && memcmp(bytes, MOTION_RECORD_MAGIC, magic) == 0;
    motion_record_header header = {};
    memcpy(&header, bytes, size < HEADER ? size : HEADER);
    // Records are never that empty: four in a row would have no time.
    const bool like_one = size >= HEADER && header.version == MOTION_RECORD_VERSION &&
                          only_zeros(header.zero, sizeof header.zero);
    if (has_magic && size < HEADER) {
        file->remarks.push_back({true, text("a header that is cut off after %zu bytes", size)});
        return false;
    }
    if (!has_magic && like_one) {
        file->header = true;
        file->remarks.push_back({true, "a header whose magic is damaged"});
        return true;
    }
    if (!has_magic) {
        file->remarks.push_back({false, "no header: the file was made anew in a folder that was there"});
        return true;
    }
    file->header = true;
    if (header.version != MOTION_RECORD_VERSION) {
        file->remarks.push_back(
            {true, text("version %" PRIu32 ", which nobody here can read", header.version)});
        return false;
    }
    if (!only_zeros(header.zero, sizeof header.zero))
        file->remarks.push_back({true, "a header with bytes where it has none"});
    return true;
}

bool as_calendar(int64_t seconds, bool utc, struct tm *calendar)
{
    const time_t time = static_cast<time_t>(seconds);
    return time == seconds && (utc ? gmtime_r(&time, calendar) : localtime_r(&time, calendar));
}

std::string time_text(int64_t seconds, bool utc)
{
    struct tm calendar;
    char line[64];
    if (!as_calendar(seconds, utc, &calendar) ||
        strftime(line, sizeof line, "%Y-%m-%d %H:%M:%S", &calendar) == 0)
        return text("@%" PRId64, seconds);
    return line;
}

std::string json_line(const motion_record_event &record, const std::string &path, bool utc)
{
    const std::unique_ptr<json_object, int (*)(json_object *)> object(json_object_new_object(),
                                                                      json_object_put);
    json_object *top = object.get();
    json_object_object_add(top, "time", json_object_new_int64(record.time));
    json_object_object_add(top, utc ? "utc" : "local",
                           json_object_new_string(time_text(record.time, utc).c_str()));
    json_object_object_add(top, "type", json_object_new_int64(record.type));
    json_object_object_add(top, "name", json_object_new_string(record_type_name(record.type).c_str()));
    json_object_object_add(top, "value", json_object_new_uint64(record.value));
    json_object *fields = json_object_new_array();
    for (const uint16_t field : record.field)
        json_object_array_add(fields, json_object_new_int(field));
    json_object_object_add(top, "fields", fields);
    json_object_object_add(top, "file", json_object_new_string(path.c_str()));
    return std::string(
               json_object_to_json_string_ext(top, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE)) +
           "\n";
}

// `digits` decimal digits at *at, which moves behind them; -1 when they are not there.
int number_at(const std::string &whole, size_t *at, size_t digits)
{
    int value = 0;
    for (size_t i = 0; i < digits; i++, ++*at) {
        const char c = *at < whole.size() ? whole[*at] : '\0';
        if (c < '0' || c > '9')
            return -1;
        value = 10 * value + (c - '0');
    }
    return value;
}

bool skip(const std::string &whole, size_t *at, const char *any_of)
{
    if (*at >= whole.size() || !strchr(any_of, whole[*at]))
        return false;
    ++*at;
    return true;
}

int64_t seconds_of(struct tm *calendar, bool utc)
{
    const struct tm asked = *calendar;
    calendar->tm_isdst = -1;
    const time_t time = utc ? timegm(calendar) : mktime(calendar);
    // A day that no month has, or the hour that daylight saving leaves out, comes back as another one.
    const bool same = calendar->tm_mon == asked.tm_mon && calendar->tm_mday == asked.tm_mday &&
                      calendar->tm_hour == asked.tm_hour && calendar->tm_min == asked.tm_min;
    return same ? static_cast<int64_t>(time) : INT64_MIN;
}

} // namespace

record_file record_file_read(const void *data, size_t size)
{
    const uint8_t *bytes = static_cast<const uint8_t *>(data);
    record_file file = {};
    if (size == 0) {
        file.remarks.push_back({false, "empty: not even the header could be written"});
        return file;
    }
    if (!read_header(bytes, size, &file))
        return file;
    const size_t start = file.header ? HEADER : 0;
    size_t reserved = 0, backward = 0;
    for (size_t at = start; size - at >= RECORD; at += RECORD) {
        motion_record_event record;
        memcpy(&record, bytes + at, RECORD);
        reserved += record.reserved != 0;
        backward += !file.records.empty() && record.time < file.records.back().time;
        file.records.push_back(record);
    }
    if (reserved > 0)
        file.remarks.push_back({true, text("%zu records with something where nothing belongs", reserved)});
    if (backward > 0)
        file.remarks.push_back(
            {false,
             text("%zu times a record is older than the one before it: the clock was set back", backward)});
    const size_t tail = (size - start) % RECORD;
    if (tail > 0)
        file.remarks.push_back({true, text("%zu bytes at the end that are a piece of a record", tail)});
    return file;
}

bool record_folder_is_hour(const std::string &folder)
{
    return folder.size() >= 10 && folder.size() <= 12 &&
           folder.find_first_not_of("0123456789") == std::string::npos;
}

bool record_belongs(const std::string &folder, int64_t time)
{
    if (!record_folder_is_hour(folder))
        return false;
    size_t at = 0;
    struct tm calendar = {};
    calendar.tm_year = number_at(folder, &at, folder.size() - 6) - 1900;
    calendar.tm_mon = number_at(folder, &at, 2) - 1;
    calendar.tm_mday = number_at(folder, &at, 2);
    calendar.tm_hour = number_at(folder, &at, 2);
    if (calendar.tm_hour > 23)
        return false;
    const int64_t hour = seconds_of(&calendar, true);
    if (hour == INT64_MIN)
        return false;
    // Zones lie from 12 hours behind to 14 hours before UTC.
    const int64_t first = hour - 14 * HOUR_S, end = hour + HOUR_S + 12 * HOUR_S;
    return time >= first && time < end;
}

std::string record_type_name(uint32_t type)
{
    for (const auto &known : types)
        if (known.type == type)
            return known.name;
    return std::to_string(type);
}

bool record_type_of(const std::string &name, uint32_t *type)
{
    for (const auto &known : types) {
        if (name == known.name) {
            *type = known.type;
            return true;
        }
    }
    if (name.empty() || name.size() > 10 || name.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const unsigned long long number = strtoull(name.c_str(), nullptr, 10);
    *type = static_cast<uint32_t>(number);
    return number <= UINT32_MAX;
}

std::string record_heading(record_form form)
{
    switch (form) {
    case RECORD_TABLE:
        return "time                 type             value  fields              file\n";
    case RECORD_CSV:
        return "time,text,type,name,value,f1,f2,f3,f4,file\n";
    default:
        return "";
    }
}

std::string record_line(record_form form, const motion_record_event &record, const std::string &path,
                        bool utc)
{
    if (form == RECORD_JSON)
        return json_line(record, path, utc);
    const std::string moment = time_text(record.time, utc), name = record_type_name(record.type);
    const uint16_t *f = record.field;
    if (form == RECORD_CSV)
        return text("%" PRId64 ",%s,%" PRIu32 ",%s,%" PRIu64 ",%u,%u,%u,%u,", record.time, moment.c_str(),
                    record.type, name.c_str(), record.value, f[0], f[1], f[2], f[3]) +
               record_csv_text(path) + "\n";
    return text("%-19s  %-10s  %10" PRIu64 "  %-18s  ", moment.c_str(), name.c_str(), record.value,
                text("%u,%u,%u,%u", f[0], f[1], f[2], f[3]).c_str()) +
           path + "\n";
}

std::string record_csv_text(const std::string &field)
{
    if (field.find_first_of("\",\r\n") == std::string::npos)
        return field;
    std::string quoted = "\"";
    for (const char c : field)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string record_json_text(const std::string &field)
{
    const std::unique_ptr<json_object, int (*)(json_object *)> object(json_object_new_string(field.c_str()),
                                                                      json_object_put);
    return json_object_to_json_string_ext(object.get(),
                                          JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

bool record_time_of(const std::string &given, bool utc, int64_t *time)
{
    if (!given.empty() && given[0] == '@') {
        char *end;
        errno = 0;
        const long long seconds = strtoll(given.c_str() + 1, &end, 10);
        *time = seconds;
        return end != given.c_str() + 1 && *end == '\0' && errno == 0;
    }
    size_t at = 0;
    struct tm calendar = {};
    calendar.tm_year = number_at(given, &at, 4) - 1900;
    bool fine = skip(given, &at, "-");
    calendar.tm_mon = number_at(given, &at, 2) - 1;
    fine = fine && skip(given, &at, "-");
    calendar.tm_mday = number_at(given, &at, 2);
    if (fine && at < given.size()) {
        fine = skip(given, &at, " T");
        calendar.tm_hour = number_at(given, &at, 2);
        fine = fine && skip(given, &at, ":");
        calendar.tm_min = number_at(given, &at, 2);
        if (fine && at < given.size()) {
            fine = skip(given, &at, ":");
            calendar.tm_sec = number_at(given, &at, 2);
        }
    }
    if (!fine || at != given.size() || calendar.tm_year < -1900 || calendar.tm_mon < 0 ||
        calendar.tm_mday < 1 || calendar.tm_hour < 0 || calendar.tm_min < 0 || calendar.tm_sec < 0 ||
        calendar.tm_sec > 59)
        return false;
    *time = seconds_of(&calendar, utc);
    return *time != INT64_MIN;
}
