// The raw-stream broadcaster, the receiver of events, and which answer belongs to which frame.
#include "frames.h"

#include <algorithm>
#include <deque>
#include <endian.h>
#include <ev.h>
#include <string.h>

extern "C" {
#include <libavutil/frame.h>
}

#include "desk.h"
#include "event_channels.h"
#include "events.h"
#include "motor_head.h"
#include "naro_util.h"
#include "picture.h"
#include "shbf.h"
#include "shbfev.h"
#include "source.h"
#include "wide.h"

namespace
{

const double TICK_S = 0.02;          // how often waiting conditions are looked at
const uint64_t ANSWER_MAX_MS = 2000; // at the source's pace, a frame without an answer for so long is lost
// Hurried, the same; longer, because nothing but a mistake loses a frame then, and a slow machine is no
// mistake.
const uint64_t FAST_ANSWER_MAX_MS = 30000;
// The same when the daemon has had to connect anew: the command that showed it the loss is gone with the connection.
const uint64_t RECONNECT_ANSWER_MAX_MS = 2000;
const uint64_t EVENT_ALONE_MS = 1000; // an event that no tracking command follows is shown after this
// What the daemon holds besides the frame it compares with: one in work, one waiting.
const size_t DAEMON_HOLDS = 2;

struct sent_frame {
    uint64_t number;
    uint64_t time_ms;
    uint64_t sent_at_ms; // monotonic
    AVFrame *picture;    // null unless kept
};

struct message {
    raw_frame_header header;
    uint8_t pixels[ANALYSIS_FRAME_BYTES + 64]; // the scaler may store whole vectors
};

struct {
    struct ev_loop *loop;
    frames_settings settings;
    frames_counts counts;
    void *raw;    // broadcaster
    void *events; // receiver
    ev_async wake;
    ev_timer tick;

    bool connected;             // every listener is there
    bool doubt;                 // a client has connected to the command socket since the last answer
    bool released;              // held frames may go to this daemon
    bool reference;             // the daemon has a frame to compare with
    std::deque<sent_frame> out; // sent and not answered, oldest first; without the reference
    std::vector<std::string> pending_events;
    uint64_t events_since_ms; // monotonic; when the oldest of them came

    // Hurried.
    unsigned credits;   // frames that may be sent now
    uint64_t next_step; // number of the next step of the source's time
    bool prepared;      // `ready` is the next frame
    message ready;
    AVFrame *ready_picture;

    // At the source's pace.
    bool playing;
    bool starved;         // the source had no picture for the last request
    uint64_t play_ms;     // source time
    uint64_t asked_at_ms; // monotonic; the last request

