// As much of the utility library as the daemon's end of the mailbox needs, for word sizes for which the
// library's own dependencies are not here: lines "LEVEL TEXT" on the error stream, and a real sleep.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <time.h>

#include "naro_util.h"

static void say(const char *level, const char *format, va_list arguments)
{
    char text[512];
    vsnprintf(text, sizeof text, format, arguments);
    fprintf(stderr, "%s %s", level, text);
}

#define LEVEL(function, level)                                                                               \
    void function(const char *format, ...)                                                                   \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, format);                                                                         \
        say(level, format, arguments);                                                                       \
        va_end(arguments);                                                                                   \
    }
LEVEL(log_err, "err")
LEVEL(log_warning, "warning")
LEVEL(log_info, "info")

void naro_clock_sleep_ms(unsigned ms)
{
    timespec rest = {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR)
        ;
}
