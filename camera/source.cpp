// The source's thread: opening, reading, decoding, and starting over; and the queue between it and the event
// loop.
#include "source.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <string>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <time.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

#include "desk.h"
#include "generated.h"
#include "naro_util.h"
#include "rendered.h"
#include "soundtrack.h"

namespace
{

enum {
    QUEUE_MAX = 16,           // pictures decoded ahead
    OPEN_PATIENCE_MS = 15000, // until something on the network answers
    READ_PATIENCE_MS = 10000, // between two packets of something on the network, or two pictures of a device
    BACKOFF_FIRST_MS = 500,
    BACKOFF_MAX_MS = 10000,
    JUMP_MAX_MS = 10000,   // a larger step between two time stamps is a mistake in the file
    BAD_PACKETS_MAX = 500, // in a row, until a source counts as broken
    EMPTY_READ_MS = 5,     // a device that has nothing yet is asked again
    PIXELS_MAX = 8192 * 8192,
};

enum outcome { OUTCOME_END, OUTCOME_BROKEN, OUTCOME_QUIT };

struct {
    source_settings settings;
    bool running; // event loop only
    pthread_t thread;
    std::atomic<bool> quit;
    std::atomic<unsigned> reopened;

    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER; // protects the rest
    pthread_cond_t changed;                            // room in the queue, or quit
    std::deque<source_picture> queue;                  // oldest first
    source_picture current;                            // the picture last taken; frame null: none yet
    uint64_t wanted_ms;                                // time of the last take
    uint64_t end_ms;                                   // once ended: when the last picture is over
    uint64_t
        exact_ms; // pictures come at multiples of this and never between; 0: nobody knows when the next comes
    bool waiting; // a take had to wait
    bool live;
    bool lost; // it broke, and has given no picture since
    bool ended;
    bool failed;
} source;

// The thread's own; made anew by source_start.
struct {
    std::string name;  // what the person typed
    const char *scene; // when that is a scene
    bool device;
    bool network;
    AVFormatContext *format;
    AVCodecContext *codec;
    AVPacket *packet;
    AVFrame *frame;
    int stream;
    int sound;         // stream; -1: none is listened to
    bool turned;       // the container says which side of a picture is up,
    int32_t matrix[9]; // by this
    std::atomic<uint64_t>
        deadline_ms;           // monotonic; 0: none. Read by FFmpeg's own threads through the callback
    bool rebased;              // a first picture of this opening has been seen
    int64_t offset_ms;         // added to a stream's own time
    int64_t last_ms;           // source time of the last picture, -1: none
    int64_t step_ms;           // how long a picture lasts
    int64_t resume_after_ms;   // pictures up to here were there already, -1: none
    uint64_t first_arrival_ms; // monotonic, of a live source's first picture
    bool live;
    unsigned backoff_ms;
} reader;

std::string error_text(int error)
{
    if (error == AVERROR_EOF)
        return "it ends before its first picture";
    if (error == AVERROR(EIO) && reader.network)
        return "the connection broke off";
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(error, text, sizeof text);
    return text;
}

// ---- The queue
// -----------------------------------------------------------------------------------------------

void free_picture(source_picture *picture)
{
    av_frame_free(&picture->frame);
}

// Lets go of pictures that nobody will ask for: a later one is due already. Lock held.
void drop_passed(void)
{
    while (source.queue.size() >= 2 && (source.live || source.queue[1].time_ms <= source.wanted_ms)) {
        free_picture(&source.queue.front());
        source.queue.pop_front();
    }
}

void wake_if_waiting(void)
{
    if (!source.waiting)
        return;
    source.waiting = false;
    source.settings.wake(source.settings.context);
}

// Hands a picture (which it takes over) to the event loop, waiting for room; false when the source is to
// quit.
bool push(AVFrame *frame, uint64_t time_ms)
{
    pthread_mutex_lock(&source.mutex);
    source.queue.push_back({frame, time_ms});
    source.lost = false;
    drop_passed();
    if (source.live || source.exact_ms > 0 || source.queue.back().time_ms > source.wanted_ms)
        wake_if_waiting();
    while (!source.quit && source.queue.size() >= QUEUE_MAX)
        pthread_cond_wait(&source.changed, &source.mutex);
    pthread_mutex_unlock(&source.mutex);
    return !source.quit;
}

// Waits until a picture of that time has been asked for; false when the source is to quit.
bool wait_until_wanted(uint64_t time_ms)
{
    pthread_mutex_lock(&source.mutex);
    while (!source.quit && source.wanted_ms < time_ms)
        pthread_cond_wait(&source.changed, &source.mutex);
    pthread_mutex_unlock(&source.mutex);
    return !source.quit;
}

// The time that was asked for last.
uint64_t wanted(void)
{
    pthread_mutex_lock(&source.mutex);
    const uint64_t time_ms = source.wanted_ms;
    pthread_mutex_unlock(&source.mutex);
    return time_ms;
}

void finish(bool failed)
{
    pthread_mutex_lock(&source.mutex);
    source.ended = !failed;
    source.failed = failed;
    source.end_ms = static_cast<uint64_t>(std::max<int64_t>(0, reader.last_ms + reader.step_ms));
    wake_if_waiting();
    pthread_mutex_unlock(&source.mutex);
}

// Waits; false when the source is to quit.
bool rest(unsigned ms)
{
    timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += ms / 1000;
    until.tv_nsec += ms % 1000 * 1000000L;
    if (until.tv_nsec >= 1000000000L) {
        until.tv_sec++;
        until.tv_nsec -= 1000000000L;
    }
    pthread_mutex_lock(&source.mutex);
    while (!source.quit && pthread_cond_timedwait(&source.changed, &source.mutex, &until) != ETIMEDOUT) {
    }
    pthread_mutex_unlock(&source.mutex);
    return !source.quit;
}

// ---- Opening and closing
// -------------------------------------------------------------------------------------

int interrupted(void *)
{
    if (source.quit)
        return 1;
    const uint64_t deadline = reader.deadline_ms;
    return deadline != 0 && naro_clock_monotonic_ms() >= deadline;
}

// How long the next call may take. A file's storage is waited for as long as it takes.
void allow(unsigned ms)
{
    reader.deadline_ms = reader.network || reader.device ? naro_clock_monotonic_ms() + ms : 0;
}

bool too_late(void)
{
    return reader.deadline_ms != 0 && naro_clock_monotonic_ms() >= reader.deadline_ms;
}

void close_source(void)
{
    soundtrack_close();
    avcodec_free_context(&reader.codec);
    avformat_close_input(&reader.format);
    av_packet_free(&reader.packet);
    av_frame_free(&reader.frame);
}

// Keeps the container's word on which side is up, if it has one.
void read_orientation(void)
{
    const AVStream *stream = reader.format->streams[reader.stream];
    reader.turned = false;
#if LIBAVFORMAT_VERSION_INT < AV_VERSION_INT(60, 15, 100)
    size_t size = 0;
    const uint8_t *matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
#else
    const AVPacketSideData *data = av_packet_side_data_get(
        stream->codecpar->coded_side_data, stream->codecpar->nb_coded_side_data, AV_PKT_DATA_DISPLAYMATRIX);
    const uint8_t *matrix = data ? data->data : nullptr;
    const size_t size = data ? data->size : 0;
#endif
    if (!matrix || size < sizeof reader.matrix)
        return;
    memcpy(reader.matrix, matrix, sizeof reader.matrix);
    reader.turned = true;
}

// Puts it on a picture that has no word of its own.
void orient(AVFrame *frame)
{
    if (!reader.turned || av_frame_get_side_data(frame, AV_FRAME_DATA_DISPLAYMATRIX))
        return;
    AVFrameSideData *data = av_frame_new_side_data(frame, AV_FRAME_DATA_DISPLAYMATRIX, sizeof reader.matrix);
    if (data)
        memcpy(data->data, reader.matrix, sizeof reader.matrix);
}

int open_decoder(void)
{
    const AVCodec *decoder = nullptr;
    reader.stream = av_find_best_stream(reader.format, AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
    if (reader.stream < 0)
        return reader.stream;
    reader.sound =
        source.settings.sound ? soundtrack_open(reader.format, reader.stream, reader.name.c_str()) : -1;
    for (unsigned i = 0; i < reader.format->nb_streams; i++)
        if (static_cast<int>(i) != reader.stream && static_cast<int>(i) != reader.sound)
            reader.format->streams[i]->discard = AVDISCARD_ALL;
    read_orientation();
    reader.codec = avcodec_alloc_context3(decoder);
    if (!reader.codec)
        return AVERROR(ENOMEM);
    const int error =
        avcodec_parameters_to_context(reader.codec, reader.format->streams[reader.stream]->codecpar);
    if (error < 0)
        return error;
    reader.codec->pkt_timebase = reader.format->streams[reader.stream]->time_base;
    reader.codec->max_pixels = PIXELS_MAX;
    // Frame threads each hold a picture back, which a live source has no time for.
    reader.codec->thread_count = 2;
    reader.codec->thread_type = reader.live ? FF_THREAD_SLICE : FF_THREAD_FRAME | FF_THREAD_SLICE;
    if (reader.live)
        reader.codec->flags |= AV_CODEC_FLAG_LOW_DELAY;
    return avcodec_open2(reader.codec, decoder, nullptr);
}

// Whether pictures come at their own pace: devices and streams do, and a file on a web server does not.
bool is_live(void)
{
    if (reader.device)
        return true;
    return reader.network && (reader.format->duration == AV_NOPTS_VALUE || reader.format->duration <= 0);
}

int open_source(void)
{
    reader.packet = av_packet_alloc();
    reader.frame = av_frame_alloc();
    reader.format = avformat_alloc_context();
    if (!reader.packet || !reader.frame || !reader.format)
        return AVERROR(ENOMEM);
    reader.format->interrupt_callback.callback = interrupted;
    AVDictionary *options = nullptr;
    const char *url = source.settings.url;
    // Not const in every version of FFmpeg that we build with.
    auto *input = reader.device ? av_find_input_format("v4l2") : nullptr;
    if (reader.device) {
        if (!input)
            return AVERROR_DEMUXER_NOT_FOUND;
        reader.format->flags |= AVFMT_FLAG_NONBLOCK; // a device's own wait knows no deadline
    }
    av_dict_set(&options, "rtsp_flags", "prefer_tcp", 0);
    allow(OPEN_PATIENCE_MS);
    int error = avformat_open_input(&reader.format, url, input, &options);
    av_dict_free(&options);
    if (error < 0)
        return error; // and the context is gone
    if (!reader.device)
        error = avformat_find_stream_info(reader.format, nullptr);
    if (error < 0)
        return error;
    reader.live = is_live();
    error = open_decoder();
    if (error < 0)
        return error;
    pthread_mutex_lock(&source.mutex);
    source.live = reader.live;
    pthread_mutex_unlock(&source.mutex);
    return 0;
}

// ---- Reading
// -------------------------------------------------------------------------------------------------

int64_t step_of(const AVFrame *frame)
{
    const AVStream *stream = reader.format->streams[reader.stream];
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 2, 100)
    const int64_t duration = frame->duration;
#else
    const int64_t duration = frame->pkt_duration;
#endif
    if (duration > 0)
        return std::max<int64_t>(1, av_rescale_q(duration, stream->time_base, {1, 1000}));
    const AVRational rate = stream->avg_frame_rate;
    return rate.num > 0 && rate.den > 0 ? std::max<int64_t>(1, av_rescale(1000, rate.den, rate.num)) : 40;
}

// The source time of a decoded picture.
int64_t time_of(const AVFrame *frame)
{
    if (reader.live) {
        const uint64_t now = naro_clock_monotonic_ms();
        if (reader.last_ms < 0)
            reader.first_arrival_ms = now;
        return static_cast<int64_t>(now - reader.first_arrival_ms);
    }
    const int64_t expected = reader.last_ms < 0 ? 0 : reader.last_ms + reader.step_ms;
    if (frame->best_effort_timestamp == AV_NOPTS_VALUE)
        return expected;
    const AVRational base = reader.format->streams[reader.stream]->time_base;
    const int64_t own = av_rescale_q(frame->best_effort_timestamp, base, {1, 1000});
    if (!reader.rebased) {
        // The first picture of an opening: the beginning, or the beginning again.
        reader.rebased = true;
        if (reader.resume_after_ms < 0)
            reader.offset_ms = expected - own;
    }
    const int64_t time = own + reader.offset_ms;
    if (time > expected + JUMP_MAX_MS || time < expected - JUMP_MAX_MS) {
        if (reader.resume_after_ms >= 0)
            return time; // a file that is being caught up with
        reader.offset_ms = expected - own;
        return expected;
    }
    return time;
}

// Takes what comes with the pictures to be heard; null: the end of it.
void hear(const AVPacket *packet)
{
    soundtrack_feed(packet);
    if (reader.live && reader.last_ms >= 0)
        soundtrack_settle_live(static_cast<int64_t>(naro_clock_monotonic_ms() - reader.first_arrival_ms));
    else if (!reader.live && reader.rebased)
        soundtrack_settle(reader.offset_ms);
}

// Takes one decoded picture over; false when the source is to quit.
bool deliver(AVFrame *frame)
{
    int64_t time = time_of(frame);
    if (reader.resume_after_ms >= 0 && time <= reader.resume_after_ms)
        return !source.quit;
    reader.resume_after_ms = -1;
    time = std::max(time, reader.last_ms);
    reader.step_ms = step_of(frame);
    reader.last_ms = time;
    reader.backoff_ms = BACKOFF_FIRST_MS;
    AVFrame *kept = av_frame_alloc();
    if (!kept)
        return !source.quit;
    av_frame_move_ref(kept, frame);
    orient(kept);
    return push(kept, static_cast<uint64_t>(time));
}

// Takes every picture that the decoder has ready.
bool drain_decoder(void)
{
    while (avcodec_receive_frame(reader.codec, reader.frame) == 0)
        if (!deliver(reader.frame))
            return false;
    return true;
}

// Plays what is open until something ends it.
outcome play(std::string *why)
{
    int bad = 0;
    allow(READ_PATIENCE_MS);
    for (;;) {
        const int error = av_read_frame(reader.format, reader.packet);
        if (source.quit)
            return OUTCOME_QUIT;
        if (error == AVERROR(EAGAIN) && !too_late()) {
            if (!rest(EMPTY_READ_MS))
                return OUTCOME_QUIT;
            continue;
        }
        // A server that goes away in the middle looks like the end to some demuxers; its connection knows
        // better.
        const int beneath = reader.format->pb ? reader.format->pb->error : 0;
        if (error == AVERROR_EOF && (beneath == 0 || beneath == AVERROR_EOF)) {
            avcodec_send_packet(reader.codec, nullptr);
            if (!drain_decoder())
                return OUTCOME_QUIT;
            hear(nullptr);
            *why = "the stream has ended";
            return reader.live ? OUTCOME_BROKEN : OUTCOME_END;
        }
        if (error < 0) {
            *why = too_late() ? "no data for " + std::to_string(READ_PATIENCE_MS / 1000) + " s"
                              : error_text(error == AVERROR_EOF ? beneath : error);
            return OUTCOME_BROKEN;
        }
        if (reader.packet->stream_index == reader.stream) {
            const int64_t before = reader.last_ms;
            const int decoded = avcodec_send_packet(reader.codec, reader.packet);
            if (!drain_decoder()) {
                av_packet_unref(reader.packet);
                return OUTCOME_QUIT;
            }
            bad = decoded < 0 && reader.last_ms == before ? bad + 1 : 0;
            allow(READ_PATIENCE_MS);
        } else if (reader.packet->stream_index == reader.sound) {
            hear(reader.packet);
        }
        av_packet_unref(reader.packet);
        if (bad > BAD_PACKETS_MAX) {
            *why = "nothing of it can be decoded";
            return OUTCOME_BROKEN;
        }
    }
}

// From the beginning again: false when that needs a new opening.
bool rewind_source(void)
{
    const AVStream *stream = reader.format->streams[reader.stream];
    const int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    avcodec_flush_buffers(reader.codec);
    soundtrack_restart();
    reader.rebased = false;
    return avformat_seek_file(reader.format, reader.stream, INT64_MIN, start, start, 0) >= 0;
}

// Waits before the next try, longer each time; false when the source is to quit.
bool back_off(const char *what, const std::string &why)
{
    desk_say("%s: %s: %s; trying again in %u.%u s", reader.name.c_str(), what, why.c_str(),
             reader.backoff_ms / 1000, reader.backoff_ms % 1000 / 100);
    const unsigned ms = reader.backoff_ms;
    reader.backoff_ms = std::min<unsigned>(2 * ms, BACKOFF_MAX_MS);
    return rest(ms);
}

// One opening and what is played from it. OUTCOME_END: the source is over for good.
outcome play_once(void)
{
    std::string why;
    const bool again = reader.last_ms >= 0;
    const int error = open_source();
    if (source.quit)
        return OUTCOME_QUIT;
    if (error < 0) {
        why = too_late() ? "no answer for " + std::to_string(OPEN_PATIENCE_MS / 1000) + " s"
                         : error_text(error);
        if (!again && !reader.network && !reader.device) {
            desk_say("%s: %s", reader.name.c_str(), why.c_str());
            finish(true);
            return OUTCOME_QUIT;
        }
        return back_off("cannot be opened", why) ? OUTCOME_BROKEN : OUTCOME_QUIT;
    }
    reader.rebased = false;
    for (;;) {
        const int64_t before = reader.last_ms;
        const outcome outcome = play(&why);
        if (outcome == OUTCOME_QUIT)
            return OUTCOME_QUIT;
        if (outcome == OUTCOME_BROKEN) {
            pthread_mutex_lock(&source.mutex);
            source.lost = true;
            pthread_mutex_unlock(&source.mutex);
            // A file goes on after the last picture that was there.
            reader.resume_after_ms = reader.live ? -1 : reader.last_ms;
            return back_off("lost", why) ? OUTCOME_BROKEN : OUTCOME_QUIT;
        }
        if (reader.last_ms == before) {
            desk_say("%s: there is no picture in it", reader.name.c_str());
            finish(reader.last_ms < 0);
            return OUTCOME_QUIT;
        }
        if (!source.settings.loop) {
            finish(false);
            return OUTCOME_QUIT;
        }
        reader.resume_after_ms = -1;
        if (!rewind_source())
            return OUTCOME_END;
    }
}

void *read_source(void *)
{
    (void)prctl(PR_SET_NAME, "source");
    for (;;) {
        const outcome outcome = play_once();
        close_source();
        if (outcome == OUTCOME_QUIT)
            return nullptr;
        if (outcome == OUTCOME_BROKEN)
            source.reopened++;
    }
}

// A scene may be wrong, and a renderer missing; once open, both go on to the end.
void *render_source(void *)
{
    (void)prctl(PR_SET_NAME, "source");
    const rendered_settings settings = {reader.scene, source.settings.loop, source.settings.view,
                                        source.settings.gpu, source.settings.head};
    if (rendered_open(&settings) != 0) {
        finish(true);
        return nullptr;
    }
    reader.step_ms = RENDERED_STEP_MS;
    const uint64_t end_ms = rendered_end_ms();
    for (uint64_t number = 0;; number++) {
        number = std::max(number, wanted() / RENDERED_STEP_MS); // what nobody will look at is not drawn
        if (source.settings.head) {
            if (!wait_until_wanted(number * RENDERED_STEP_MS))
                break;
            number = std::max(number, wanted() / RENDERED_STEP_MS);
        }
        const uint64_t time_ms = number * RENDERED_STEP_MS;
        if (end_ms > 0 && time_ms >= end_ms) {
            finish(false);
            break;
        }
        AVFrame *frame = rendered_picture(number);
        if (!frame) {
            finish(true);
            break;
        }
        reader.last_ms = static_cast<int64_t>(time_ms);
        if (!push(frame, time_ms))
            break;
    }
    rendered_close();
    return nullptr;
}

// The generated scene needs no opening and never breaks.
void *draw_source(void *)
{
    (void)prctl(PR_SET_NAME, "source");
    for (uint64_t number = 0;; number++) {
        number = std::max(number, wanted() / GENERATED_STEP_MS); // what nobody will look at is not drawn
        const uint64_t time_ms = number * GENERATED_STEP_MS;
        AVFrame *frame = generated_picture(time_ms);
        if (!frame) {
            desk_say("the generated picture: %s", strerror(ENOMEM));
            finish(true);
            return nullptr;
        }
        if (!push(frame, time_ms))
            return nullptr;
    }
}

// What kind of thing the person named.
void look_at_url(void)
{
    const char *url = source.settings.url;
    struct stat status;
    const bool there = stat(url, &status) == 0;
    reader.device = there && S_ISCHR(status.st_mode);
    reader.network = !there && strstr(url, "://") != nullptr && strncmp(url, "file:", 5) != 0;
}

} // namespace