    bool wide_trouble; // that a picture could not be cut was said
    bool source_over;
    bool failed;
    bool ended;
    uint64_t last_sent_at_ms;
} road;

// ---- Results
// -------------------------------------------------------------------------------------------------

void report(sent_frame *frame, const naro_isp_track_param *track)
{
    frame_result result = {};
    result.number = frame->number;
    result.time_ms = frame->time_ms;
    result.picture = frame->picture;
    if (track) {
        result.analysed = true;
        result.track = *track;
        result.boxes = event_boxes(track);
        result.events.swap(road.pending_events);
        road.counts.analysed++;
        bool people = false;
        for (const std::string &name : result.events)
            people = people || name == EVENT_PEOPLE_MOTION;
        const bool motion =
            people || std::count(result.events.begin(), result.events.end(), EVENT_OBJECT_MOTION) > 0;
        road.counts.with_motion += motion;
        road.counts.with_people += people;
    }
    road.settings.on_result(&result);
    av_frame_free(&frame->picture);
}

void lose(sent_frame *frame)
{
    frame_result result = {};
    result.number = frame->number;
    result.time_ms = frame->time_ms;
    result.lost = true;
    result.picture = frame->picture;
    road.counts.lost++;
    road.settings.on_result(&result);
    av_frame_free(&frame->picture);
}

void lose_all(void)
{
    while (!road.out.empty()) {
        lose(&road.out.front());
        road.out.pop_front();
    }
}

// Shows events that no tracking command followed: with the time of the newest frame, without boxes.
void report_events_alone(void)
{
    frame_result result = {};
    result.number = road.counts.sent;
    result.time_ms = road.counts.last_time_ms;
    result.events.swap(road.pending_events);
    road.settings.on_result(&result);
}

void end_if_done(void)
{
    if (road.ended || !road.source_over || !road.out.empty())
        return;
    if (!road.pending_events.empty())
        report_events_alone();
    road.ended = true;
    road.settings.on_end(road.failed);
}

// ---- Sending
// -------------------------------------------------------------------------------------------------

// Cuts the picture to what the camera's head looks at.
void look(AVFrame *picture)
{
    float pan = 0, tilt = 0;
    if (!(road.settings.wide > 0))
        return;
    (void)motor_head_at(0, &pan, &tilt);
    if (wide_cut(picture, road.settings.wide, static_cast<double>(pan), static_cast<double>(tilt)) ||
        road.wide_trouble)
        return;
    desk_say("--wide: no window can be cut out of this picture; all of it is shown");
    road.wide_trouble = true;
}

// Fills a message; false when the picture cannot be converted.
bool fill(message *to, const source_picture &picture)
{
    look(picture.frame);
    to->header = {};
    to->header.width = htole32(ANALYSIS_WIDTH);
    to->header.height = htole32(ANALYSIS_HEIGHT);
    to->header.size = htole32(ANALYSIS_FRAME_BYTES);
    to->header.timestamp = htole64(picture.time_ms);
    return picture_to_analysis(picture.frame, to->pixels) == 0;
}

void send(const message *what, AVFrame *picture)
{
    const uint64_t now = naro_clock_monotonic_ms();
    sent_frame frame = {road.counts.sent, le64toh(what->header.timestamp), now, picture};
    road.counts.sent++;
    road.counts.last_time_ms = frame.time_ms;
    road.last_sent_at_ms = now;
    if (road.settings.on_send)
        road.settings.on_send(what->pixels);
    if (shbfev_brd_broadcast_message(road.raw, what, sizeof what->header + ANALYSIS_FRAME_BYTES) < 0) {
        lose(&frame);
        return;
    }
    if (!road.reference) {
        road.reference = true;
        road.counts.compared++;
        report(&frame, nullptr);
        return;
    }
    // A daemon that lags gives up its newest waiting frame for this one.
    if (road.out.size() >= DAEMON_HOLDS) {
        lose(&road.out.back());
        road.out.pop_back();
    }
    road.out.push_back(frame);
}

AVFrame *keep(source_picture *picture)
{
    AVFrame *kept = road.settings.keep_pictures ? picture->frame : nullptr;
    if (!kept)
        av_frame_free(&picture->frame);
    return kept;
}

void source_is_over(bool failed)
{
    road.source_over = true;
    road.failed = failed;
    end_if_done();
}

bool past_end(uint64_t at_ms)
{
    return road.settings.end_ms > 0 && at_ms >= road.settings.end_ms;
}

// Hurried: takes the picture of the next step of the source's time and converts it ahead of its turn.
void prepare(void)
{
    while (!road.prepared && !road.source_over) {
        const uint64_t at_ms = road.next_step * FRAMES_STEP_MS;
        source_picture picture;
        if (past_end(at_ms)) {
            source_is_over(false);
            return;
        }
        switch (source_take(at_ms, &picture)) {
        case SOURCE_WAIT:
            return;
        case SOURCE_END:
            source_is_over(false);
            return;
        case SOURCE_FAILED:
            source_is_over(true);
            return;
        case SOURCE_PICTURE:
            break;
        }
        if (source_is_live()) {
            desk_say("--fast is for files: this source comes at its own pace");
            av_frame_free(&picture.frame);
            source_is_over(true);
            return;
        }
        road.next_step++;
        road.prepared = fill(&road.ready, picture);
        if (road.prepared)
            road.ready_picture = keep(&picture);
        else
            av_frame_free(&picture.frame);
    }
}

void pump(void)
{
    prepare();
    while (road.connected && road.credits > 0 && road.prepared) {
        road.credits--;
        road.prepared = false;
        send(&road.ready, road.ready_picture);
        road.ready_picture = nullptr;
        prepare(); // while the daemon works on the one just sent
    }
}

// At the source's pace: sends the picture of this moment, if there is one.
void answer(void)
{
    source_picture picture;
    if (road.source_over)
        return;
    if (past_end(road.play_ms)) {
        source_is_over(false);
        return;
    }
    switch (source_take(road.play_ms, &picture)) {
    case SOURCE_WAIT:
        road.starved = true;
        return;
    case SOURCE_END:
        source_is_over(false);
        return;
    case SOURCE_FAILED:
        source_is_over(true);
        return;
    case SOURCE_PICTURE:
        break;
    }
    road.starved = false;
    if (fill(&road.ready, picture))
        send(&road.ready, keep(&picture));
    else
        av_frame_free(&picture.frame);
}

void on_request(void)
{
    const uint64_t now = naro_clock_monotonic_ms();
    // While the source has nothing, its time stands still: a file that stalls goes on where it was.
    if (road.playing && !road.starved)
        road.play_ms += now - road.asked_at_ms;
    road.playing = true;
    road.asked_at_ms = now;
    answer();
}

// ---- The channels
// --------------------------------------------------------------------------------------------

int on_upstream(void *, const void *buffer, size_t length)
{
    const bool request = length == RAW_FRAME_REQUEST_LENGTH &&
                         memcmp(buffer, RAW_FRAME_REQUEST, RAW_FRAME_REQUEST_LENGTH) == 0;
    if (request && !road.settings.fast && road.connected)
        on_request();
    return 0;
}

int on_event(void *, void *buffer)
{
    std::string name;
    if (event_name(buffer, shbf_size(buffer), &name)) {
        if (road.pending_events.empty())
            road.events_since_ms = naro_clock_monotonic_ms();
        road.pending_events.push_back(name);
    } else {
        road.counts.bad_events++;
        desk_say("a message of %zu bytes on %s is no event; dropped", shbf_size(buffer), EVENT_PATH_MD);
    }
    shbf_free(buffer);
    return 0;
}

int on_events_closed(void *, void *)
{
    frames_on_daemon_end();
    return 0;
}

int on_raw_error(void *, int error)
{
    desk_say("%s: %s", EVENT_PATH_RAW_STREAM, strerror(error));
    return 0;
}

void connect_when_all_are_there(void)
{
    if (road.connected || (road.settings.held && !road.released) ||
        shbfev_brd_receivers(road.raw) < road.settings.listeners || !shbfev_rcv_connected(road.events))
        return;
    road.connected = true;
    road.counts.connected = true;
    road.credits = 2;
    if (road.settings.fast)
        pump();
}

void look_for_lost_frames(void)
{
    const uint64_t now = naro_clock_monotonic_ms();
    const uint64_t patience = !road.settings.fast ? ANSWER_MAX_MS
                              : road.doubt        ? RECONNECT_ANSWER_MAX_MS
                                                  : FAST_ANSWER_MAX_MS;
    while (!road.out.empty() && now - road.out.front().sent_at_ms >= patience) {
        if (road.settings.fast)
            desk_say("no answer to frame %llu for %llu s; going on",
                     static_cast<unsigned long long>(road.out.front().number),
                     static_cast<unsigned long long>(patience / 1000));
        lose(&road.out.front());
        road.out.pop_front();
        road.credits++;
        road.doubt = false;
    }
    if (!road.pending_events.empty() && road.out.empty() && now - road.events_since_ms >= EVENT_ALONE_MS)
        report_events_alone();
}

// A source that cannot be played at all ends the camera, whether or not anyone asks for a picture of it.
void look_at_source(void)
{
    source_picture picture;
    if (road.settings.fast || road.playing || road.source_over)
        return;
    const enum source_result result = source_take(0, &picture);
    if (result == SOURCE_FAILED)
        source_is_over(true);
    else if (result == SOURCE_PICTURE)
        av_frame_free(&picture.frame);
}

void on_tick(struct ev_loop *, ev_timer *, int)
{
    if (road.ended)
        return;
    look_at_source();
    connect_when_all_are_there();
    look_for_lost_frames();
    if (road.settings.fast)
        pump();
    end_if_done();
}

void on_wake(struct ev_loop *, ev_async *, int)
{
    if (road.ended)
        return;
    if (road.settings.fast)
        pump();
    else if (road.starved)
        answer();
}

} // namespace

