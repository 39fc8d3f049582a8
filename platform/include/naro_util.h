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

// ---- Logging --------------------------------------------------------------------------------------------
// printf-style, to the error stream. The text is printed as it is; the logger ends the line where the text
// does not end in '\n', and never adds a second end after "\n" or "\r\n". One call writes one whole line, of
// any length: lines of two threads never mix. A line that the error stream does not take (closed, or full and
// set not to wait) is lost. errno is kept, and "%m" is the caller's; a call is not a cancellation point. Not
// for signal handlers. Any thread.
//
// Host: the environment variable NARO_LOG_LEVEL says what is printed: err, warning, info (the default),
// debug, or a number from 0 (nothing) to 7 (all). Before the text stand the local time and the level,
//   2026-01-31 07:05:09.042 warning [gpio_open 31] no such line
// or, where the error stream is the service manager's journal (JOURNAL_STREAM), "<4>" alone. Both variables
// are read once.
void log_err(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_warning(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_info(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_debug(const char *format, ...) __attribute__((format(printf, 1, 2)));

enum naro_log_level { NARO_LOG_ERR = 3, NARO_LOG_WARNING = 4, NARO_LOG_INFO = 6, NARO_LOG_DEBUG = 7 };

// Where log lines go instead of the error stream: `text` is the formatted text exactly as the caller gave it
// (no line end added), valid during the call only. Called with no lock held, on the logging thread, for every
// level; it may log and set sinks itself. A null sink puts the ordinary output back. A log call that is under
// way on another thread may still reach a sink after it was replaced. Any thread.
typedef void (*naro_log_sink)(void *context, enum naro_log_level level, const char *text);
void naro_log_set_sink(naro_log_sink sink, void *context);

// ---- Memory ---------------------------------------------------------------------------------------------
// `size` bytes, not cleared, aligned to `alignment` (a power of two); null on failure, with errno EINVAL (the
// alignment) or ENOMEM. 0 bytes are an area too, and no failure. Release with naro_free (null is fine).
// Any thread.
void *naro_malloc(size_t size, size_t alignment);
void naro_free(void *memory);
// Copies `length` bytes between areas that do not overlap; with a length of 0 the pointers may be null.
// Any thread.
void naro_copy(void *dst, const void *src, size_t length);
// `value` rounded up (towards plus infinity) to a multiple of `multiple`; INT_MAX where that is no int;
// `value` itself where `multiple` is not positive. Any thread.
int naro_round(int value, int multiple);

// ---- Time: the one seam ---------------------------------------------------------------------------------
// Everything in the daemon that reads a clock, sleeps or arms a timer goes through here, so that a test can
// replace time (naro_clock_replace) and run thirty minutes of rules in milliseconds. Any thread.
uint64_t time_realtime_ms(void);        // wall clock, milliseconds since 1970
int64_t naro_clock_wall_s(void);        // wall clock, seconds since 1970
uint64_t naro_clock_monotonic_ms(void); // never steps back
void naro_clock_sleep_ms(unsigned ms);  // at least this long, whatever signals come; a cancellation point
struct ev_loop;
struct ev_timer;
// (Re)arms `timer` (ev_init done) on `loop` to fire once, `after_s` seconds from now; an earlier arming and a
// repetition end. Event loop only.
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

// ---- Files under the root -------------------------------------------------------------------------------
// Host builds read the environment variable NARO_ROOT once (a relative one counts from the working folder of
// that moment); it is put before an absolute path at the moment the file is opened, so that callers build,
// measure and log the path without it. The calls are those of the C library otherwise: results, errno,
// cancellation; a path that gets longer than PATH_MAX with the root fails with ENAMETOOLONG, a null path with
// EFAULT. naro_open always adds O_CLOEXEC, naro_fopen "e". Where the root has no "/proc/meminfo", opening or
// asking for it gives the machine's; no other path leaves the root. Any thread.
int naro_open(const char *path, int flags, mode_t mode);
FILE *naro_fopen(const char *path, const char *mode);
DIR *naro_opendir(const char *path);
int naro_access(const char *path, int mode);
int naro_mkdir(const char *path, mode_t mode);
int naro_unlink(const char *path);
ssize_t naro_read(int fd, void *buffer, size_t length);
ssize_t naro_write(int fd, const void *buffer, size_t length);
// A descriptor of the root folder ("/" without NARO_ROOT), opened once, close-on-exec, owned by the library;
// -1 with errno when it cannot be opened (the next call tries again). A place for paths to start from
// (openat, "/proc/self/fd/N/..."), not to be read. Not a cancellation point. Any thread.
int naro_root_fd(void);
// The root as read ("" for none). Never ends in '/'. Any thread.
const char *naro_root(void);

// Makes the parents of a file's path (all before the last '/') with `mode` less the umask; 0, or -1 with
// errno. An existing folder, or a link to one, is fine and keeps its mode; anything else of that name is
// ENOTDIR. On failure the parents that could be made stay. Any thread.
int dir_make_parent(const char *file_path, mode_t mode);

// Fault injection for tests: called before each of the calls above with the call's name ("open", "fopen",
// "opendir", "access", "mkdir", "unlink", "read", "write") and the path without the root (for read and write
// the path that the descriptor was opened with, "" when unknown; a null path is "" too). Return 0 to let the
// call through, a positive errno to make it fail with it and do nothing, or a negative number -n to let a
// read or write move at most n - 1 bytes (the other calls go through). Each folder of dir_make_parent is a
// "mkdir". The hook runs on the calling thread with no lock held. Null takes it away. Before threads start.
typedef int (*naro_file_fault)(void *context, const char *call, const char *path);
void naro_file_set_fault(naro_file_fault fault, void *context);

// ---- JSON -----------------------------------------------------------------------------------------------
// The member `name` of the object in `json_text` as an int: 0, or -1 with *out untouched (no such member, not
// a number, outside 32 bits, not JSON, anything but space after the object, nested deeper than 32). A number
// with a fraction loses it (12.9 is 12, -12.9 is -12). Of two members of one name the later counts. Null
// pointers are -1. Any thread.
int json_verify_get_int(const char *json_text, const char *name, int *out);
// The same for a text: 0 or -1; `buf` (of `size` bytes) is always terminated, empty on -1, and cut at
// size - 1 on a UTF-8 character boundary. Where the text holds "\u0000" it ends. With a size below 1 nothing
// is written, and it is -1. Any thread.
int json_verify_get_string(const char *json_text, const char *name, char *buf, int size);

#ifdef __cplusplus
}
#endif
#endif
