// What the desk camera's programs share: where a camera lives on this machine, and how they speak to a
// person.
#ifndef DESK_H
#define DESK_H

#include <stddef.h>

// The name that lines on the error stream begin with ("naro_camera: ..."). Before threads start.
void desk_set_program(const char *name);
// One line to the person at the keyboard, on the error stream; the line end is added. Any thread.
void desk_say(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Settles the root (NARO_ROOT) of this process and of those it starts: the one in the environment, else
// "naro" in the user's runtime folder (XDG_RUNTIME_DIR), else "/tmp/naro-<user number>". So a camera and the
// tools that look at it meet without being told. With `create`, the folder and the folders of sockets in it
// are made, readable by this user only; a default folder that someone else has put there is refused. 0, or -1
// after saying why. Before threads start, and before anything asks for the root.
int desk_enter_root(bool create);

// The default root for a user, given XDG_RUNTIME_DIR's value (null or not absolute: none), into `path`.
void desk_default_root(const char *runtime_folder, unsigned user, char *path, size_t size);

#endif
