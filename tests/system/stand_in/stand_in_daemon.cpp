// A daemon in the daemon's place, for tests of the camera alone: it takes frames and answers each after the
// first, as simply as can be. Motion is any difference in the picture; a person is whatever is brighter than
// all else. What it is to do wrong is said in NARO_STAND_IN, words with spaces between:
//   exit=N         ends at once with that status
//   crash_after=N  kills itself after N answers
//   deaf           does not end on SIGTERM
//   mute           sends no tracking commands
//   noise          broadcasts what is no event, too
#include <ev.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "event_channels.h"
#include "naro_ipc_wire.h"
#include "shbf.h"
#include "shbfev.h"

namespace
{

struct {
    void *raw;
    void *md;
    int commands = -1;
    bool has_previous;
    uint8_t previous[ANALYSIS_FRAME_BYTES];
    long answers;
    long crash_after = -1;
    bool mute;
    bool noise;
} daemon_state;

bool told(const char *word, long *value)
{
    const char *text = getenv("NARO_STAND_IN");
    const char *found = text ? strstr(text, word) : nullptr;
    if (found && value)
        *value = strtol(found + strlen(word), nullptr, 10);
    return found != nullptr;
}

int connect_commands(void)
{
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    memcpy(name.sun_path + 1, NARO_IPC_SOCKET_NAME, strlen(NARO_IPC_SOCKET_NAME));
    for (;;) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return -1;
        if (connect(fd, reinterpret_cast<sockaddr *>(&name), sizeof name) == 0)
            return fd;
        close(fd);
        usleep(20000);
    }
}

void send_track(const naro_isp_track_param &track)
{
    struct {
        naro_ipc_cmd_header header;
        naro_isp_track_param track;
        uint32_t tail;
    } request = {{NARO_IPC_MAGIC, 116, NARO_CMD_TRACK_RUN, NARO_IPC_SET}, track, NARO_IPC_TAIL};
    static_assert(sizeof request == 116, "wire layout");
    uint8_t reply[24];
    if (write(daemon_state.commands, &request, sizeof request) != static_cast<ssize_t>(sizeof request) ||
        read(daemon_state.commands, reply, sizeof reply) != static_cast<ssize_t>(sizeof reply)) {
        close(daemon_state.commands);
        daemon_state.commands = connect_commands();
    }
}

// The box around what is brighter than `from`; none when there is nothing.
naro_isp_track_param look(const uint8_t *luma, int from)
{
    naro_track_box box = {ANALYSIS_WIDTH, ANALYSIS_HEIGHT, -1, -1};
    for (int y = 0; y < ANALYSIS_HEIGHT; y++) {
        for (int x = 0; x < ANALYSIS_WIDTH; x++) {
            if (luma[y * ANALYSIS_WIDTH + x] < from)
                continue;
            box.x1 = x < box.x1 ? x : box.x1;
            box.x2 = x > box.x2 ? x : box.x2;
            box.y1 = y < box.y1 ? y : box.y1;
            box.y2 = y > box.y2 ? y : box.y2;
        }
    }
    naro_isp_track_param track = {};
    if (box.x2 >= 0)
        track.box[0] = box;
    return track;
}

int on_frame(void *, void *buffer)
{
    const uint8_t *pixels = static_cast<uint8_t *>(buffer) + sizeof(raw_frame_header);
    if (shbf_size(buffer) != sizeof(raw_frame_header) + ANALYSIS_FRAME_BYTES) {
        fprintf(stderr, "a frame of %zu bytes\n", shbf_size(buffer));
        exit(9);
    }
    if (daemon_state.has_previous) {
        const bool motion = memcmp(pixels, daemon_state.previous, ANALYSIS_CHROMA_OFFSET) != 0;
        const naro_isp_track_param track = motion ? look(pixels, 200) : naro_isp_track_param{};
        const bool person = track.box[0].x2 > 0;
        if (daemon_state.noise)
            shbfev_brd_broadcast_message(daemon_state.md, "no end", 6);
        if (motion)
            shbfev_brd_broadcast_message(daemon_state.md, person ? EVENT_PEOPLE_MOTION : EVENT_OBJECT_MOTION,
                                         EVENT_MOTION_LENGTH);
        if (daemon_state.answers == daemon_state.crash_after)
            raise(SIGKILL);
        if (!daemon_state.mute)
            send_track(track);
        daemon_state.answers++;
    }
    memcpy(daemon_state.previous, pixels, ANALYSIS_FRAME_BYTES);
    daemon_state.has_previous = true;
    shbf_free(buffer);
    return 0;
}

void on_request(struct ev_loop *, ev_periodic *, int)
{
    shbfev_rcv_send_message(daemon_state.raw, RAW_FRAME_REQUEST, RAW_FRAME_REQUEST_LENGTH);
}

} // namespace

int main()
{
    long status;
    if (told("exit=", &status))
        return static_cast<int>(status);
    told("crash_after=", &daemon_state.crash_after);
    daemon_state.mute = told("mute", nullptr);
    daemon_state.noise = told("noise", nullptr);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    if (told("deaf", nullptr))
        signal(SIGTERM, SIG_IGN);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("stand-in daemon\n");
    daemon_state.commands = connect_commands();
    struct ev_loop *loop = ev_default_loop(0);
    shbf_rcv_global_init();
    daemon_state.md = shbfev_brd_create(EVENT_PATH_MD);
    daemon_state.raw = shbfev_rcv_create(loop, EVENT_PATH_RAW_STREAM);
    if (shbfev_brd_start(loop, daemon_state.md) < 0)
        return 8;
    shbfev_rcv_register(daemon_state.raw, SHBFEV_RCV_DATA, on_frame, nullptr);
    shbfev_rcv_start(daemon_state.raw);
    ev_periodic request;
    ev_periodic_init(&request, on_request, 0., 0.2, nullptr);
    ev_periodic_start(loop, &request);
    ev_run(loop, 0);
    return 0;
}
