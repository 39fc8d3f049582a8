// Writing the kernel's files under "/sys".
//
// The kernel takes each write as the whole new value, wherever it lands. On a board whose files are plain
// ones, that is only so if the writer makes it so: each write here starts at the beginning and replaces what
// was there. Whoever follows such a file may see it empty for a moment, never half of two values.
#ifndef SYSFS_H
#define SYSFS_H

#include <stddef.h>

// Makes the `length` bytes at `data` all that the open file holds: 0, or -1 with errno (a write cut short is
// EIO). Any thread.
int sysfs_replace(int fd, const void *data, size_t length);

// The same with the log line "[<caller>] write <path> fail: <reason>\n" on -1. Any thread.
int sysfs_replace_logged(int fd, const void *data, size_t length, const char *caller, const char *path);

// Writes the number of a line or a channel into an open "export" or "unexport". As above, but "busy" is no
// failure: the line is there already, left behind by a process that was killed. Any thread.
int sysfs_export(int fd, const char *number, const char *caller, const char *path);

#endif