int frames_start(struct ev_loop *loop, const frames_settings *settings)
{
    road.loop = loop;
    road.settings = *settings;
    road.released = false;
    road.counts = {};
    if (shbf_rcv_global_init() < 0)
        return -1;
    road.raw = shbfev_brd_create(EVENT_PATH_RAW_STREAM);
    road.events = shbfev_rcv_create(loop, EVENT_PATH_MD);
    if (!road.raw || !road.events ||
        shbfev_brd_register(road.raw, SHBFEV_BRD_ERROR, on_raw_error, nullptr) < 0 ||
        shbfev_brd_on_message(road.raw, on_upstream, nullptr) < 0 ||
        shbfev_rcv_register(road.events, SHBFEV_RCV_DATA, on_event, nullptr) < 0 ||
        shbfev_rcv_register(road.events, SHBFEV_RCV_CLOSED, on_events_closed, nullptr) < 0 ||
        shbfev_brd_start(loop, road.raw) < 0 || shbfev_rcv_start(road.events) < 0) {
        desk_say("the channels %s and %s cannot be opened", EVENT_PATH_RAW_STREAM, EVENT_PATH_MD);
        return -1;
    }
    ev_async_init(&road.wake, on_wake);
    ev_async_start(loop, &road.wake);
    ev_timer_init(&road.tick, on_tick, 0., TICK_S);
    ev_timer_start(loop, &road.tick);
    return 0;
}

void frames_stop(void)
{
    if (!road.loop)
        return;
    ev_timer_stop(road.loop, &road.tick);
    ev_async_stop(road.loop, &road.wake);
    shbfev_rcv_destroy(road.events);
    shbfev_brd_destroy(road.raw);
    shbf_rcv_global_exit();
    for (sent_frame &frame : road.out)
        av_frame_free(&frame.picture);
    road.out.clear();
    av_frame_free(&road.ready_picture);
    road.loop = nullptr;
}

void frames_on_track(const naro_isp_track_param *track)
{
    road.counts.last_result_at = ev_now(road.loop);
    if (road.out.empty()) // not an answer to any frame of ours
        return;
    sent_frame frame = road.out.front();
    road.out.pop_front();
    road.doubt = false;
    report(&frame, track);
    road.credits++;
    if (road.settings.fast)
        pump();
    end_if_done();
}

void frames_release(void)
{
    road.released = true;
}

void frames_on_daemon_end(void)
{
    road.released = false;
    road.connected = false;
    road.counts.connected = false;
    road.reference = false;
    road.credits = 0;
    lose_all();
    end_if_done();
}

void frames_on_client(void)
{
    road.doubt = true;
}

void frames_wake(void *)
{
    ev_async_send(road.loop, &road.wake);
}

const frames_counts *frames_get_counts(void)
{
    return &road.counts;
}