int source_start(const source_settings *settings)
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&source.changed, &attributes);
    pthread_condattr_destroy(&attributes);
    source.settings = *settings;
    source.quit = false;
    source.reopened = 0;
    source.queue.clear();
    source.current = {};
    source.wanted_ms = 0;
    source.end_ms = 0;
    source.exact_ms = 0;
    source.waiting = source.live = source.lost = source.ended = source.failed = false;
    reader.last_ms = -1;
    reader.resume_after_ms = -1;
    reader.offset_ms = 0;
    reader.step_ms = 0;
    reader.live = false;
    reader.backoff_ms = BACKOFF_FIRST_MS;
    reader.deadline_ms = 0;
    void *(*work)(void *) = read_source;
    reader.device = reader.network = false;
    reader.name = settings->url;
    if (strcmp(settings->url, SOURCE_SHAPES) == 0) {
        work = draw_source;
    } else if (rendered_is_scene(settings->url, &reader.scene)) {
        work = render_source;
        source.exact_ms = settings->head ? RENDERED_STEP_MS : 0;
    } else {
        look_at_url();
        avformat_network_init();
        if (reader.device)
            avdevice_register_all();
    }
    const int error = pthread_create(&source.thread, nullptr, work, nullptr);
    if (error != 0) {
        desk_say("the source's thread: %s", strerror(error));
        return -1;
    }
    source.running = true;
    return 0;
}

