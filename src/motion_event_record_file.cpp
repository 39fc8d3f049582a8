// The files of motion records.
#include "motion_event_record_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "naro_util.h"

namespace
{

// How many of the bytes the file has taken, from where it stands.
int write_bytes(int fd, const void *bytes, int length)
{
    const uint8_t *from = static_cast<const uint8_t *>(bytes);
    int done = 0;
    while (done < length) {
        const ssize_t moved = naro_write(fd, from + done, static_cast<size_t>(length - done));
        if (moved <= 0)
            break;
        done += static_cast<int>(moved);
    }
    return done;
}

// A full card takes a piece of a record, and everything after a piece would be read wrong.
void put_back(int fd, const char *path, off_t length)
{
    if (ftruncate(fd, length) != 0)
        log_err("[%s] %s ends in a piece: %m\n", __func__, path);
}

bool folder_opens()
{
    const int fd = naro_open(MOTION_RECORD_ROOT, O_RDONLY | O_DIRECTORY, 0);
    if (fd < 0)
        return false;
    close(fd);
    return true;
}

int open_to_append(const char *path)
{
    return naro_open(path, O_RDWR | O_CREAT | O_APPEND, 0666);
}

} // namespace

int motion_record_get_dir(char *buffer, size_t size, int64_t time)
{
    const size_t root_length = sizeof MOTION_RECORD_ROOT - 1;
    if (size > 0)
        buffer[0] = '\0';
    const time_t seconds = static_cast<time_t>(time);
    struct tm local;
    tzset(); // localtime_r need not look whether the user has moved to another zone
    if (size <= root_length || seconds != time || !localtime_r(&seconds, &local))
        return -1;
    const size_t hour_length = strftime(buffer + root_length, size - root_length, "%Y%m%d%H", &local);
    if (hour_length == 0)
        return -1;
    memcpy(buffer, MOTION_RECORD_ROOT, root_length);
    return static_cast<int>(root_length + hour_length);
}

int motion_record_write_header(const char *path)
{
    const int fd = naro_open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) {
        log_err("open %s fail,errno = %d\n", path, errno);
        return -1;
    }
    motion_record_header header = {};
    memcpy(header.magic, MOTION_RECORD_MAGIC, sizeof header.magic);
    header.version = MOTION_RECORD_VERSION;
    const int num = write_bytes(fd, &header, sizeof header);
    const bool done = num == sizeof header;
    if (done) {
        log_info("write_header successful num = %d\n", num);
    } else {
        log_err("write_header fail\n");
        put_back(fd, path, 0);
    }
    close(fd);
    return done ? 0 : -1;
}

int motion_record_creat_dir_msgheader(const char *path)
{
    if (dir_make_parent(path, 0777) != 0) {
        log_err("create %s parent dir fail,errno = %d\n", path, errno);
        return -1;
    }
    return motion_record_write_header(path);
}

int motion_record_event_write(motion_record_event record)
{
    char folder[MOTION_RECORD_PATH_BYTES];
    char path[MOTION_RECORD_PATH_BYTES];
    if (motion_record_get_dir(folder, sizeof folder, record.time) < 0 ||
        snprintf(path, sizeof path, "%s/" MOTION_RECORD_FILE, folder) >= static_cast<int>(sizeof path)) {
        log_err("motion_record_get_dir err\n");
        return -1;
    }
    int fd = open_to_append(path);
    if (fd < 0) {
        // Never over a file that is there: a card with a bad contact would lose the hour to a fresh header.
        if (naro_access(path, F_OK) != 0)
            motion_record_creat_dir_msgheader(path);
        fd = open_to_append(path);
    }
    if (fd < 0) {
        log_err("open %s fail,errno = %d\n", path, errno);
        return 0;
    }
    const off_t before = lseek(fd, 0, SEEK_END);
    const int num = write_bytes(fd, &record, sizeof record);
    const bool done = num == sizeof record;
    if (done) {
        log_info("write_event successful num = %d\n", num);
    } else {
        log_err("write_event to file fail\n");
        if (num > 0)
            put_back(fd, path, before);
    }
    close(fd);
    return done ? 0 : -1;
}

int motion_record_check_folder(void)
{
    bool there = folder_opens();
    if (!there && errno == ENOENT) {
        if (naro_mkdir(MOTION_RECORD_ROOT, 0755) != 0) {
            log_err("The record folder is not exists and it can not be created! %m");
            return -1;
        }
        there = folder_opens();
    }
    if (!there)
        log_err("Fail to open the record folder:%m");
    return there ? 0 : -1;
}
