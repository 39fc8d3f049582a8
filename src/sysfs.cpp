// Writing the kernel's files under "/sys", so that plain files in their place end up the same.
#include "sysfs.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "naro_util.h"

int sysfs_replace(int fd, const void *data, size_t length)
{
    // The kernel's files have neither a place to go to nor a length to cut, so what they answer to this does
    // not matter.
    lseek(fd, 0, SEEK_SET);
    const int cut = ftruncate(fd, 0);
    static_cast<void>(cut);
    const ssize_t moved = naro_write(fd, data, length);
    if (moved >= 0 && static_cast<size_t>(moved) != length)
        errno = EIO;
    return moved >= 0 && static_cast<size_t>(moved) == length ? 0 : -1;
}

int sysfs_replace_logged(int fd, const void *data, size_t length, const char *caller, const char *path)
{
    const int result = sysfs_replace(fd, data, length);
    if (result != 0)
        log_err("[%s] write %s fail: %m\n", caller, path);
    return result;
}

int sysfs_export(int fd, const char *number, const char *caller, const char *path)
{
    if (sysfs_replace(fd, number, strlen(number)) == 0 || errno == EBUSY)
        return 0;
    log_err("[%s] write %s fail: %m\n", caller, path);
    return -1;
}
