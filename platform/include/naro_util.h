// The platform's utility library: logging, memory, time, files under a root, small JSON readers.
//
// Thread words used in every header of this project:
//   any thread            may be called from any thread at any time
//   event loop only       only on the thread that runs the event loop
//   that task only        only on the one thread named
//   lock held             the caller holds the named lock
//   before threads start  only while the process has one thread
#ifndef NARO_UTIL_H
#define NARO_UTIL_H

#include <dirent.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

// ---- Logging
// -------------------------------------------------------------------------------------------------
// printf-style. The text is printed as it is; the logger ends the line where the text does not end in '\n',
// and never adds a second end after "\n" or "\r\n". One call writes one whole line: lines of two threads
// never mix. Any thread.
void log_err(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_warning(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_info(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_debug(const char *format, ...) __attribute__((format(printf, 1, 2)));

enum naro_log_level { NARO_LOG_ERR = 3, NARO_LOG_WARNING = 4, NARO_LOG_INFO = 6, NARO_LOG_DEBUG = 7 };

// Where log lines go instead of the error stream: `text` is the formatted text exactly as the caller gave it
// (no line end added), valid during the call only. Called with no lock held, on the logging thread, for every
// level. A null sink puts the ordinary output back. Any thread.
typedef void (*naro_log_sink)(void *context, enum naro_log_level level, const char *text);
void naro_log_set_sink(naro_log_sink sink, void *context);

// ---- Memory
// -------------------------------------------------------------------------------------------------- `size`
// bytes aligned to `alignment` (a power of two); null on failure. Release with naro_free (null is fine). Any
// thread.
void *naro_malloc(size_t size, size_t alignment);
void naro_free(void *memory);
// Copies `length` bytes between areas that do not overlap. Any thread.
void naro_copy(void *dst, const void *src, size_t length);
// `value` rounded up to a multiple of `multiple` (> 0). Any thread.
int naro_round(int value, int multiple);

// ---- Time: the one seam
// -------------------------------------------------------------------------------------- Everything in the
// daemon that reads a clock, sleeps or arms a timer goes through here, so that a test can replace time
// (naro_clock_replace) and run thirty minutes of rules in milliseconds. Any thread.
uint64_t time_realtime_ms(void);        // wall clock, milliseconds since 1970
int64_t naro_clock_wall_s(void);        // wall clock, seconds since 1970
uint64_t naro_clock_monotonic_ms(void); // never steps back
void naro_clock_sleep_ms(unsigned ms);  // a cancellation point
struct ev_loop;
struct ev_timer;
// (Re)arms `timer` on `loop` to fire once after `after_s` seconds. Event loop only.
void naro_clock_arm_timer(struct ev_loop *loop, struct ev_timer *timer, double after_s);

struct naro_clock {
    void *context;
    uint64_t (*wall_ms)(void *context);
    uint64_t (*monotonic_ms)(void *context);
    void (*sleep_ms)(void *context, unsigned ms);
    void (*arm_timer)(void *context, struct ev_loop *loop, struct ev_timer *timer, double after_s);
};
// Puts another clock in place (the struct is copied; a null member keeps the real one); null puts the real
// one back. Before threads start.
void naro_clock_replace(const struct naro_clock *clock);

// ---- Files under the root
// ------------------------------------------------------------------------------------ Host builds read the
// environment variable NARO_ROOT once; it is put before an absolute path at the moment the file is opened, so
// that callers build, measure and log the path without it. The calls are those of the C library otherwise:
// results, errno, cancellation. naro_open always adds O_CLOEXEC, naro_fopen "e". Any thread.
int naro_open(const char *path, int flags, mode_t mode);
FILE *naro_fopen(const char *path, const char *mode);
DIR *naro_opendir(const char *path);
int naro_access(const char *path, int mode);
int naro_mkdir(const char *path, mode_t mode);
int naro_unlink(const char *path);
ssize_t naro_read(int fd, void *buffer, size_t length);
ssize_t naro_write(int fd, const void *buffer, size_t length);
// A descriptor of the root folder ("/" without NARO_ROOT), opened once, close-on-exec, owned by the library;
// -1 with errno when it cannot be opened.
int naro_root_fd(void);
// The root as read ("" for none). Never ends in '/'.
const char *naro_root(void);

// Makes the parents of a file's path (not the last part) with `mode`; 0, or -1 with errno. An existing folder
// is fine. Any thread.
int dir_make_parent(const char *file_path, mode_t mode);

// Fault injection for tests: called before each of the calls above with the call's name ("open", "fopen",
// "opendir", "access", "mkdir", "unlink", "read", "write") and the path without the root (for read and write
// the path that the descriptor was opened with, "" when unknown). Return 0 to let the call through, a
// positive errno to make it fail with it, or a negative number -n to let a read or write move at most n - 1
// bytes. Null takes the hook away. Before threads start.
typedef int (*naro_file_fault)(void *context, const char *call, const char *path);
void naro_file_set_fault(naro_file_fault fault, void *context);

// ---- JSON
// ---------------------------------------------------------------------------------------------------- The
// member `name` of the object in `json_text` as an int: 0, or -1 with *out untouched (no such member, not a
// number, outside 32 bits, not JSON). Any thread.
int json_verify_get_int(const char *json_text, const char *name, int *out);
// The same for a text: 0 or -1; `buf` (of `size` bytes, size > 0) is always terminated, and cut at size - 1
// on a UTF-8 character boundary. Any thread.
int json_verify_get_string(const char *json_text, const char *name, char *buf, int size);

#ifdef __cplusplus
}
#endif
#endif
