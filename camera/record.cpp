// Encoding with libavcodec: H.264 where the encoder is there, MPEG-4 otherwise.
#include "record.h"

#include <algorithm>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include "desk.h"
#include "overlay.h"

namespace
{

const AVRational milliseconds = {1, 1000};

struct {
    std::string path;
    FILE *events;
    AVFormatContext *format;
    AVCodecContext *codec;
    AVStream *stream;
    AVPacket *packet;
    AVFrame *frame;
    SwsContext *scaler;
    int64_t last_pts;
    bool open; // the header is written
} record;

// Says what failed and lets go of the video; false, for the caller to return.
bool give_up(const char *what, int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(error, text, sizeof text);
    desk_say("%s: %s: %s; no more is recorded", record.path.c_str(), what, text);
    record.open = false;
    return false;
}

bool open_encoder(void)
{
    const AVCodec *encoder = avcodec_find_encoder_by_name("libx264");
    const bool h264 = encoder != nullptr;
    if (!h264)
        encoder = avcodec_find_encoder(AV_CODEC_ID_MPEG4);
    record.codec = encoder ? avcodec_alloc_context3(encoder) : nullptr;
    if (!record.codec)
        return give_up("video encoder", encoder ? AVERROR(ENOMEM) : AVERROR_ENCODER_NOT_FOUND);
    record.codec->width = VIEW_WIDTH;
    record.codec->height = VIEW_HEIGHT;
    record.codec->pix_fmt = AV_PIX_FMT_YUV420P;
    record.codec->color_range = AVCOL_RANGE_MPEG;
    record.codec->colorspace = AVCOL_SPC_SMPTE170M;
    record.codec->time_base = milliseconds;
    record.codec->framerate = {FRAMES_PER_SECOND, 1};
    record.codec->gop_size = 10 * FRAMES_PER_SECOND; // a place to jump to every ten seconds
    record.codec->max_b_frames = 0;
    if (record.format->oformat->flags & AVFMT_GLOBALHEADER)
        record.codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (h264) {
        av_opt_set(record.codec->priv_data, "preset", "veryfast", 0);
        av_opt_set(record.codec->priv_data, "crf", "23", 0);
    } else {
        record.codec->flags |= AV_CODEC_FLAG_QSCALE;
        record.codec->global_quality = 4 * FF_QP2LAMBDA;
    }
    const int error = avcodec_open2(record.codec, encoder, nullptr);
    return error >= 0 || give_up(encoder->name, error);
}

bool open_video(void)
{
    int error = avformat_alloc_output_context2(&record.format, nullptr, "mp4", record.path.c_str());
    if (error < 0)
        return give_up("video file", error);
    if (!open_encoder())
        return false;
    record.stream = avformat_new_stream(record.format, nullptr);
    record.packet = av_packet_alloc();
    record.frame = av_frame_alloc();
    record.scaler = sws_getContext(VIEW_WIDTH, VIEW_HEIGHT, AV_PIX_FMT_RGB32, VIEW_WIDTH, VIEW_HEIGHT,
                                   AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!record.stream || !record.packet || !record.frame || !record.scaler)
        return give_up("video", AVERROR(ENOMEM));
    record.stream->time_base = milliseconds;
    record.frame->width = VIEW_WIDTH;
    record.frame->height = VIEW_HEIGHT;
    record.frame->format = AV_PIX_FMT_YUV420P;
    error = av_frame_get_buffer(record.frame, 0);
    if (error >= 0)
        error = avcodec_parameters_from_context(record.stream->codecpar, record.codec);
    if (error >= 0)
        error = avio_open(&record.format->pb, record.path.c_str(), AVIO_FLAG_WRITE);
    if (error >= 0)
        error = avformat_write_header(record.format, nullptr);
    if (error < 0)
        return give_up("video file", error);
    record.open = true;
    return true;
}

// Encodes a picture (null: the last ones that the encoder still holds) and writes what comes out.
bool encode(const AVFrame *frame)
{
    int error = avcodec_send_frame(record.codec, frame);
    if (error < 0)
        return give_up("encoding", error);
    while ((error = avcodec_receive_packet(record.codec, record.packet)) == 0) {
        record.packet->duration = FRAMES_STEP_MS; // the last picture is shown for as long as any other
        av_packet_rescale_ts(record.packet, milliseconds, record.stream->time_base);
        record.packet->stream_index = record.stream->index;
        error = av_interleaved_write_frame(record.format, record.packet);
        if (error < 0)
            return give_up("writing", error);
    }
    return error == AVERROR(EAGAIN) || error == AVERROR_EOF || give_up("encoding", error);
}

} // namespace

int record_start(const char *folder)
{
    if (mkdir(folder, 0777) != 0 && errno != EEXIST) {
        desk_say("%s: %s", folder, strerror(errno));
        return -1;
    }
    const std::string events = std::string(folder) + "/" + RECORD_EVENTS;
    record.path = std::string(folder) + "/" + RECORD_VIDEO;
    record.last_pts = -1;
    record.events = fopen(events.c_str(), "we");
    if (!record.events) {
        desk_say("%s: %s", events.c_str(), strerror(errno));
        return -1;
    }
    return open_video() ? 0 : -1;
}

void record_picture(const uint32_t *pixels, uint64_t time_ms)
{
    if (!record.open)
        return;
    int error = av_frame_make_writable(record.frame);
    if (error < 0) {
        give_up("video", error);
        return;
    }
    const uint8_t *const planes[4] = {reinterpret_cast<const uint8_t *>(pixels), nullptr, nullptr, nullptr};
    const int strides[4] = {4 * VIEW_WIDTH, 0, 0, 0};
    sws_scale(record.scaler, planes, strides, 0, VIEW_HEIGHT, record.frame->data, record.frame->linesize);
    // A picture that is shown twice has one time; a video's times must rise.
    record.frame->pts = std::max(static_cast<int64_t>(time_ms), record.last_pts + 1);
    record.last_pts = record.frame->pts;
    encode(record.frame);
}

void record_event(const std::string &json)
{
    if (!record.events)
        return;
    if (fprintf(record.events, "%s\n", json.c_str()) < 0 || fflush(record.events) != 0) {
        desk_say("%s: %s; no more events are recorded", RECORD_EVENTS, strerror(errno));
        fclose(record.events);
        record.events = nullptr;
    }
}

void record_stop(void)
{
    if (record.events)
        fclose(record.events);
    record.events = nullptr;
    if (record.open && encode(nullptr)) {
        const int error = av_write_trailer(record.format);
        if (error < 0)
            give_up("writing", error);
    }
    record.open = false;
    if (record.format)
        avio_closep(&record.format->pb);
    avcodec_free_context(&record.codec);
    avformat_free_context(record.format);
    record.format = nullptr;
    av_packet_free(&record.packet);
    av_frame_free(&record.frame);
    sws_freeContext(record.scaler);
    record.scaler = nullptr;
}
