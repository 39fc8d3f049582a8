// The root that the desk camera's programs share, and their lines to a person.
#include "desk.h"

#include <errno.h>
#include <initializer_list>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "naro_util.h"

namespace
{

struct {
    const char *program = "naro"; // set before threads start
} state;

} // namespace

void desk_set_program(const char *name)
{
    state.program = name;
}

void desk_say(const char *format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it does not see va_start
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // One call, so that lines of two threads do not mix.
    fprintf(stderr, "%s: %s\n", state.program, text);
}

void desk_default_root(const char *runtime_folder, unsigned user, char *path, size_t size)
{
    if (runtime_folder && runtime_folder[0] == '/')
        snprintf(path, size, "%s/naro", runtime_folder);
    else
        snprintf(path, size, "/tmp/naro-%u", user);
}

// Whether the default root is ours alone: /tmp is everybody's, and what lies there may be a trap.
static bool is_ours(const char *path)
{
    struct stat status;
    if (lstat(path, &status) != 0) {
        desk_say("%s: %s", path, strerror(errno));
        return false;
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() || (status.st_mode & 022) != 0) {
        desk_say(
            "%s is there, but is not a folder that only this user can write to; remove it or set NARO_ROOT",
            path);
        return false;
    }
    return true;
}

int desk_enter_root(bool create)
{
    const char *given = getenv("NARO_ROOT");
    char path[4096];
    if (given) {
        if (create && *given && mkdir(given, 0700) != 0 && errno != EEXIST) {
            desk_say("NARO_ROOT: %s: %s", given, strerror(errno));
            return -1;
        }
    } else {
        desk_default_root(getenv("XDG_RUNTIME_DIR"), static_cast<unsigned>(geteuid()), path, sizeof path);
        if (create && mkdir(path, 0700) != 0 && errno != EEXIST) {
            desk_say("%s: %s", path, strerror(errno));
            return -1;
        }
        if (!create && access(path, F_OK) != 0) {
            desk_say("no camera has run here yet (%s is not there; NARO_ROOT names another place)", path);
            return -1;
        }
        if (!is_ours(path))
            return -1;
        setenv("NARO_ROOT", path, 1);
    }
    if (!create)
        return 0;
    for (const char *file : {"/run/naro/file", "/tmp/file"}) {
        if (dir_make_parent(file, 0755) != 0) {
            desk_say("%s%s: the folders cannot be made: %s", naro_root(), file, strerror(errno));
            return -1;
        }
    }
    return 0;
}