enum source_result source_take(uint64_t at_ms, source_picture *picture)
{
    enum source_result result;
    pthread_mutex_lock(&source.mutex);
    source.wanted_ms = at_ms;
    drop_passed();
    // Sure that no earlier picture is still to come: a later one is there, or the end.
    const auto shown_until = [](const source_picture &last) {
        return source.exact_ms > 0 ? last.time_ms + source.exact_ms : last.time_ms;
    };
    const source_picture *newest = !source.queue.empty() ? &source.queue.back() : nullptr;
    if (!newest && source.exact_ms > 0 && source.current.frame)
        newest = &source.current;
    const bool later = newest && shown_until(*newest) > at_ms;
    const bool due = !source.queue.empty() && (source.live || source.queue.front().time_ms <= at_ms);
    if (due && (source.live || later || source.ended)) {
        free_picture(&source.current);
        source.current = source.queue.front();
        source.queue.pop_front();
    }
    if (source.failed)
        result = SOURCE_FAILED;
    else if (source.ended && source.queue.empty() && at_ms >= source.end_ms)
        result = SOURCE_END;
    else if (source.current.frame && (source.live ? !source.lost : later || source.ended))
        result = SOURCE_PICTURE;
    else
        result = SOURCE_WAIT;
    source.waiting = result == SOURCE_WAIT;
    if (result == SOURCE_PICTURE) {
        picture->frame = av_frame_clone(source.current.frame);
        picture->time_ms = source.current.time_ms;
        if (!picture->frame)
            result = SOURCE_FAILED;
    }
    pthread_cond_signal(&source.changed);
    pthread_mutex_unlock(&source.mutex);
    return result;
}

bool source_is_live(void)
{
    pthread_mutex_lock(&source.mutex);
    const bool live = source.live;
    pthread_mutex_unlock(&source.mutex);
    return live;
}

unsigned source_reopened(void)
{
    return source.reopened;
}

void source_stop(void)
{
    if (!source.running)
        return;
    pthread_mutex_lock(&source.mutex);
    source.quit = true;
    pthread_cond_signal(&source.changed);
    pthread_mutex_unlock(&source.mutex);
    pthread_join(source.thread, nullptr);
    source.running = false;
    for (source_picture &picture : source.queue)
        free_picture(&picture);
    source.queue.clear();
    free_picture(&source.current);
    pthread_cond_destroy(&source.changed);
}
