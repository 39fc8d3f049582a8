// The road of frames: to the daemon on the raw-stream channel, and back as events and tracking commands.
//
// At the source's pace, each "rawcap" of the daemon is answered with the picture of that moment. Hurried
// (`fast`), "rawcap" is ignored: two frames go out at the start (the first is only compared with and gives no
// answer), then one for each tracking command, five for each second of the source.
//
// A frame is done when its tracking command has come; its events have come before. Hurried, that is exact. At
// the source's pace a daemon that lags loses frames by its own rule (its newest waiting one), which is
// followed here as far as can be seen from outside.
#ifndef FRAMES_H
#define FRAMES_H

#include <stdint.h>
#include <string>
#include <vector>

#include "naro_ipc_wire.h"

struct AVFrame;
struct ev_loop;

enum {
    FRAMES_PER_SECOND = 5,
    FRAMES_STEP_MS = 1000 / FRAMES_PER_SECOND,
};

struct frame_result {
    uint64_t number;  // of the frames sent, from 0
    uint64_t time_ms; // source time
    bool analysed;    // false: compared with only, or lost
    bool lost;
    std::vector<std::string> events;
    naro_isp_track_param track;
    int boxes;              // how many of them are people
    const AVFrame *picture; // as the source gave it; null unless wanted. Valid during the call
};

struct frames_settings {
    bool fast;
    int listeners;   // receivers of the raw stream that must be there before the first frame
    bool held;       // no frame goes out before frames_release, anew for each daemon
    uint64_t end_ms; // source time at which to stop; 0: when the source ends
    // Each picture as it is sent, ANALYSIS_FRAME_BYTES; null: nobody wants it. In the order of their numbers.
    void (*on_send)(const uint8_t *nv12);
    bool keep_pictures; // results carry the picture
    void (*on_result)(const frame_result *result);
    void (*on_end)(bool failed); // nothing more to send, and everything sent has been heard of
    double
        wide; // above 0: of each picture only a window of that share, where the camera's head looks (wide.h)
};

struct frames_counts {
    uint64_t sent;
    uint64_t analysed;
    uint64_t compared; // only compared with: the first after each start of the daemon
    uint64_t lost;
    uint64_t with_motion; // frames with an event
    uint64_t with_people;
    uint64_t bad_events;   // messages on the md channel that are no event
    uint64_t last_time_ms; // source time of the newest frame sent
    double last_result_at; // ev_now of the last tracking command; 0: none yet
    bool connected;        // the daemon takes frames, and its events arrive here
};

// Opens the channels on `loop`. The source must have been started with frames_wake as its wake. 0, or -1
// after saying why. Event loop only, as are all of these but frames_wake.
int frames_start(struct ev_loop *loop, const frames_settings *settings);
void frames_stop(void);
// A tracking command has come, and everything that came before it has been handled.
void frames_on_track(const naro_isp_track_param *track);
// Someone has connected to the command socket: the daemon, perhaps, after it lost its connection and a command.
void frames_on_client(void);
// Held frames may go: the daemon has its settings.
void frames_release(void);
// No daemon to send to any more, until the next connects.
void frames_on_daemon_end(void);
// The source has something new. Any thread, between frames_start and frames_stop.
void frames_wake(void *unused);
const frames_counts *frames_get_counts(void);

#endif
