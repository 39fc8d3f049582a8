// The pipe to ffplay. One picture is in flight at most.
#include "window.h"

#include <errno.h>
#include <ev.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "desk.h"
#include "overlay.h"

namespace
{

struct {
    struct ev_loop *loop;
    ev_io writable;
    int pipe = -1;
    pid_t pid;
    std::vector<uint8_t> picture;
    size_t written; // of the picture in flight
} window;

void close_pipe(void)
{
    if (window.pipe < 0)
        return;
    ev_io_stop(window.loop, &window.writable);
    close(window.pipe);
    window.pipe = -1;
}

void write_on(void)
{
    while (window.written < window.picture.size()) {
        const ssize_t done = write(window.pipe, window.picture.data() + window.written,
                                   window.picture.size() - window.written);
        if (done < 0 && errno == EINTR)
            continue;
        if (done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            ev_io_start(window.loop, &window.writable);
            return;
        }
        if (done < 0) {
            desk_say("the window is closed; going on without it (Ctrl-C ends the camera)");
            close_pipe();
            return;
        }
        window.written += static_cast<size_t>(done);
    }
    ev_io_stop(window.loop, &window.writable);
}

void on_writable(struct ev_loop *, ev_io *, int)
{
    write_on();
}

int spawn_player(int input)
{
    char size[32], rate[16];
    snprintf(size, sizeof size, "%dx%d", VIEW_WIDTH, VIEW_HEIGHT);
    snprintf(rate, sizeof rate, "%d", FRAMES_PER_SECOND);
    const char *format = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "bgr0" : "0rgb";
    const char *arguments[] = {
        "ffplay",        "-loglevel",   "quiet",      "-f",     "rawvideo", "-pixel_format", format,
        "-video_size",   size,          "-framerate", rate,     "-fflags",  "nobuffer",      "-framedrop",
        "-window_title", "naro_camera", "-i",         "pipe:0", nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    const int error = posix_spawnp(&window.pid, "ffplay", &actions, &attributes,
                                   const_cast<char *const *>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

} // namespace

void window_start(struct ev_loop *loop)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        desk_say("no window: %s", strerror(errno));
        return;
    }
    const int error = spawn_player(ends[0]);
    close(ends[0]);
    if (error != 0) {
        desk_say("no window: ffplay cannot be started: %s", strerror(error));
        window.pid = 0;
        close(ends[1]);
        return;
    }
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    window.loop = loop;
    window.pipe = ends[1];
    ev_io_init(&window.writable, on_writable, window.pipe, EV_WRITE);
}

void window_picture(const uint32_t *pixels)
{
    if (window.pipe < 0 || window.written < window.picture.size())
        return;
    const uint8_t *bytes = reinterpret_cast<const uint8_t *>(pixels);
    window.picture.assign(bytes, bytes + static_cast<size_t>(VIEW_WIDTH) * VIEW_HEIGHT * 4);
    window.written = 0;
    write_on();
}

void window_stop(void)
{
    close_pipe();
    if (window.pid > 0) {
        // It would show its last pictures at its own pace; it has nothing to put in order.
        kill(window.pid, SIGKILL);
        waitpid(window.pid, nullptr, 0);
        window.pid = 0;
    }
}
