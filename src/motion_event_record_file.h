// The files of motion records: what they are called, what is in them, and how one record gets there.
//
// All times are seconds since 1970; the hour that a record belongs to is that of its own local time. Every
// call logs its own trouble. On the writer thread; before it starts and after it was joined on any one.
#ifndef MOTION_EVENT_RECORD_FILE_H
#define MOTION_EVENT_RECORD_FILE_H

#include <stddef.h>
#include <stdint.h>

#define MOTION_RECORD_ROOT "/mnt/sdcard/ZEDRA_RECORD_MOTION/" // a folder for each hour follows at once
#define MOTION_RECORD_FILE "motion_record_msg"
#define MOTION_RECORD_MAGIC "UVOEVENT" // without its zero byte
enum { MOTION_RECORD_PATH_BYTES = 64, MOTION_RECORD_VERSION = 1 };

// A file is a header and then records, all little-endian. A file without a header is possible: see
// motion_record_event_write. Both sizes are multiples of 32, so a file of another size ends in a piece.
struct motion_record_header {
    char magic[8];
    uint32_t version;
    uint8_t zero[116];
};
struct motion_record_event {
    int64_t time;
    uint32_t type;
    uint32_t reserved; // 0
    uint64_t value;
    uint16_t field[4];
};
static_assert(sizeof(motion_record_header) == 128 && offsetof(motion_record_header, version) == 8 &&
                  offsetof(motion_record_header, zero) == 12,
              "the header is a file's");
static_assert(sizeof(motion_record_event) == 32 && offsetof(motion_record_event, type) == 8 &&
                  offsetof(motion_record_event, reserved) == 12 &&
                  offsetof(motion_record_event, value) == 16 && offsetof(motion_record_event, field) == 24,
              "the record is a file's");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "records are written as they lie in memory");

// Appends a record to the file of its hour. 0, or -1 when the time has no folder's name or the file did not
// take all of the record: it is then put back to what it held before. A file that cannot be opened is
// deliberately 0, too.
//
// The header is written only where the file cannot be opened at first, which is where its folder is not there
// yet. A file that was removed from its folder begins again without a header: that is part of the format, and
// readers know it.
int motion_record_event_write(motion_record_event record);

// Writes the name of the folder of `time` into `buffer`; its length, or -1 when it does not fit or there is
// none (an empty text then, if there is room for one).
int motion_record_get_dir(char *buffer, size_t size, int64_t time);

// Makes the folders of a file and the file with its header. 0 or -1.
int motion_record_creat_dir_msgheader(const char *path);

// Makes the file, or empties it, and writes the header. 0 or -1; no part of a header stays.
int motion_record_write_header(const char *path);

// Makes sure that the folder of all records is there. 0 or -1.
int motion_record_check_folder(void);

#endif
