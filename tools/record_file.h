// Files of motion records, read from bytes that may be anything.
#ifndef RECORD_FILE_H
#define RECORD_FILE_H

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "motion_event_record_file.h"

// Something about a file that a reader should be told. A note is what the writer does itself at times; a
// fault is damage.
struct record_remark {
    bool fault;
    std::string text;
};

struct record_file {
    bool header; // the file begins with one
    std::vector<motion_record_event> records;
    std::vector<record_remark> remarks;
};

// Reads a whole file. What cannot be read is left out and remarked on; nothing is guessed.
record_file record_file_read(const void *bytes, size_t size);

// Whether a record of this time may lie in the folder of this name ("2021031408"): in some zone of the earth
// it was that hour. False also for a name that is no hour's.
bool record_belongs(const std::string &folder, int64_t time);
// Whether a folder's name is an hour's.
bool record_folder_is_hour(const std::string &folder);

// "motion", "people", "sound", or the number.
std::string record_type_name(uint32_t type);
// The type for a name or a number; false when it is neither.
bool record_type_of(const std::string &name, uint32_t *type);

enum record_form { RECORD_TABLE, RECORD_CSV, RECORD_JSON };
// A line, with its end. `utc`: the time as text is UTC and not local.
std::string record_line(record_form form, const motion_record_event &record, const std::string &path,
                        bool utc);
// What stands before the first line; "" for JSON.
std::string record_heading(record_form form);

// A text as a field of CSV, and as JSON.
std::string record_csv_text(const std::string &field);
std::string record_json_text(const std::string &field);

// A moment as people write it: "2021-03-14", "2021-03-14 08:30", "2021-03-14 08:30:15" (a T for the blank is
// fine), or "@SECONDS" since 1970. False when it is none.
bool record_time_of(const std::string &text, bool utc, int64_t *time);

#endif
