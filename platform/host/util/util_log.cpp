// Log lines to the error stream.
//
// A line is put together in one buffer and handed to the kernel by one write, under a lock: so lines of two
// threads never mix, not even where a pipe takes a long line in pieces. The buffer leaves room in front of
// the text for the prefix, because the sink of a test gets the text alone.
//
// A log call must not change what happens around it: errno is kept, and no line is a place where a thread can
// be cancelled (it may hold locks that it would never give back).
#include "naro_util.h"

#include <errno.h>
#include <inttypes.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace
{

enum {
    PREFIX_BYTES = 64,      // room for the longest prefix, terminator included
    STACK_TEXT_BYTES = 960, // longer texts go to the heap
    LINE_END_BYTES = 1,
};

struct log_state {
    pthread_mutex_t sink_lock;  // protects sink and sink_context; never held while the sink runs
    pthread_mutex_t write_lock; // one line at a time on the error stream
    pthread_once_t once;        // everything below is set once and only read afterwards
    naro_log_sink sink;
    void *sink_context;
    int threshold;           // levels above it (less urgent ones) are not printed
    bool journal;            // JOURNAL_STREAM names a device and inode:
    uintmax_t journal_dev;   // the error stream goes to the journal as long as it is this one
    uintmax_t journal_inode; //
};

log_state state = {PTHREAD_MUTEX_INITIALIZER,
                   PTHREAD_MUTEX_INITIALIZER,
                   PTHREAD_ONCE_INIT,
                   nullptr,
                   nullptr,
                   NARO_LOG_INFO,
                   false,
                   0,
                   0};

struct level_name {
    int level;
    const char *word;
};
const level_name level_names[] = {
    {NARO_LOG_ERR, "err"},
    {NARO_LOG_WARNING, "warning"},
    {NARO_LOG_INFO, "info"},
    {NARO_LOG_DEBUG, "debug"},
};

const char *word_of(int level)
{
    for (const level_name &name : level_names)
        if (name.level == level)
            return name.word;
    return "?";
}

bool error_stream_is_journal()
{
    struct stat status;
    return state.journal && fstat(STDERR_FILENO, &status) == 0 && status.st_dev == state.journal_dev &&
           status.st_ino == state.journal_inode;
}

// Writes the prefix for a line of `level` to `prefix` (of PREFIX_BYTES) and returns its length.
size_t make_prefix(char *prefix, int level)
{
    if (error_stream_is_journal())
        return static_cast<size_t>(snprintf(prefix, PREFIX_BYTES, "<%d>", level));
    // Not through the clock seam: a line tells when it was written, also where a test drives the time.
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &local);
    const int length = snprintf(prefix, PREFIX_BYTES, "%s.%03d %-7s ", date,
                                static_cast<int>(now.tv_nsec / 1000000), word_of(level));
    return static_cast<size_t>(length);
}

void write_line(const char *line, size_t length)
{
    pthread_mutex_lock(&state.write_lock);
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, line, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            break; // nobody can be told
        line += written;
        length -= static_cast<size_t>(written);
    }
    pthread_mutex_unlock(&state.write_lock);
}

// Prints `text` of `length` bytes, which has PREFIX_BYTES of room before it and one byte after it.
void print(int level, char *text, size_t length)
{
    char prefix[PREFIX_BYTES];
    const size_t prefix_length = make_prefix(prefix, level);
    char *line = text - prefix_length;
    memcpy(line, prefix, prefix_length);
    if (length == 0 || text[length - 1] != '\n')
        text[length++] = '\n';
    write_line(line, prefix_length + length);
}

// 0 to 7, or -1 when `text` is neither a level's word nor its number.
int parse_level(const char *text)
{
    for (const level_name &name : level_names)
        if (strcmp(text, name.word) == 0)
            return name.level;
    if (text[0] >= '0' && text[0] <= '7' && text[1] == '\0')
        return text[0] - '0';
    return -1;
}

void read_environment()
{
    // Set by the service manager to "device:inode" of the stream it reads as a journal.
    const char *journal = getenv("JOURNAL_STREAM");
    if (journal) {
        char *colon = nullptr;
        state.journal_dev = strtoumax(journal, &colon, 10);
        if (colon != journal && *colon == ':') {
            char *end = nullptr;
            state.journal_inode = strtoumax(colon + 1, &end, 10);
            state.journal = end != colon + 1 && *end == '\0';
        }
    }
    const char *wanted = getenv("NARO_LOG_LEVEL");
    if (!wanted || !*wanted)
        return;
    const int level = parse_level(wanted);
    if (level >= 0) {
        state.threshold = level;
        return;
    }
    char room[PREFIX_BYTES + STACK_TEXT_BYTES + LINE_END_BYTES];
    char *text = room + PREFIX_BYTES;
    snprintf(
        text, STACK_TEXT_BYTES,
        "NARO_LOG_LEVEL is '%.32s', not err, warning, info, debug or a number from 0 to 7: taken as info",
        wanted);
    print(NARO_LOG_WARNING, text, strlen(text));
}

void deliver(naro_log_level level, char *text, size_t length)
{
    pthread_mutex_lock(&state.sink_lock);
    const naro_log_sink sink = state.sink;
    void *context = state.sink_context;
    pthread_mutex_unlock(&state.sink_lock);
    if (sink) {
        sink(context, level, text);
        return;
    }
    pthread_once(&state.once, read_environment);
    if (level <= state.threshold)
        print(level, text, length);
}

__attribute__((format(printf, 2, 0))) void log_text(naro_log_level level, const char *format,
                                                    va_list arguments)
{
    const int saved_errno = errno;
    int cancel_state = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);

    char room[PREFIX_BYTES + STACK_TEXT_BYTES + LINE_END_BYTES];
    char *text = room + PREFIX_BYTES;
    va_list again;
    va_copy(again, arguments);
    errno = saved_errno; // "%m"
    int length = vsnprintf(text, STACK_TEXT_BYTES, format, arguments);
    char *heap = nullptr;
    if (length >= STACK_TEXT_BYTES) {
        heap = static_cast<char *>(malloc(PREFIX_BYTES + static_cast<size_t>(length) + 1 + LINE_END_BYTES));
        if (heap) {
            text = heap + PREFIX_BYTES;
            errno = saved_errno;
            length = vsnprintf(text, static_cast<size_t>(length) + 1, format, again);
        } else {
            length = STACK_TEXT_BYTES - 1; // no memory: as much as fits is better than nothing
        }
    } else if (length < 0) {
        // The arguments could not be formatted; the format still says where this was.
        length = snprintf(text, STACK_TEXT_BYTES, "%s", format);
        if (length >= STACK_TEXT_BYTES)
            length = STACK_TEXT_BYTES - 1;
    }
    va_end(again);
    deliver(level, text, static_cast<size_t>(length));
    free(heap);

    pthread_setcancelstate(cancel_state, nullptr);
    errno = saved_errno;
}

} // namespace

void log_err(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_text(NARO_LOG_ERR, format, arguments);
    va_end(arguments);
}

void log_warning(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_text(NARO_LOG_WARNING, format, arguments);
    va_end(arguments);
}

void log_info(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_text(NARO_LOG_INFO, format, arguments);
    va_end(arguments);
}

void log_debug(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_text(NARO_LOG_DEBUG, format, arguments);
    va_end(arguments);
}

void naro_log_set_sink(naro_log_sink sink, void *context)
{
    pthread_mutex_lock(&state.sink_lock);
    state.sink = sink;
    state.sink_context = context;
    pthread_mutex_unlock(&state.sink_lock);
}
