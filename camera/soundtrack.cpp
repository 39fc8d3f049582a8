// Samples of every format that decoders give, through the meter.
#include "soundtrack.h"

#include <deque>
#include <math.h>
#include <stdlib.h>
#include <string.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
}

#include "desk.h"
#include "sound.h"

namespace
{

const size_t WAITING_MAX = 6000;  // levels; as many as the ear keeps
const double GAP_S = 0.1;         // a larger step between two time stamps is a gap in the sound
const int RATE_MAX = 1000 * 1000; // samples a second

struct level {
    double end_s;
    double db;
};

struct {
    int stream; // of the format; valid while codec is there
    AVCodecContext *codec;
    AVFrame *frame;
    AVRational time_base;
    int rate;     // that the meter was started for; 0: none yet
    double now_s; // stream time of the next sample
    bool timed;   // now_s is known
    sound_meter meter;
    std::deque<level> waiting;
} track;

// A sample between -1 and 1.
template <typename T> double sample_of(const uint8_t *at)
{
    T value;
    memcpy(&value, at, sizeof value);
    return static_cast<double>(value);
}

double sample_of(AVSampleFormat packed, const uint8_t *at)
{
    switch (packed) {
    case AV_SAMPLE_FMT_U8:
        return (sample_of<uint8_t>(at) - 128) / 128;
    case AV_SAMPLE_FMT_S16:
        return sample_of<int16_t>(at) / 32768;
    case AV_SAMPLE_FMT_S32:
        return sample_of<int32_t>(at) / 2147483648.;
    case AV_SAMPLE_FMT_S64:
        return sample_of<int64_t>(at) / 9223372036854775808.;
    case AV_SAMPLE_FMT_FLT:
        return sample_of<float>(at);
    case AV_SAMPLE_FMT_DBL:
        return sample_of<double>(at);
    default:
        return 0;
    }
}

int channels_of(const AVFrame *frame)
{
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 28, 100)
    return frame->ch_layout.nb_channels;
#else
    return frame->channels;
#endif
}

// From here on the sound is another: what came before it does not count for its level.
void restart_meter(int rate)
{
    track.rate = rate;
    sound_meter_start(&track.meter, rate);
}

void meter_frame(const AVFrame *frame)
{
    const int rate = frame->sample_rate, channels = channels_of(frame);
    if (rate <= 0 || rate > RATE_MAX || channels <= 0 || frame->nb_samples <= 0)
        return;
    const double begin_s = frame->best_effort_timestamp != AV_NOPTS_VALUE
                               ? static_cast<double>(frame->best_effort_timestamp) * av_q2d(track.time_base)
                               : track.now_s;
    if (rate != track.rate || !track.timed || fabs(begin_s - track.now_s) > GAP_S) {
        restart_meter(rate);
        track.now_s = begin_s;
        track.timed = true;
    }
    const AVSampleFormat format = static_cast<AVSampleFormat>(frame->format);
    const AVSampleFormat packed = av_get_packed_sample_fmt(format);
    const bool planar = av_sample_fmt_is_planar(format) != 0;
    const int bytes = av_get_bytes_per_sample(format);
    const int heard = channels < SOUND_CHANNELS_MAX ? channels : static_cast<int>(SOUND_CHANNELS_MAX);
    for (int i = 0; i < frame->nb_samples; i++) {
        double sample[SOUND_CHANNELS_MAX], db;
        for (int c = 0; c < heard; c++)
            sample[c] =
                sample_of(packed, planar ? frame->extended_data[c] + ptrdiff_t{i} * bytes
                                         : frame->extended_data[0] + (ptrdiff_t{i} * channels + c) * bytes);
        if (sound_meter_add(&track.meter, sample, heard, &db))
            track.waiting.push_back({track.now_s + (i + 1.) / rate, db});
    }
    track.now_s += static_cast<double>(frame->nb_samples) / rate;
    while (track.waiting.size() > WAITING_MAX)
        track.waiting.pop_front();
}

} // namespace

int soundtrack_open(AVFormatContext *format, int video_stream, const char *name)
{
    const AVCodec *decoder = nullptr;
    soundtrack_close();
    track.stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, video_stream, &decoder, 0);
    if (track.stream == AVERROR_STREAM_NOT_FOUND)
        return -1;
    int error = track.stream;
    if (error >= 0) {
        const AVStream *stream = format->streams[track.stream];
        track.time_base = stream->time_base;
        track.frame = av_frame_alloc();
        track.codec = avcodec_alloc_context3(decoder);
        error = track.codec && track.frame ? avcodec_parameters_to_context(track.codec, stream->codecpar)
                                           : AVERROR(ENOMEM);
    }
    if (error >= 0) {
        track.codec->pkt_timebase = track.time_base;
        error = avcodec_open2(track.codec, decoder, nullptr);
    }
    if (error >= 0)
        return track.stream;
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(error, text, sizeof text);
    desk_say("%s: its sound cannot be decoded: %s", name, text);
    soundtrack_close();
    return -1;
}

void soundtrack_feed(const AVPacket *packet)
{
    if (!track.codec)
        return;
    avcodec_send_packet(track.codec, packet);
    while (avcodec_receive_frame(track.codec, track.frame) == 0) {
        meter_frame(track.frame);
        av_frame_unref(track.frame);
    }
}

void soundtrack_settle(int64_t offset_ms)
{
    for (const level &one : track.waiting)
        sound_measured(static_cast<int64_t>(floor(one.end_s * 1000 + 0.5)) + offset_ms, one.db);
    track.waiting.clear();
}

void soundtrack_settle_live(int64_t now_ms)
{
    if (!track.waiting.empty())
        soundtrack_settle(now_ms - static_cast<int64_t>(floor(track.waiting.back().end_s * 1000 + 0.5)));
}

void soundtrack_restart(void)
{
    if (!track.codec)
        return;
    avcodec_flush_buffers(track.codec);
    track.rate = 0;
    track.timed = false;
    track.waiting.clear();
}

void soundtrack_close(void)
{
    avcodec_free_context(&track.codec);
    av_frame_free(&track.frame);
    track.rate = 0;
    track.now_s = 0;
    track.timed = false;
    track.waiting.clear();
}
